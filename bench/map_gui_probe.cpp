// The Map tab under load, offscreen with the software renderer, 1100 × 760:
//
//   map_gui_probe seed HOME COUNT   fills a journal with COUNT located records
//   map_gui_probe app HOME          opens lumeo-gui's Map tab on it
//   map_gui_probe peer              a bare Qt Quick map: the same tiles as
//                                   Image items in a moving Item, no pins
//
// Both take their tiles from LUMEO_TILE_URL (the bench's local server) and
// print "open-frame MS" (from the tab being chosen to its first frame),
// "open-settled MS" (every pin read and clustered; the app only), and
// "pan p50 p99 frames": the frame times while the map is dragged for four
// seconds, resting twice so that the clustering runs in between (the rests
// themselves, when nothing moves, are left out).
#include <sys/resource.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "bench_journal.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "map_viewport.h"
#include "objectgraph/managed_object_context.h"
#include "platform/linux/data_directories.h"
#include "platform/localization.h"
#include "platform/user_defaults.h"
#include "shell_adapter.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace {

void say(const QByteArray& line) {
  std::printf("%s\n", line.constData());
  std::fflush(stdout);
}

int seed(const char* home, long count) {
  using namespace lumeo;
  DataDirectories dirs = DataDirectories::underHome(home);
  if (!dirs.create()) return 1;
  auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  JournalStore store({dirs.library, dirs.documents}, defaults);
  // Records where people live: a few cities, spread around each.
  static const double cities[][2] = {
      {52.52, 13.40}, {48.21, 16.37}, {47.07, 15.44}, {48.86, 2.35}, {51.51, -0.13}};
  bench::JournalSeed seed;
  seed.count = count;
  seed.spacingSeconds = 7 * 3600.0;
  seed.decorate = [](long, MoodDescription& description, std::mt19937& random) {
    std::normal_distribution<double> spread(0.0, 1.0);
    const auto& city = cities[random() % 5];
    description.setLatitude(city[0] + 0.05 * spread(random));
    description.setLongitude(city[1] + 0.08 * spread(random));
  };
  if (!bench::seedJournal(store, seed)) return 1;
  return 0;
}

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(std::min<double>(values.size() - 1, std::floor(p * values.size())))];
}

// The peer: tiles of zoom 11 around Berlin as Image items in a grid that a
// drag moves, as a minimal QML map would be.
const char* kPeer = R"(
import QtQuick
Window {
  visible: true; width: 1100; height: 760; color: "#e9e6df"
  property alias layer: grid
  Item {
    id: grid
    objectName: "peerLayer"
    Repeater {
      model: 7 * 5
      Image {
        x: (index % 7) * 256; y: Math.floor(index / 7) * 256; width: 256; height: 256
        source: TILE_URL.replace("{z}", 11).replace("{x}", 1098 + index % 7).replace("{y}", 670 + Math.floor(index / 7))
      }
    }
  }
}
)";

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 4 && std::string(argv[1]) == "seed") return seed(argv[2], std::atol(argv[3]));
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_QUICK_BACKEND", "software", 1);
  if (argc < 2) {
    std::fprintf(stderr, "usage: map_gui_probe seed HOME COUNT | app HOME | peer\n");
    return 2;
  }
  const bool peer = std::string(argv[1]) == "peer";
  lumeo::Localization::reload();
  QGuiApplication app(argc, argv);
  std::unique_ptr<lumeo::gui::GuiSession> session;
  std::unique_ptr<lumeo::gui::GuiRuntime> runtime;
  QQmlApplicationEngine engine;
  if (peer) {
    engine.rootContext()->setContextProperty(QStringLiteral("TILE_URL"),
                                             qEnvironmentVariable("LUMEO_TILE_URL"));
    engine.loadData(kPeer);
  } else {
    if (argc < 3) return 2;
    lumeo::gui::SessionOptions options;
    options.home = argv[2];
    options.desktopServices = false;
    session = std::make_unique<lumeo::gui::GuiSession>(options);
    if (!session->launch()) return 1;
    runtime = std::make_unique<lumeo::gui::GuiRuntime>(*session);
    runtime->attach(engine);
    engine.rootContext()->setContextProperty(QStringLiteral("appScreenshotMode"), true);
    engine.rootContext()->setContextProperty(QStringLiteral("appSampleJournal"), false);
    engine.load(QUrl(QStringLiteral("qrc:/Lumeo/Main.qml")));
  }
  if (engine.rootObjects().isEmpty()) return 1;
  auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
  if (!window) return 1;
  window->resize(1100, 760);

  auto* shell = runtime ? qobject_cast<lumeo::gui::ShellAdapter*>(runtime->singleton("Shell")) : nullptr;
  QObject* mapTab = runtime ? runtime->singleton("MapTab") : nullptr;
  QElapsedTimer clock;
  std::vector<double> frames;
  bool recording = false;
  bool openFrameSaid = false;
  QObject::connect(window, &QQuickWindow::frameSwapped, &app, [&] {
    if (!openFrameSaid && clock.isValid()) {
      openFrameSaid = true;
      say("open-frame " + QByteArray::number(clock.nsecsElapsed() / 1e6, 'f', 1));
    }
    if (recording) frames.push_back(clock.nsecsElapsed() / 1e6);
  });

  // The drag: 4 s, a step each 8 ms, resting 300 ms at 1.3 s and 2.6 s.
  auto pan = [&] {
    frames.clear();
    recording = true;
    clock.restart();
    auto* timer = new QTimer(&app);
    timer->setInterval(8);
    QObject::connect(timer, &QTimer::timeout, &app, [&, timer] {
      const double t = clock.nsecsElapsed() / 1e9;
      if (t > 4.0) {
        timer->stop();
        recording = false;
        std::vector<double> gaps;
        // A rest draws nothing new: the gaps across one are not frame times.
        const auto resting = [](double from, double to) {
          return (from < 1600 && to > 1300) || (from < 2900 && to > 2600);
        };
        for (std::size_t i = 1; i < frames.size(); ++i) {
          if (!resting(frames[i - 1], frames[i])) gaps.push_back(frames[i] - frames[i - 1]);
        }
        if (qEnvironmentVariableIsSet("MAP_PROBE_GAPS")) {
          for (std::size_t i = 0; i < gaps.size(); ++i)
            if (gaps[i] > 40) say("gap " + QByteArray::number(gaps[i], 'f', 1));
        }
        say("pan " + QByteArray::number(percentile(gaps, 0.5), 'f', 1) + " " +
            QByteArray::number(percentile(gaps, 0.99), 'f', 1) + " " + QByteArray::number(gaps.size()));
        app.quit();
        return;
      }
      if ((t > 1.3 && t < 1.6) || (t > 2.6 && t < 2.9)) return;
      const double dx = 3 * std::cos(t), dy = 2 * std::sin(t * 1.7);
      if (mapTab) {
        QMetaObject::invokeMethod(mapTab->property("viewport").value<QObject*>(), "panBy", Q_ARG(double, dx),
                                  Q_ARG(double, dy));
      } else if (auto* layer = window->findChild<QQuickItem*>(QStringLiteral("peerLayer"))) {
        layer->setX(layer->x() + dx);
        layer->setY(layer->y() + dy);
      }
    });
    timer->start();
  };

  QTimer::singleShot(500, &app, [&] {
    clock.start();
    if (!shell) {
      // The peer's open is its tiles arriving.
      QTimer::singleShot(1500, &app, pan);
      return;
    }
    shell->splashFaded();
    shell->selectTab(3);
    auto* poll = new QTimer(&app);
    poll->setInterval(5);
    QObject::connect(poll, &QTimer::timeout, &app, [&, poll] {
      if (!mapTab->property("screenshotReady").toBool()) return;
      poll->stop();
      say("open-settled " + QByteArray::number(clock.nsecsElapsed() / 1e6, 'f', 1));
      QTimer::singleShot(300, &app, pan);
    });
    poll->start();
  });
  QTimer::singleShot(60000, &app, [&] { app.exit(1); });
  return app.exec();
}
