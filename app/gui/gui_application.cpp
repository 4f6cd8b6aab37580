#include "gui_application.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFont>
#include <QGuiApplication>
#include <QIcon>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "capture_adapter.h"
#include "desktop_activation.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "lock/mood_passcode_storage.h"
#include "lock_reminder_screenshots.h"
#include "platform/clock.h"
#include "platform/localization.h"
#include "platform/secret_store.h"
#include "platform/user_defaults.h"
#include "settings_adapter.h"
#include "shell_adapter.h"
#include "store/settings_keys.h"
#include "theme.h"

namespace lumeo::gui {

namespace {

// SIGTERM and SIGINT end the event loop like closing the window, so the
// journal is saved and an open edit is kept: the handler only writes to a
// socket, which the event loop watches.
int gSignalSocket[2] = {-1, -1};

void onTerminationSignal(int) {
  char byte = 1;
  (void)!::write(gSignalSocket[0], &byte, 1);
}

void quitOnTerminationSignals(QCoreApplication& app) {
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, gSignalSocket) != 0) return;
  auto* notifier = new QSocketNotifier(gSignalSocket[1], QSocketNotifier::Read, &app);
  QObject::connect(notifier, &QSocketNotifier::activated, &app, [&app] {
    char byte;
    (void)!::read(gSignalSocket[1], &byte, 1);
    app.quit();
  });
  struct sigaction action {};
  action.sa_handler = onTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

constexpr int kUsageError = 2;

bool hasArgument(int argc, char** argv, const char* name) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], name) == 0) return true;
  return false;
}

std::optional<QSize> parseSize(const QString& text) {
  const QStringList parts = text.toLower().split(QLatin1Char('x'));
  if (parts.size() != 2) return std::nullopt;
  bool okW = false, okH = false;
  const int w = parts[0].toInt(&okW), h = parts[1].toInt(&okH);
  if (!okW || !okH || w < 320 || h < 320 || w > 4000 || h > 4000) return std::nullopt;
  return QSize(w, h);
}

// The moment the screenshots' sample journal ends: fixed, so that the
// pictures compare against the checked-in references on any day.
Date screenshotNow() {
  return Date::fromTimeIntervalSince1970(1795132800.0 + 18 * 3600);
}  // 2026-11-20 18:00 UTC

// The settings screens that --screen opens, by the key of their menu row.
const char* settingsRowOfScreen(const QString& screen) {
  if (screen == QLatin1String("levels")) return "kMoodsRow";
  if (screen == QLatin1String("template")) return "kTemplateRow";
  if (screen == QLatin1String("export")) return "kExportRow";
  if (screen == QLatin1String("backup")) return "kBackupRow";
  return nullptr;
}

bool openSettingsRow(GuiRuntime& runtime, const char* key) {
  auto* settings = qobject_cast<SettingsAdapter*>(runtime.singleton(QStringLiteral("Settings")));
  if (!settings) return false;
  const QVariantList rows = settings->rows();
  for (int i = 0; i < rows.size(); ++i) {
    if (rows[i].toMap().value(QStringLiteral("key")).toString() != QLatin1String(key)) continue;
    settings->selectRow(i);
    return true;
  }
  return false;
}

// The item of this objectName in the visual tree (delegates of repeaters
// and loaders have no QObject parent, so findChild does not see them).
QQuickItem* findItem(QQuickItem* item, const QString& name) {
  if (!item) return nullptr;
  if (item->objectName() == name) return item;
  for (QQuickItem* child : item->childItems())
    if (QQuickItem* found = findItem(child, name)) return found;
  return nullptr;
}

int fail(const QString& message, int status) {
  std::fprintf(stderr, "lumeo-gui: %s\n", message.toLocal8Bit().constData());
  return status;
}

}  // namespace

int runGuiApplication(int argc, char** argv) {
  const bool screenshot = hasArgument(argc, argv, "--screenshot");
  if (screenshot) {
    // The same pixels on every machine: no GPU, no display, one font, one
    // language, one time zone.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("QT_QUICK_BACKEND", "software", 1);
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("LANGUAGE", "en", 1);
  }
  Localization::reload();
  QGuiApplication app(argc, argv);
  QGuiApplication::setApplicationName(QStringLiteral("lumeo"));
  QGuiApplication::setApplicationDisplayName(QStringLiteral("Lumeo"));
  QGuiApplication::setDesktopFileName(QStringLiteral("org.lumeo.Lumeo"));
  QGuiApplication::setApplicationVersion(QStringLiteral(LUMEO_VERSION));
  QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/Lumeo/icons/lumeo.svg")));

  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Lumeo, a personal mood journal"));
  parser.addHelpOption();
  parser.addVersionOption();
  QCommandLineOption homeOption(
      QStringLiteral("home"), QStringLiteral("Keep all of Lumeo's files under DIR."), QStringLiteral("DIR"));
  QCommandLineOption captureOption(QStringLiteral("capture"), QStringLiteral("Open on the Capture tab."));
  QCommandLineOption sampleOption(QStringLiteral("sample-journal"),
                                  QStringLiteral("Open a throwaway journal of sample records."));
  QCommandLineOption shotOption(
      QStringLiteral("screenshot"),
      QStringLiteral("Render a tab of a fixed sample journal to the PNG FILE and quit."),
      QStringLiteral("FILE"));
  QCommandLineOption tabOption(QStringLiteral("tab"), QStringLiteral("The tab to render: 0 to 3."),
                               QStringLiteral("N"), QStringLiteral("0"));
  QCommandLineOption sizeOption(QStringLiteral("size"), QStringLiteral("The window size, e.g. 420x760."),
                                QStringLiteral("WxH"), QStringLiteral("420x760"));
  QCommandLineOption themeOption(QStringLiteral("theme"), QStringLiteral("light or dark."),
                                 QStringLiteral("THEME"));
  QCommandLineOption screenOption(
      QStringLiteral("screen"),
      QStringLiteral("A screen to open before rendering: settings, editor, passcode, welcome, levels, "
                     "template, export, backup, lock-settings, reminders or reminder-editor."),
      QStringLiteral("NAME"));
  parser.addOptions({homeOption, captureOption, sampleOption, shotOption, tabOption, sizeOption, themeOption,
                     screenOption});
  parser.process(app);

  GuiOptions options;
  if (parser.isSet(homeOption)) options.home = parser.value(homeOption);
  options.capture = parser.isSet(captureOption);
  options.sampleJournal = parser.isSet(sampleOption);
  if (parser.isSet(shotOption)) options.screenshot = parser.value(shotOption);
  bool okTab = false;
  options.tab = parser.value(tabOption).toInt(&okTab);
  if (!okTab || options.tab < 0 || options.tab > 3)
    return fail(QStringLiteral("--tab takes 0, 1, 2 or 3"), kUsageError);
  auto size = parseSize(parser.value(sizeOption));
  if (!size) return fail(QStringLiteral("--size takes WIDTHxHEIGHT, each from 320 to 4000"), kUsageError);
  options.size = *size;
  options.theme = parser.value(themeOption);
  if (!options.theme.isEmpty() && options.theme != QLatin1String("light") &&
      options.theme != QLatin1String("dark"))
    return fail(QStringLiteral("--theme takes light or dark"), kUsageError);
  options.screen = parser.value(screenOption);
  if (!options.screen.isEmpty() && options.screen != QLatin1String("settings") &&
      options.screen != QLatin1String("editor") && options.screen != QLatin1String("passcode") &&
      options.screen != QLatin1String("welcome") && !settingsRowOfScreen(options.screen) &&
      !isLockReminderScreenshot(options.screen))
    return fail(
        QStringLiteral("--screen takes settings, editor, passcode, welcome, levels, template, export, "
                       "backup, lock-settings, reminders or reminder-editor"),
        kUsageError);
  if (!options.screenshot && (parser.isSet(tabOption) || parser.isSet(screenOption)))
    return fail(QStringLiteral("--tab and --screen go with --screenshot"), kUsageError);

  // A throwaway journal lives in a temporary folder that goes with the run.
  std::optional<QTemporaryDir> scratch;
  std::optional<ScopedSimulatedClock> fixedClock;
  SessionOptions sessionOptions;
  if (options.screenshot || options.sampleJournal) {
    scratch.emplace(QDir::tempPath() + QStringLiteral("/lumeo-sample-XXXXXX"));
    if (!scratch->isValid()) return fail(QStringLiteral("cannot make a folder for the sample journal"), 1);
    sessionOptions.home = scratch->path().toStdString();
    sessionOptions.sampleJournal = true;
  } else if (options.home) {
    sessionOptions.home = options.home->toStdString();
  }
  if (options.screenshot) {
    // The sample journal's lock lives in memory, never in the desktop's keyring.
    sessionOptions.desktopServices = false;
    SecretStore::setShared(std::make_shared<InMemorySecretStore>());
    QGuiApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    fixedClock.emplace(screenshotNow());
  }

  // One window per journal: a second start on the desktop brings the first
  // window forward (or to the capture tab) and ends.
  DesktopActivation activation;
  const bool ownsDesktopName = !options.screenshot && !options.sampleJournal && !options.home;
  if (ownsDesktopName && activation.forwardToRunningInstance(options.capture)) return 0;

  GuiSession session(sessionOptions);
  const bool launched = session.launch();
  // The welcome of a first start, on the sample journal (which skips it).
  if (launched && options.screen == QLatin1String("welcome"))
    (void)session.defaults()->setBool(kTutorialCompleted, false);
  GuiRuntime runtime(session);
  if (!options.theme.isEmpty()) runtime.theme().setMode(options.theme);

  QQmlApplicationEngine engine;
  runtime.attach(engine);
  engine.rootContext()->setContextProperty(QStringLiteral("appScreenshotMode"), bool(options.screenshot));
  engine.rootContext()->setContextProperty(QStringLiteral("appSampleJournal"), options.sampleJournal);
  engine.load(QUrl(QStringLiteral("qrc:/Lumeo/Main.qml")));
  if (engine.rootObjects().isEmpty()) return fail(QStringLiteral("the window could not be made"), 1);
  auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
  if (!window) return fail(QStringLiteral("the window could not be made"), 1);
  if (!launched) std::fprintf(stderr, "lumeo-gui: %s\n", session.launchError().c_str());

  if (!options.screenshot) {
    quitOnTerminationSignals(app);
    auto* shell = qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
    auto bringForward = [window] {
      window->show();
      window->raise();
      window->requestActivate();
    };
    QObject::connect(&activation, &DesktopActivation::activated, window, bringForward);
    QObject::connect(&activation, &DesktopActivation::newRecordRequested, window,
                     [window, shell, bringForward] {
                       bringForward();
                       shell->showCapture();
                     });
    if (ownsDesktopName) activation.registerService();
    if (options.capture) shell->showCapture();
    return app.exec();
  }

  // Screenshot: no splash animation, the tab chosen, a few frames to settle.
  window->resize(options.size);
  auto* shell = qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
  shell->splashFaded();
  if (options.tab != 0 && !shell->selectTab(options.tab))
    return fail(QStringLiteral("the tab could not be opened"), 1);
  if (options.screen == QLatin1String("settings")) shell->showSettings();
  if (auto row = settingsRowOfScreen(options.screen)) {
    // A settings screen, opened through its row of the menu.
    shell->showSettings();
    if (!openSettingsRow(runtime, row))
      return fail(QStringLiteral("the settings screen could not be opened"), 1);
  }
  if (options.screen == QLatin1String("passcode")) {
    // The entry screen as the tab gate shows it, on a journal with a code.
    if (auto error = MoodPasscodeStorage::setPassCode("1234"))
      return fail(QStringLiteral("the sample passcode could not be set"), 1);
    if (shell->selectTab(1)) return fail(QStringLiteral("the passcode screen did not open"), 1);
  }
  if (isLockReminderScreenshot(options.screen) && !openLockReminderScreenshot(runtime, options.screen))
    return fail(QStringLiteral("the screen could not be opened"), 1);
  if (options.screen == QLatin1String("editor")) {
    auto* capture = qobject_cast<CaptureAdapter*>(runtime.singleton(QStringLiteral("Capture")));
    if (!capture || !capture->chooseLevel(7))
      return fail(QStringLiteral("the editor could not be opened"), 1);
  }
  if (options.screen == QLatin1String("template")) {
    // A template being written, with the offers for the tag being typed:
    // typed into the text area once it is there.
    QTimer::singleShot(150, &app, [window] {
      if (QQuickItem* area = findItem(window->contentItem(), QStringLiteral("templateText"))) {
        // The last letter is typed at the caret, as a key would.
        const QString text = QStringLiteral("Slept #sleep:7h\nMorning #walk, feeling #");
        area->setProperty("text", text);
        area->setProperty("cursorPosition", text.size());
        QMetaObject::invokeMethod(area, "insert", Q_ARG(int, static_cast<int>(text.size())),
                                  Q_ARG(QString, QStringLiteral("h")));
      }
    });
  }
  int status = 0;
  const auto grab = [&] {
    QImage picture = window->grabWindow();
    if (picture.isNull() || !picture.save(*options.screenshot, "PNG")) {
      fail(QStringLiteral("cannot write ") + *options.screenshot, 1);
      status = 1;
    }
    app.quit();
  };
  // A tab that fills in over time (the map's pins and tiles) says when it is
  // complete through "screenshotReady" on its singleton; at most 15 s.
  QObject* map = options.tab == 3 ? runtime.singleton(QStringLiteral("MapTab")) : nullptr;
  QElapsedTimer waited;
  waited.start();
  QTimer poll;
  QObject::connect(&poll, &QTimer::timeout, &app, [&] {
    if (!map || map->property("screenshotReady").toBool() || waited.elapsed() > 15000) {
      poll.stop();
      QTimer::singleShot(map ? 150 : 0, &app, grab);
    }
  });
  QTimer::singleShot(400, &app, [&] { poll.start(50); });
  app.exec();
  return status;
}

}  // namespace lumeo::gui
