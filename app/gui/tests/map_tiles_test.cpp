// The map's tiles against a real tile server on 127.0.0.1 (map_tile_server.py,
// speaking the slippy-map scheme): only the tiles on screen are asked for,
// the disk cache serves a second start with the server gone, an expired tile
// is asked again with its ETag, a server that is down is said plainly; and
// the viewport under the clustering engine: a gesture is one region change,
// the pins' model stays consistent.
#include <sys/stat.h>

#include <QAbstractItemModelTester>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <fstream>

#include "map/map_annotation.h"
#include "map_viewport.h"
#include "tile_layer.h"
#include "tile_source.h"

using namespace lumeo;
using namespace lumeo::gui;

namespace {

// The test's tile server, started and stopped by the test.
class TileServer {
 public:
  explicit TileServer(const QString& dir) : dir_(dir) {}
  ~TileServer() { stop(); }
  bool start() {
    QFile::remove(dir_ + "/port");
    process_.start(QStringLiteral("python3"), {QStringLiteral(MAP_TILE_SERVER), "--port-file", dir_ + "/port",
                                               "--log", dir_ + "/requests.log"});
    if (!process_.waitForStarted(10000)) return false;
    for (int i = 0; i < 400 && !QFile::exists(dir_ + "/port"); ++i) QTest::qWait(25);
    QFile file(dir_ + "/port");
    if (!file.open(QIODevice::ReadOnly)) return false;
    port_ = file.readAll().toInt();
    return port_ > 0;
  }
  void stop() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished(5000);
  }
  QString urlTemplate() const { return QStringLiteral("http://127.0.0.1:%1/{z}/{x}/{y}.png").arg(port_); }
  // Every request so far: "z/x/y inm=ETAG User-Agent".
  QStringList requests() const {
    QFile file(dir_ + "/requests.log");
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
  }
  QStringList requestedPaths() const {
    QStringList paths;
    for (const QString& line : requests()) paths.append(line.section(' ', 0, 0));
    return paths;
  }

 private:
  QString dir_;
  QProcess process_;
  int port_ = 0;
};

bool waitIdle(TileSource& source, int timeoutMs = 20000) {
  QElapsedTimer timer;
  timer.start();
  while (source.loading() && timer.elapsed() < timeoutMs) QTest::qWait(20);
  return !source.loading();
}

QSet<QString> asSet(const QStringList& list) {
  return QSet<QString>(list.begin(), list.end());
}

mode_t modeOf(const std::filesystem::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return 0;
  return info.st_mode & 0777;
}

// Counts what the map tells its delegate.
class RegionCounter : public MapViewDelegate {
 public:
  void regionWillChange(MapView&, bool) override { ++will; }
  void regionDidChange(MapView&, bool) override { ++did; }
  int will = 0;
  int did = 0;
};

}  // namespace

class MapTilesTests : public QObject {
  Q_OBJECT
 private Q_SLOTS:
  void onlyVisibleTilesAreFetchedAndTheCacheServesTheNextStart() {
    QTemporaryDir dir;
    TileServer server(dir.path());
    QVERIFY(server.start());
    const std::filesystem::path cache = dir.path().toStdString() + "/cache/tiles";
    MapViewport viewport;
    viewport.setSize(600, 400);
    viewport.centerOn(52.52, 13.40, 12);
    QSet<QString> visible;
    {
      TileSource source(server.urlTemplate(), cache);
      TileLayer layer;
      layer.setSize(QSizeF(600, 400));
      layer.setViewport(&viewport);
      layer.setSource(&source);
      QVERIFY(waitIdle(source));
      visible = asSet(layer.visibleTilePaths());
      // 600 × 400 points at a whole zoom: 3 or 4 tiles across, 2 or 3 down.
      QVERIFY2(visible.size() >= 6 && visible.size() <= 12, qPrintable(QString::number(visible.size())));
      // Exactly the tiles on screen, each once: nothing ahead, nothing twice.
      QCOMPARE(server.requestedPaths().size(), visible.size());
      QCOMPARE(asSet(server.requestedPaths()), visible);
      for (const QString& line : server.requests()) QVERIFY2(line.contains(" Lumeo/"), qPrintable(line));

      // A pan asks only for the tiles that came into view.
      viewport.panBy(-300, 0);
      viewport.settle();
      QVERIFY(waitIdle(source));
      const QSet<QString> after = asSet(layer.visibleTilePaths());
      const QStringList all = server.requestedPaths();
      QCOMPARE(asSet(all), visible | after);
      QCOMPARE(all.size(), asSet(all).size());
      visible |= after;
      QVERIFY(source.problem().isEmpty());
    }

    // The cache is the user's alone.
    const std::filesystem::path serverDir = TileSource(server.urlTemplate(), cache).serverCacheDir();
    QCOMPARE(modeOf(cache), mode_t(0700));
    QCOMPARE(modeOf(serverDir), mode_t(0700));
    QCOMPARE(modeOf(serverDir / "12"), mode_t(0700));
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(serverDir)) {
      if (!entry.is_regular_file()) continue;
      ++files;
      QCOMPARE(modeOf(entry.path()), mode_t(0600));
      QVERIFY2(entry.path().extension() != ".part", entry.path().c_str());
    }
    QCOMPARE(files, 2 * static_cast<int>(visible.size()));  // the picture and what the server said of it

    // A second start with the server gone: every tile from the disk, no
    // request, no complaint.
    server.stop();
    TileSource again(server.urlTemplate(), cache);
    TileLayer layer;
    layer.setSize(QSizeF(600, 400));
    layer.setViewport(&viewport);
    layer.setSource(&again);
    QVERIFY(waitIdle(again));
    QCOMPARE(again.requestCount(), 0);
    QVERIFY(again.problem().isEmpty());
    QImage frame(600, 400, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&frame);
    layer.paint(&painter);
    QCOMPARE(layer.drawnTiles(), static_cast<int>(layer.visibleTiles().size()));
    QCOMPARE(layer.fallbackTiles(), 0);

    // One level closer, with nothing cached there: the parents stand in.
    viewport.zoomIn();
    viewport.settle();
    QVERIFY(waitIdle(again));
    layer.paint(&painter);
    QCOMPARE(layer.drawnTiles(), 0);
    QCOMPARE(layer.fallbackTiles(), static_cast<int>(layer.visibleTiles().size()));
    // ... and the server's absence is said in words.
    QVERIFY2(again.problem().contains(QStringLiteral("cannot be reached")), qPrintable(again.problem()));
    QVERIFY(again.problem().contains(QStringLiteral("works without them")));
  }

  void anExpiredTileIsAskedAgainWithItsTagAndKept() {
    QTemporaryDir dir;
    TileServer server(dir.path());
    QVERIFY(server.start());
    const std::filesystem::path cache = dir.path().toStdString() + "/cache";
    const TileKey key{5, 17, 10};
    {
      TileSource source(server.urlTemplate(), cache);
      source.want({key});
      QVERIFY(waitIdle(source));
      QVERIFY(!source.tile(key).isNull());
    }
    // The server's week has passed.
    const std::filesystem::path meta =
        TileSource(server.urlTemplate(), cache).serverCacheDir() / "5" / "17" / "10.png.meta";
    QVERIFY(std::filesystem::exists(meta));
    {
      std::ofstream out(meta, std::ios::trunc);
      out << "expires=1000\netag=\"5-17-10\"\n";
    }
    TileSource source(server.urlTemplate(), cache);
    // The old copy shows at once, while it is asked for again.
    QVERIFY(!source.tile(key).isNull());
    source.want({key});
    QVERIFY(waitIdle(source));
    const QStringList requests = server.requests();
    QCOMPARE(requests.size(), 2);
    QVERIFY2(requests.last().contains(QStringLiteral("inm=\"5-17-10\"")), qPrintable(requests.last()));
    QVERIFY(!source.tile(key).isNull());
    // 304: good for another while, no further request.
    source.want({key});
    QVERIFY(waitIdle(source));
    QCOMPARE(server.requests().size(), 2);
  }

  void tilesThatLeftTheScreenBeforeTheirTurnAreNotFetched() {
    QTemporaryDir dir;
    TileServer server(dir.path());
    QVERIFY(server.start());
    TileSource source(server.urlTemplate(), dir.path().toStdString() + "/cache");
    QList<TileKey> many;
    for (int x = 0; x < 16; ++x) many.append({6, x, 20});
    source.want(many);
    // The map moved on at once: only the two already on their way and the
    // new tile are fetched.
    source.want({{6, 40, 40}});
    QVERIFY(waitIdle(source));
    QCOMPARE(source.requestCount(), TileSource::kMaxParallel + 1);
    QCOMPARE(server.requests().size(), TileSource::kMaxParallel + 1);
  }

  void aServerThatIsDownOrWrongIsSaidPlainly() {
    QTemporaryDir dir;
    // Port 9 (discard) refuses on a machine without that service.
    TileSource source(QStringLiteral("http://127.0.0.1:9/{z}/{x}/{y}.png"), dir.path().toStdString());
    source.want({{3, 4, 2}});
    QVERIFY(waitIdle(source));
    QVERIFY(source.tile({3, 4, 2}).isNull());
    QVERIFY2(source.problem().startsWith(QStringLiteral("Map tiles cannot be loaded")),
             qPrintable(source.problem()));
    // A failed tile is not asked for again at once.
    source.want({{3, 4, 2}});
    QCOMPARE(source.requestCount(), 1);

    TileServer server(dir.path());
    QVERIFY(server.start());
    QString wrong = server.urlTemplate();
    wrong.replace(QStringLiteral("{z}/{x}/{y}.png"), QStringLiteral("tiles/{z}/{x}/{y}.png"));
    TileSource missing(wrong, dir.path().toStdString() + "/other");
    missing.want({{3, 4, 2}});
    QVERIFY(waitIdle(missing));
    QVERIFY2(missing.problem().contains(QStringLiteral("answered 404")), qPrintable(missing.problem()));
  }

  void templatesAreChecked() {
    QVERIFY(TileSource::checkTemplate(QString::fromLatin1(TileSource::kDefaultTemplate)).isEmpty());
    QVERIFY(
        TileSource::checkTemplate(QStringLiteral("https://a.example/{z}/{x}/{y}@2x.png?key=1")).isEmpty());
    QVERIFY(!TileSource::checkTemplate(QStringLiteral("ftp://a.example/{z}/{x}/{y}.png")).isEmpty());
    QVERIFY(!TileSource::checkTemplate(QStringLiteral("https://a.example/{z}/{x}.png")).isEmpty());
    QVERIFY(!TileSource::checkTemplate(QStringLiteral("https:///{z}/{x}/{y}.png")).isEmpty());
    QVERIFY(!TileSource::checkTemplate(QString()).isEmpty());
    // A bad template never replaces a good one behind the user's back.
    TileSource source(QStringLiteral("nonsense"), "/nonexistent");
    QCOMPARE(source.urlTemplate(), QString::fromLatin1(TileSource::kDefaultTemplate));
    QVERIFY(TileSource::userAgent().startsWith(QStringLiteral("Lumeo/")));
  }

  void theCacheLivesInTheUsersCacheFolder() {
    // Under --home: beside the journal.
    QCOMPARE(TileSource::cacheDirectory("/h/Library", "/h/defaults.plist"),
             std::filesystem::path("/h/cache/tiles"));
    qputenv("XDG_CACHE_HOME", "/c");
    QCOMPARE(TileSource::cacheDirectory("/d/lumeo/Library", "/e/lumeo/defaults.plist"),
             std::filesystem::path("/c/lumeo/tiles"));
    qputenv("XDG_CACHE_HOME", "relative");
    qputenv("HOME", "/u");
    QCOMPARE(TileSource::cacheDirectory("/d/lumeo/Library", "/e/lumeo/defaults.plist"),
             std::filesystem::path("/u/.cache/lumeo/tiles"));
  }

  void aGestureIsOneRegionChangeAndTheZoomIsBounded() {
    MapViewport viewport;
    viewport.setSize(800, 600);
    auto counter = std::make_shared<RegionCounter>();
    viewport.mapView()->setDelegate(counter);
    viewport.centerOn(48.2, 16.37, 10);
    QCOMPARE(counter->did, 1);
    QVERIFY(qAbs(viewport.zoom() - 10) < 1e-9);
    QVERIFY(qAbs(viewport.centerLatitude() - 48.2) < 1e-9);
    // A drag of many steps, then rest: one change for the engine.
    for (int i = 0; i < 20; ++i) viewport.panBy(5, 3);
    QCOMPARE(counter->will, 2);
    QCOMPARE(counter->did, 1);
    QTRY_COMPARE(counter->did, 2);
    // The point under the cursor stays under it while zooming.
    const QVariantMap before = viewport.coordinateAt(100, 200);
    viewport.zoomBy(2, 100, 200);
    viewport.settle();
    const QVariantMap after = viewport.coordinateAt(100, 200);
    QVERIFY(qAbs(before["latitude"].toDouble() - after["latitude"].toDouble()) < 1e-9);
    QVERIFY(qAbs(before["longitude"].toDouble() - after["longitude"].toDouble()) < 1e-9);
    QVERIFY(qAbs(viewport.zoom() - 11) < 1e-9);
    // No closer than the tiles go, no wider than the world.
    for (int i = 0; i < 30; ++i) viewport.zoomIn();
    QVERIFY(viewport.zoom() <= QtMapView::kMaxZoom + 1e-9);
    for (int i = 0; i < 40; ++i) viewport.zoomOut();
    QVERIFY(viewport.scale() * 800 <= kMapWorldWidth + 1);
    // Nonsense changes nothing.
    const double zoom = viewport.zoom();
    viewport.zoomBy(0, 1, 1);
    viewport.zoomBy(std::numeric_limits<double>::quiet_NaN(), 1, 1);
    viewport.centerOn(std::numeric_limits<double>::quiet_NaN(), 0, 3);
    QCOMPARE(viewport.zoom(), zoom);
  }

  void aFitSurvivesTheWindowLayingItselfOut() {
    MapViewport viewport;
    viewport.setSize(800, 600);
    const MapRect places = MapRectMake(140000000, 85000000, 300000, 100000);
    const auto contains = [&](const MapRect& shown) {
      return shown.minX() <= places.minX() && shown.maxX() >= places.maxX() &&
             shown.minY() <= places.minY() && shown.maxY() >= places.maxY();
    };
    viewport.mapView()->fitMapRect(places);
    QVERIFY(contains(viewport.mapView()->visibleMapRect()));
    // Narrower and taller: still every place.
    viewport.setSize(300, 700);
    QVERIFY(contains(viewport.mapView()->visibleMapRect()));
    QCOMPARE(viewport.mapView()->visibleMapRect().size.width, places.size.width);
    // Once the user moved the map, a resize keeps the scale instead.
    viewport.panBy(10, 0);
    viewport.settle();
    const double scale = viewport.scale();
    viewport.setSize(900, 700);
    QCOMPARE(viewport.scale(), scale);
  }

  void aRegionKeepsItsCentre() {
    MapViewport viewport;
    viewport.setSize(600, 400);
    const LocationCoordinate2D graz{47.0779419, 15.4213516};
    for (double span : {0.01, 0.3, 20.0}) {
      CoordinateRegion region{graz, {span, span}};
      viewport.mapView()->setRegion(viewport.mapView()->regionThatFits(region), false);
      QVERIFY2(qAbs(viewport.centerLatitude() - graz.latitude) < 1e-9, qPrintable(QString::number(span)));
      QVERIFY(qAbs(viewport.centerLongitude() - graz.longitude) < 1e-9);
    }
  }

  void thePinModelFollowsTheMap() {
    MapViewport viewport;
    QAbstractItemModelTester tester(
        viewport.pins() ? qobject_cast<QAbstractItemModel*>(viewport.pins()) : nullptr,
        QAbstractItemModelTester::FailureReportingMode::QtTest);
    // The `count` QML binds to says every change, and only changes.
    MapPinModel& model = viewport.pinModel();
    QSignalSpy counted(&model, &ListModel::countChanged);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    // A pin whose place can move, as a cluster the engine reuses does.
    struct MovingPin : MapAnnotation {
      LocationCoordinate2D at{48.2, 16.37};
      LocationCoordinate2D coordinate() const override { return at; }
      std::string title() const override { return "7"; }
    };
    auto a = std::make_shared<MovingPin>();
    auto b = std::make_shared<PointAnnotation>(LocationCoordinate2D{47.07, 15.44}, "3");
    viewport.mapView()->addAnnotations({a, b, a});
    QCOMPARE(viewport.pinCount(), 2);
    QCOMPARE(model.property("count").toInt(), 2);
    QCOMPARE(counted.count(), 2);
    model.refresh();
    QCOMPARE(changed.count(), 0);
    a->at = {48.21, 16.38};
    model.refresh();
    QCOMPARE(changed.count(), 1);
    const QModelIndex first = viewport.pinModel().index(0);
    const MapPoint point = MapPointForCoordinate({48.21, 16.38});
    QCOMPARE(first.data(MapPinModel::MapXRole).toDouble(), point.x);
    QCOMPARE(first.data(MapPinModel::TitleRole).toString(), QStringLiteral("7"));
    viewport.mapView()->removeAnnotations({a});
    QCOMPARE(viewport.pinCount(), 1);
    QCOMPARE(viewport.pinModel().annotationAt(0), MapAnnotationPtr(b));
    QCOMPARE(viewport.pinModel().annotationAt(1), MapAnnotationPtr());
    viewport.mapView()->removeAnnotations({a, b});
    QCOMPARE(viewport.pinCount(), 0);
    QCOMPARE(model.property("count").toInt(), 0);
    QCOMPARE(counted.count(), 4);
    viewport.mapView()->addAnnotations({a});
    model.clear();
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(counted.count(), 6);
  }
};

QTEST_MAIN(MapTilesTests)

#include "map_tiles_test.moc"
