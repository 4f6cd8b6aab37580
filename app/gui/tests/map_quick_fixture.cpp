// What the Quick Tests of the Map tab, its settings screen and the
// editor's place chooser (map_quick/, and map_geoclue/ under a fake
// GeoClue) add to `Fixture`: `MapFixture` serves recorded Nominatim answers
// on 127.0.0.1 and says what it was asked; under map_geoclue_test.sh the
// own position comes from GeoClue on the private bus it names.
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include "capture/location_helper.h"
#include "gui_session.h"
#include "gui_test_support.h"
#include "map/nominatim_place_search.h"
#include "map/position_location_service.h"
#include "platform/linux/geoclue_position_source.h"
#include "platform/user_defaults.h"

namespace {

class MapFixture : public QObject {
  Q_OBJECT
 public:
  explicit MapFixture(lumeo::gui::GuiSession& session) : session_(session) {
    // Run by map_geoclue_test.sh: GeoClue on the private bus it names.
    if (!qEnvironmentVariableIsEmpty("LUMEO_TEST_GEOCLUE")) {
      lumeo::LocationHelper::sharedInstance().setLocationService(
          std::make_shared<lumeo::PositionLocationService>(
              std::make_shared<lumeo::GeoCluePositionSource>("org.lumeo.Lumeo")));
    }
    // Never the public place server, whatever a test forgets.
    usePlaceServer(QString());
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

 private:
  lumeo::gui::GuiSession& session_;
  QTemporaryDir dir_;
  QProcess places_;
  int placesPort_ = 0;
};

const lumeo::gui::testing::FixtureSingleton kMapFixture("MapFixture",
                                                        [](lumeo::gui::testing::GuiFixture& fixture) {
                                                          return new MapFixture(fixture.session());
                                                        });

}  // namespace

#include "map_quick_fixture.moc"
