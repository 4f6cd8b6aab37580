// Map tiles: raster tiles of the slippy-map scheme ({z}/{x}/{y}, 256 pixels,
// Web-Mercator) from a tile server, OpenStreetMap's by default, kept in a
// private disk cache. It follows the public tile servers' usage rules:
//
// - a User-Agent that names Lumeo, at most two requests at once;
// - only the tiles the map shows are asked for: a tile that has left the
//   screen before its turn is dropped from the queue, nothing is fetched
//   ahead;
// - answers are cached on disk for as long as the server's Cache-Control or
//   Expires allows, within a day and thirty days (a week when it says
//   nothing); an expired tile is still shown while it is asked for again
//   with If-None-Match / If-Modified-Since, and stays when the server is
//   down.
//
// The server comes from LUMEO_TILE_URL, else the settings key
// "LumeoMapTileURL", else OpenStreetMap's.
#pragma once

#include <QCache>
#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QString>
#include <deque>
#include <filesystem>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

namespace lumeo::gui {

struct TileKey {
  int z = 0;
  int x = 0;
  int y = 0;
  bool operator==(const TileKey& other) const { return z == other.z && x == other.x && y == other.y; }
  bool valid() const { return z >= 0 && z <= 22 && x >= 0 && y >= 0 && x < (1 << z) && y < (1 << z); }
  TileKey parent() const { return {z - 1, x / 2, y / 2}; }
  QString path() const;
};

inline size_t qHash(const TileKey& key, size_t seed = 0) {
  return ::qHash(
      (static_cast<quint64>(key.z) << 48) ^ (static_cast<quint64>(key.x) << 24) ^ static_cast<quint64>(key.y),
      seed);
}

class TileSource : public QObject {
  Q_OBJECT
  // The server's URL template.
  Q_PROPERTY(QString urlTemplate READ urlTemplate NOTIFY urlTemplateChanged)
  // Why tiles are missing, in the user's words; "" when tiles load.
  Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)
  Q_PROPERTY(QString attribution READ attribution CONSTANT)

 public:
  static constexpr const char* kDefaultTemplate = "https://tile.openstreetmap.org/{z}/{x}/{y}.png";
  static constexpr const char* kTemplateKey = "LumeoMapTileURL";
  static constexpr int kMaxParallel = 2;

  // `cacheDir` is the folder of all tile caches (made private on first use);
  // each server gets its own folder in it.
  TileSource(QString urlTemplate, std::filesystem::path cacheDir, QObject* parent = nullptr);
  ~TileSource() override;

  // "" when the template is usable, else why not.
  static QString checkTemplate(const QString& urlTemplate);
  // Where the tiles of the journal at these folders are cached:
  // $XDG_CACHE_HOME/lumeo/tiles, or DIR/cache/tiles under --home/LUMEO_HOME.
  static std::filesystem::path cacheDirectory(const std::filesystem::path& library,
                                              const std::filesystem::path& defaultsFile);
  static QString userAgent();

  QString urlTemplate() const { return template_; }
  void setUrlTemplate(const QString& urlTemplate);
  QString problem() const { return problem_; }
  QString attribution() const;

  // The tile if it is at hand (memory, or the disk cache); a null image
  // otherwise. Never asks the server.
  QImage tile(const TileKey& key);
  // The tiles the map shows now, most wanted first: those missing or
  // expired are queued, and queued ones no longer wanted are dropped.
  void want(const QList<TileKey>& keys);

  // Tiles queued or on their way.
  Q_INVOKABLE bool loading() const { return !queue_.empty() || !running_.isEmpty(); }

  // For tests and the bench: requests sent, and the tiles asked for.
  int requestCount() const { return requestCount_; }
  QStringList requestedPaths() const { return requested_; }
  std::filesystem::path serverCacheDir() const { return serverDir_; }

 Q_SIGNALS:
  void tileReady();
  void problemChanged();
  void urlTemplateChanged();

 private:
  struct Meta {
    QDateTime expires;
    QByteArray etag;
    QByteArray lastModified;
  };
  std::filesystem::path fileFor(const TileKey& key) const;
  bool loadFromDisk(const TileKey& key, Meta* meta);
  void pump();
  void start(const TileKey& key);
  void finished(QNetworkReply* reply, const TileKey& key);
  void store(const TileKey& key, const QByteArray& bytes, const Meta& meta);
  void writeMeta(const TileKey& key, const Meta& meta);
  Meta metaFromReply(QNetworkReply* reply) const;
  void setProblem(const QString& problem);

  QString template_;
  std::filesystem::path cacheRoot_;
  std::filesystem::path serverDir_;
  QNetworkAccessManager* network_;
  QCache<TileKey, QImage> memory_;
  QHash<TileKey, QDateTime> expires_;  // of the tiles in memory
  QSet<TileKey> onDiskChecked_;        // looked for on disk already (found or not)
  QSet<TileKey> onDisk_;               // found there
  std::deque<TileKey> queue_;
  QHash<TileKey, Meta> revalidate_;  // queued or running tiles we hold an old copy of
  QSet<TileKey> running_;
  QHash<TileKey, QDateTime> failedUntil_;
  QString problem_;
  int requestCount_ = 0;
  QStringList requested_;
};

}  // namespace lumeo::gui
