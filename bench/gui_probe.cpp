// Measures the desktop application from the inside, for bench/gui.sh:
//   gui_probe app HOME   the application on the journal in HOME
//   gui_probe peer       a bare Qt Quick window with one text (the peer)
// It prints "first-frame" as soon as the first frame is on screen (the
// driver times that from the process's start), then "rss-<tab> KB" after
// each tab has been shown, and for the application "flick p50 p99 frames"
// over a four-second scroll through the whole History list. Offscreen, with
// the software renderer, as on a machine without a GPU.
#include <QtQml/qqmlextensionplugin.h>

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "gui_runtime.h"
#include "gui_session.h"
#include "platform/localization.h"
#include "shell_adapter.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

namespace {

long residentKilobytes() {
  QFile status(QStringLiteral("/proc/self/status"));
  if (!status.open(QIODevice::ReadOnly)) return -1;
  for (const QByteArray& line : status.readAll().split('\n'))
    if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').first().toLong();
  return -1;
}

void say(const QByteArray& line) {
  std::fputs(line.constData(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

QQuickItem* findItem(QQuickItem* item, const QString& name) {
  if (!item) return nullptr;
  if (item->objectName() == name) return item;
  for (QQuickItem* child : item->childItems())
    if (QQuickItem* found = findItem(child, name)) return found;
  return nullptr;
}

// Runs `step` after `ms` and a frame.
void later(int ms, std::function<void()> step) {
  QTimer::singleShot(ms, std::move(step));
}

}  // namespace

int main(int argc, char** argv) {
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_QUICK_BACKEND", "software", 1);
  if (argc < 2) {
    std::fprintf(stderr, "usage: gui_probe app HOME | gui_probe peer\n");
    return 2;
  }
  const bool peer = std::string(argv[1]) == "peer";
  lumeo::Localization::reload();
  QGuiApplication app(argc, argv);
  // The engine goes first at the end: its bindings read the adapters.
  std::unique_ptr<lumeo::gui::GuiSession> session;
  std::unique_ptr<lumeo::gui::GuiRuntime> runtime;
  QQmlApplicationEngine engine;
  if (peer) {
    engine.loadData(
        "import QtQuick\nWindow { visible: true; width: 420; height: 760; color: \"#f6f3ee\"\n"
        "  Text { anchors.centerIn: parent; text: \"How are you feeling right now?\"; font.pointSize: 14 } "
        "}");
  } else {
    if (argc < 3) return 2;
    lumeo::gui::SessionOptions options;
    options.home = argv[2];
    options.desktopServices = false;
    session = std::make_unique<lumeo::gui::GuiSession>(options);
    if (!session->launch()) {
      std::fprintf(stderr, "gui_probe: %s\n", session->launchError().c_str());
      return 1;
    }
    runtime = std::make_unique<lumeo::gui::GuiRuntime>(*session);
    runtime->attach(engine);
    // The splash's animation is left out: the first frame already shows
    // the tabs on the open journal.
    engine.rootContext()->setContextProperty(QStringLiteral("appScreenshotMode"), true);
    engine.rootContext()->setContextProperty(QStringLiteral("appSampleJournal"), false);
    engine.load(QUrl(QStringLiteral("qrc:/Lumeo/Main.qml")));
  }
  if (engine.rootObjects().isEmpty()) return 1;
  auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
  if (!window) return 1;

  auto* shell = runtime ? qobject_cast<lumeo::gui::ShellAdapter*>(runtime->singleton("Shell")) : nullptr;
  bool first = true;
  QObject::connect(window, &QQuickWindow::frameSwapped, &app, [&] {
    if (!first) return;
    first = false;
    say("first-frame");
    later(300, [&] {
      say("rss-start " + QByteArray::number(residentKilobytes()));
      if (!shell) {
        app.quit();
        return;
      }
      // Each tab in turn, then a flick through the History list.
      static const char* names[] = {"capture", "history", "summary", "map"};
      auto showTab = std::make_shared<std::function<void(int)>>();
      *showTab = [&, showTab](int tab) {
        if (tab > 3) {
          shell->selectTab(1);
          later(500, [&] {
            auto* list = findItem(window->contentItem(), QStringLiteral("historyList"));
            if (!list) {
              say("flick none");
              app.quit();
              return;
            }
            auto* frames = new std::vector<double>;
            auto* clock = new QElapsedTimer;
            clock->start();
            auto connection = std::make_shared<QMetaObject::Connection>();
            *connection = QObject::connect(window, &QQuickWindow::frameSwapped, &app, [frames, clock] {
              frames->push_back(static_cast<double>(clock->nsecsElapsed()) / 1e6);
            });
            const double end = list->property("contentHeight").toDouble() - list->height();
            auto* animation = new QPropertyAnimation(list, "contentY", &app);
            animation->setStartValue(0.0);
            animation->setEndValue(std::max(0.0, end));
            animation->setDuration(4000);
            QObject::connect(animation, &QPropertyAnimation::finished, &app, [&, frames, connection] {
              QObject::disconnect(*connection);
              std::vector<double> gaps;
              for (std::size_t i = 1; i < frames->size(); ++i)
                gaps.push_back((*frames)[i] - (*frames)[i - 1]);
              std::sort(gaps.begin(), gaps.end());
              auto at = [&](double q) {
                return gaps.empty()
                           ? 0.0
                           : gaps[std::min(gaps.size() - 1, static_cast<std::size_t>(q * gaps.size()))];
              };
              say("flick " + QByteArray::number(at(0.5), 'f', 2) + " " +
                  QByteArray::number(at(0.99), 'f', 2) + " " +
                  QByteArray::number(static_cast<qulonglong>(gaps.size() + 1)));
              app.quit();
            });
            animation->start();
          });
          return;
        }
        shell->selectTab(tab);
        later(700, [&, tab, showTab] {
          say(QByteArray("rss-") + names[tab] + " " + QByteArray::number(residentKilobytes()));
          (*showTab)(tab + 1);
        });
      };
      (*showTab)(0);
    });
  });
  QTimer::singleShot(120000, &app, [&] { app.exit(1); });
  return app.exec();
}
