// The Quick Test binary of the Map tab, its settings screen and the
// editor's place chooser: every tst_*.qml in map_quick/ drives the real QML
// on a real sample journal (offscreen, software renderer). `MapFixture`
// runs the real command line on the same journal, so a test can check what
// the GUI wrote the way a user would (`lumeo show --json`).
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QQmlEngine>
#include <QTemporaryDir>
#include <QThread>
#include <memory>

#include "capture/location_helper.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "map/nominatim_place_search.h"
#include "map/position_location_service.h"
#include "platform/linux/geoclue_position_source.h"
#include "platform/user_defaults.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

namespace {

class MapFixture : public QObject {
  Q_OBJECT
 public:
  explicit MapFixture(lumeo::gui::GuiSession& session) : session_(session) {}

  // `lumeo --home HOME ARGS... --json` on the test's journal: its answer as
  // JSON, or {"error": why} when it failed.
  Q_INVOKABLE QVariant lumeo(const QStringList& args) const {
    const QString home = QString::fromStdString(session_.directories().library.parent_path().string());
    QProcess process;
    process.start(QStringLiteral(LUMEO_CLI), QStringList{"--home", home} + args + QStringList{"--json"});
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
      return QVariantMap{{"error", QString::fromUtf8(process.readAllStandardError())}};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).toVariant();
  }

  ~MapFixture() override {
    if (places_.state() != QProcess::NotRunning) {
      places_.kill();
      places_.waitForFinished(5000);
    }
  }

  // The place chooser's server: "" a closed local port, "recorded" a local
  // server answering Nominatim with the recorded answers of testdata/map/.
  // Tests never ask the public server.
  Q_INVOKABLE bool usePlaceServer(const QString& which) {
    QString endpoint = QStringLiteral("http://127.0.0.1:9");
    if (which == QLatin1String("recorded")) {
      if (places_.state() == QProcess::NotRunning) {
        const QString portFile = dir_.path() + "/port";
        places_.start(QStringLiteral("python3"),
                      {QStringLiteral(MAP_TILE_SERVER), "--port-file", portFile, "--log",
                       dir_.path() + "/places.log", "--places", QStringLiteral(MAP_PLACES_DIR)});
        if (!places_.waitForStarted(10000)) return false;
        for (int i = 0; i < 400 && !QFile::exists(portFile); ++i) QThread::msleep(25);
        QFile file(portFile);
        if (!file.open(QIODevice::ReadOnly)) return false;
        placesPort_ = file.readAll().toInt();
      }
      endpoint = QStringLiteral("http://127.0.0.1:%1").arg(placesPort_);
    }
    return !session_.defaults()->setString(lumeo::kPlaceSearchEndpointKey, endpoint.toStdString());
  }
  // What the local place server was asked: one line per request.
  Q_INVOKABLE QStringList placeRequests() const {
    QFile file(dir_.path() + "/places.log");
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
  }

  // "fix" or "deny" under map_geoclue_test.sh, "" otherwise.
  Q_INVOKABLE QString geoClueMode() const { return qEnvironmentVariable("LUMEO_TEST_GEOCLUE"); }

  Q_INVOKABLE QString artefactDir() const {
    const QString dir = qEnvironmentVariable("LUMEO_MAP_ARTEFACTS");
    if (!dir.isEmpty()) QDir().mkpath(dir);
    return dir;
  }

 private:
  lumeo::gui::GuiSession& session_;
  QTemporaryDir dir_;
  QProcess places_;
  int placesPort_ = 0;
};

}  // namespace

class Setup : public QObject {
  Q_OBJECT
 public Q_SLOTS:
  void applicationAvailable() {
    fixture_ = std::make_unique<lumeo::gui::testing::GuiFixture>();
    // Run by map_geoclue_test.sh: GeoClue on the private bus it names.
    if (!qEnvironmentVariableIsEmpty("LUMEO_TEST_GEOCLUE")) {
      lumeo::LocationHelper::sharedInstance().setLocationService(
          std::make_shared<lumeo::PositionLocationService>(
              std::make_shared<lumeo::GeoCluePositionSource>("org.lumeo.Lumeo")));
    }
    auto* map = new MapFixture(fixture_->session());
    fixture_->runtime().addSingleton("MapFixture", map);
    // Never the public place server, whatever a test forgets.
    map->usePlaceServer(QString());
  }
  void qmlEngineAvailable(QQmlEngine* engine) { fixture_->attach(*engine); }
  void cleanupTestCase() { fixture_.reset(); }

 private:
  std::unique_ptr<lumeo::gui::testing::GuiFixture> fixture_;
};

QUICK_TEST_MAIN_WITH_SETUP(gui_map_quick, Setup)

#include "gui_map_quick_tests.moc"
