#include "gui_runtime.h"

#include <QJSEngine>
#include <QQmlEngine>
#include <algorithm>
#include <map>

#include "capture_adapter.h"
#include "gui_session.h"
#include "l10n.h"
#include "main_queue_pump.h"
#include "picture_provider.h"
#include "qt_presenter.h"
#include "shell/mood_view_controller.h"
#include "shell_adapter.h"
#include "theme.h"

namespace lumeo::gui {

namespace {

std::multimap<int, std::function<void(GuiRuntime&)>>& registrations() {
  static std::multimap<int, std::function<void(GuiRuntime&)>> list;
  return list;
}

GuiRuntime* gInstance = nullptr;

}  // namespace

GuiRegistration::GuiRegistration(int order, std::function<void(GuiRuntime&)> registrar) {
  registrations().emplace(order, std::move(registrar));
}

GuiRuntime::GuiRuntime(GuiSession& session, QObject* parent) : QObject(parent), session_(session) {
  gInstance = this;
  pump_ = new MainQueuePump(this);
  theme_ = new Theme(session.defaults(), this);
  presenter_ = new QtPresenter(this);
  // The presenter object stays the runtime's; the core holds it without
  // owning it.
  MoodViewController::setSharedPresenter(std::shared_ptr<Presenter>(presenter_, [](Presenter*) {}));
  TextFieldAlertPresenter::setShared(std::shared_ptr<TextFieldAlertPresenter>(presenter_, [](auto*) {}));
  addSingleton("Theme", theme_);
  addSingleton("L10n", new L10n(this));
  addSingleton("Presenter", presenter_);
  auto* shell = new ShellAdapter(*this, this);
  addSingleton("Shell", shell);
  addSingleton("Capture", new CaptureAdapter(*this, this));
  for (auto& [order, registrar] : registrations()) registrar(*this);
}

GuiRuntime::~GuiRuntime() {
  MoodViewController::setSharedPresenter(nullptr);
  TextFieldAlertPresenter::setShared(nullptr);
  if (gInstance == this) gInstance = nullptr;
}

GuiRuntime* GuiRuntime::instance() {
  return gInstance;
}

void GuiRuntime::addSingleton(const char* name, QObject* object) {
  if (!object->parent()) object->setParent(this);
  singletons_.emplace_back(QByteArray(name), object);
}

QObject* GuiRuntime::singleton(const QString& name) const {
  for (const auto& [key, object] : singletons_)
    if (QString::fromLatin1(key) == name) return object;
  return nullptr;
}

void GuiRuntime::addScreen(const QString& className, const QString& qmlFile) {
  screens_.insert(className, qmlFile);
}

QUrl GuiRuntime::screenUrl(const QString& className) const {
  auto found = screens_.constFind(className);
  if (found == screens_.constEnd()) return {};
  return QUrl(QStringLiteral("qrc:/Lumeo/") + *found);
}

void GuiRuntime::attach(QQmlEngine& engine) {
  if (!registered_) {
    registered_ = true;
    for (const auto& [name, object] : singletons_) {
      QObject* target = object;
      // QML must never delete the runtime's objects.
      QQmlEngine::setObjectOwnership(target, QQmlEngine::CppOwnership);
      // One object for every engine (the tests make one per file).
      // Registered as QObject: QML reads the members from the object itself.
      qmlRegisterSingletonType<QObject>(kCoreUri, 1, 0, name.constData(),
                                        [target](QQmlEngine*, QJSEngine*) -> QObject* { return target; });
    }
  }
  engine.addImageProvider(QLatin1String(PictureProvider::kProviderName), new PictureProvider);
  engine.addImportPath(QStringLiteral("qrc:/"));
}

}  // namespace lumeo::gui
