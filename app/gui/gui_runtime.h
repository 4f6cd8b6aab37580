// What the QML side of the application sees: the session's adapters as QML
// singletons of the module "Lumeo.Core" (Theme, L10n, Presenter, Shell,
// Capture, and what each screen's file adds), the picture provider, and the
// QML file that shows each screen class of the core's navigation model.
//
// A screen's adapter file adds itself with a static registration, so no
// shared file needs an edit:
//
//   static const GuiRegistration kHistory(20, [](GuiRuntime& runtime) {
//     runtime.addSingleton("History", new HistoryAdapter(runtime.session(), &runtime));
//     registerPictureSource("calendar", ...);
//     runtime.addScreen("MoodDateHistoryViewController", "DateHistoryScreen.qml");
//   });
//
// Registrations run in order (lower first) when the runtime is made, after
// the built-in adapters.
#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <vector>

class QQmlEngine;

namespace lumeo::gui {

class GuiSession;
class GuiRuntime;
class MainQueuePump;
class QtPresenter;
class Theme;

struct GuiRegistration {
  GuiRegistration(int order, std::function<void(GuiRuntime&)> registrar);
};

class GuiRuntime : public QObject {
  Q_OBJECT
 public:
  // The module the C++ singletons and types live in.
  static constexpr const char* kCoreUri = "Lumeo.Core";

  explicit GuiRuntime(GuiSession& session, QObject* parent = nullptr);
  ~GuiRuntime() override;

  GuiSession& session() { return session_; }
  Theme& theme() { return *theme_; }
  QtPresenter& presenter() { return *presenter_; }
  MainQueuePump& pump() { return *pump_; }

  // Makes `object` (owned by the runtime from now on) the QML singleton
  // `name` of Lumeo.Core. Before attach().
  void addSingleton(const char* name, QObject* object);
  QObject* singleton(const QString& name) const;
  // The QML file (in the module "Lumeo", e.g. "SettingsScreen.qml") that
  // shows a screen of this class when the core presents or pushes it.
  void addScreen(const QString& className, const QString& qmlFile);
  QUrl screenUrl(const QString& className) const;

  // Registers the singletons with QML (once per process) and gives the
  // engine the picture provider and the module's import path.
  void attach(QQmlEngine& engine);

  // The runtime of this process (the last one made).
  static GuiRuntime* instance();

 private:
  GuiSession& session_;
  Theme* theme_ = nullptr;
  QtPresenter* presenter_ = nullptr;
  MainQueuePump* pump_ = nullptr;
  std::vector<std::pair<QByteArray, QObject*>> singletons_;
  QHash<QString, QString> screens_;
  bool registered_ = false;
};

}  // namespace lumeo::gui
