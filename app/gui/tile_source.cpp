#include "tile_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QUrl>
#include <algorithm>
#include <cerrno>
#include <fstream>

namespace lumeo::gui {

namespace {

constexpr qint64 kMinimumLifetime = 24 * 3600;       // a day
constexpr qint64 kMaximumLifetime = 30 * 24 * 3600;  // thirty days
constexpr qint64 kDefaultLifetime = 7 * 24 * 3600;   // a week, when the server says nothing
constexpr int kRetryFailedAfterSeconds = 30;
constexpr int kTransferTimeoutMs = 20000;
// Decoded tiles kept in memory, in kilobytes (about 250 tiles).
constexpr int kMemoryKilobytes = 64 * 1024;

// Makes `dir` and its missing parents below `root` 0700.
bool makePrivateDirectory(const std::filesystem::path& dir) {
  std::error_code ec;
  if (std::filesystem::is_directory(dir, ec)) return true;
  if (dir.has_parent_path() && dir.parent_path() != dir && !makePrivateDirectory(dir.parent_path()))
    return false;
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
  return true;
}

// Writes a file whole or not at all, readable by the user alone.
bool writePrivateFile(const std::filesystem::path& path, const QByteArray& bytes) {
  std::filesystem::path temporary = path;
  temporary += ".part";
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  qsizetype written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      ::unlink(temporary.c_str());
      return false;
    }
    written += n;
  }
  ::fchmod(fd, 0600);
  if (::close(fd) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

QByteArray readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return QByteArray::fromStdString(bytes);
}

QString hostOf(const QString& urlTemplate) {
  return QUrl(QString(urlTemplate).replace('{', 'x').replace('}', 'x')).host();
}

}  // namespace

QString TileKey::path() const {
  return QStringLiteral("%1/%2/%3").arg(z).arg(x).arg(y);
}

TileSource::TileSource(QString urlTemplate, std::filesystem::path cacheDir, QObject* parent)
    : QObject(parent), cacheRoot_(std::move(cacheDir)), network_(new QNetworkAccessManager(this)) {
  memory_.setMaxCost(kMemoryKilobytes);
  // Tiles are cached by us, per the server's headers; Qt keeps no second cache.
  network_->setCache(nullptr);
  setUrlTemplate(urlTemplate);
}

TileSource::~TileSource() = default;

QString TileSource::checkTemplate(const QString& urlTemplate) {
  const QString t = urlTemplate.trimmed();
  if (!t.startsWith(QLatin1String("http://")) && !t.startsWith(QLatin1String("https://")))
    return QStringLiteral("The tile server's address starts with http:// or https://.");
  if (!t.contains(QLatin1String("{z}")) || !t.contains(QLatin1String("{x}")) ||
      !t.contains(QLatin1String("{y}")))
    return QStringLiteral("The tile server's address must hold {z}, {x} and {y}.");
  if (hostOf(t).isEmpty()) return QStringLiteral("The tile server's address names no server.");
  return {};
}

std::filesystem::path TileSource::cacheDirectory(const std::filesystem::path& library,
                                                 const std::filesystem::path& defaultsFile) {
  // Under --home or LUMEO_HOME the settings file sits beside the library.
  if (defaultsFile.parent_path() == library.parent_path()) return library.parent_path() / "cache" / "tiles";
  const QByteArray xdg = qgetenv("XDG_CACHE_HOME");
  if (!xdg.isEmpty() && xdg.startsWith('/'))
    return std::filesystem::path(xdg.toStdString()) / "lumeo" / "tiles";
  const QByteArray home = qgetenv("HOME");
  return std::filesystem::path(home.isEmpty() ? "/tmp" : home.toStdString()) / ".cache" / "lumeo" / "tiles";
}

QString TileSource::userAgent() {
  return QStringLiteral("Lumeo/%1 (personal mood journal; map tiles)").arg(QStringLiteral(LUMEO_VERSION));
}

QString TileSource::attribution() const {
  return QStringLiteral("© OpenStreetMap contributors");
}

void TileSource::setUrlTemplate(const QString& urlTemplate) {
  const QString t = checkTemplate(urlTemplate).isEmpty() ? urlTemplate.trimmed() : QString(kDefaultTemplate);
  if (t == template_) return;
  template_ = t;
  const QByteArray digest = QCryptographicHash::hash(t.toUtf8(), QCryptographicHash::Sha1).toHex().left(12);
  serverDir_ = cacheRoot_ / (hostOf(t).toStdString() + "-" + digest.toStdString());
  memory_.clear();
  expires_.clear();
  onDiskChecked_.clear();
  onDisk_.clear();
  queue_.clear();
  revalidate_.clear();
  failedUntil_.clear();
  setProblem({});
  Q_EMIT urlTemplateChanged();
  Q_EMIT tileReady();
}

std::filesystem::path TileSource::fileFor(const TileKey& key) const {
  return serverDir_ / std::to_string(key.z) / std::to_string(key.x) / (std::to_string(key.y) + ".png");
}

bool TileSource::loadFromDisk(const TileKey& key, Meta* meta) {
  const std::filesystem::path file = fileFor(key);
  const QByteArray bytes = readFile(file);
  if (bytes.isEmpty()) return false;
  QImage image;
  if (!image.loadFromData(bytes)) return false;
  std::filesystem::path metaFile = file;
  metaFile += ".meta";
  Meta read;
  for (const QByteArray& line : readFile(metaFile).split('\n')) {
    const qsizetype eq = line.indexOf('=');
    if (eq < 0) continue;
    const QByteArray name = line.left(eq), value = line.mid(eq + 1);
    if (name == "expires") read.expires = QDateTime::fromSecsSinceEpoch(value.toLongLong(), Qt::UTC);
    if (name == "etag") read.etag = value;
    if (name == "last-modified") read.lastModified = value;
  }
  if (meta) *meta = read;
  memory_.insert(key, new QImage(image.convertToFormat(QImage::Format_ARGB32_Premultiplied)),
                 std::max<qsizetype>(1, image.sizeInBytes() / 1024));
  expires_.insert(key, read.expires);
  return true;
}

QImage TileSource::tile(const TileKey& key) {
  if (!key.valid()) return {};
  if (QImage* image = memory_.object(key)) return *image;
  // Looked for once; read again only what is known to be there (a tile
  // dropped from memory since).
  if (onDiskChecked_.contains(key) && !onDisk_.contains(key)) return {};
  onDiskChecked_.insert(key);
  if (!loadFromDisk(key, nullptr)) return {};
  onDisk_.insert(key);
  return *memory_.object(key);
}

void TileSource::want(const QList<TileKey>& keys) {
  const QDateTime now = QDateTime::currentDateTimeUtc();
  QSet<TileKey> wanted(keys.begin(), keys.end());
  // What left the screen before its turn is not fetched.
  std::erase_if(queue_, [&](const TileKey& key) {
    if (wanted.contains(key)) return false;
    revalidate_.remove(key);
    return true;
  });
  for (const TileKey& key : keys) {
    if (!key.valid() || running_.contains(key)) continue;
    if (std::find(queue_.begin(), queue_.end(), key) != queue_.end()) continue;
    if (auto failed = failedUntil_.constFind(key); failed != failedUntil_.cend() && *failed > now) continue;
    Meta meta;
    bool have = memory_.contains(key);
    if (have) {
      const QDateTime expires = expires_.value(key);
      if (expires.isValid() && expires > now) continue;
      // An expired copy: ask again, with what we know of it.
      loadFromDisk(key, &meta);
    } else if (loadFromDisk(key, &meta)) {
      onDiskChecked_.insert(key);
      onDisk_.insert(key);
      Q_EMIT tileReady();
      if (meta.expires.isValid() && meta.expires > now) continue;
      have = true;
    }
    if (have) revalidate_.insert(key, meta);
    queue_.push_back(key);
  }
  pump();
}

void TileSource::pump() {
  while (running_.size() < kMaxParallel && !queue_.empty()) {
    const TileKey key = queue_.front();
    queue_.pop_front();
    start(key);
  }
}

void TileSource::start(const TileKey& key) {
  QString url = template_;
  url.replace(QLatin1String("{z}"), QString::number(key.z))
      .replace(QLatin1String("{x}"), QString::number(key.x))
      .replace(QLatin1String("{y}"), QString::number(key.y));
  QNetworkRequest request{QUrl(url)};
  request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
  request.setTransferTimeout(kTransferTimeoutMs);
  request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
  if (auto old = revalidate_.constFind(key); old != revalidate_.cend()) {
    if (!old->etag.isEmpty()) request.setRawHeader("If-None-Match", old->etag);
    if (!old->lastModified.isEmpty()) request.setRawHeader("If-Modified-Since", old->lastModified);
  }
  running_.insert(key);
  ++requestCount_;
  requested_.append(key.path());
  QNetworkReply* reply = network_->get(request);
  connect(reply, &QNetworkReply::finished, this, [this, reply, key] { finished(reply, key); });
}

TileSource::Meta TileSource::metaFromReply(QNetworkReply* reply) const {
  Meta meta;
  const QDateTime now = QDateTime::currentDateTimeUtc();
  qint64 lifetime = -1;
  const QByteArray control = reply->rawHeader("Cache-Control").toLower();
  static const QRegularExpression maxAge(QStringLiteral("max-age\\s*=\\s*(\\d+)"));
  const auto match = maxAge.match(QString::fromLatin1(control));
  if (match.hasMatch()) {
    lifetime = match.captured(1).toLongLong();
  } else if (control.contains("no-cache") || control.contains("no-store")) {
    lifetime = 0;
  } else if (reply->hasRawHeader("Expires")) {
    const QDateTime expires =
        QDateTime::fromString(QString::fromLatin1(reply->rawHeader("Expires")), Qt::RFC2822Date);
    if (expires.isValid()) lifetime = now.secsTo(expires);
  }
  if (lifetime < 0) lifetime = kDefaultLifetime;
  meta.expires = now.addSecs(std::clamp(lifetime, kMinimumLifetime, kMaximumLifetime));
  meta.etag = reply->rawHeader("ETag");
  meta.lastModified = reply->rawHeader("Last-Modified");
  return meta;
}

void TileSource::finished(QNetworkReply* reply, const TileKey& key) {
  reply->deleteLater();
  running_.remove(key);
  const Meta old = revalidate_.take(key);
  const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
  if (reply->error() == QNetworkReply::NoError && status == 304) {
    Meta meta = metaFromReply(reply);
    if (meta.etag.isEmpty()) meta.etag = old.etag;
    if (meta.lastModified.isEmpty()) meta.lastModified = old.lastModified;
    writeMeta(key, meta);
    expires_.insert(key, meta.expires);
    setProblem({});
  } else if (reply->error() == QNetworkReply::NoError && status == 200) {
    const QByteArray bytes = reply->readAll();
    QImage image;
    if (image.loadFromData(bytes)) {
      store(key, bytes, metaFromReply(reply));
      memory_.insert(key, new QImage(image.convertToFormat(QImage::Format_ARGB32_Premultiplied)),
                     std::max<qsizetype>(1, image.sizeInBytes() / 1024));
      onDiskChecked_.insert(key);
      onDisk_.insert(key);
      failedUntil_.remove(key);
      setProblem({});
      Q_EMIT tileReady();
    } else {
      failedUntil_.insert(key, QDateTime::currentDateTimeUtc().addSecs(kRetryFailedAfterSeconds));
      setProblem(QStringLiteral("The map's tile server sent something that is not a picture."));
    }
  } else {
    failedUntil_.insert(key, QDateTime::currentDateTimeUtc().addSecs(kRetryFailedAfterSeconds));
    QString why;
    if (status >= 400) {
      why = QStringLiteral("the tile server answered %1").arg(status);
    } else if (reply->error() == QNetworkReply::OperationCanceledError ||
               reply->error() == QNetworkReply::TimeoutError) {
      why = QStringLiteral("the tile server did not answer in time");
    } else {
      why = QStringLiteral("%1 cannot be reached").arg(hostOf(template_));
    }
    setProblem(QStringLiteral("Map tiles cannot be loaded: %1. The map works without them.").arg(why));
  }
  pump();
}

void TileSource::store(const TileKey& key, const QByteArray& bytes, const Meta& meta) {
  const std::filesystem::path file = fileFor(key);
  if (!makePrivateDirectory(file.parent_path())) return;
  if (writePrivateFile(file, bytes)) writeMeta(key, meta);
  expires_.insert(key, meta.expires);
}

void TileSource::writeMeta(const TileKey& key, const Meta& meta) {
  std::filesystem::path file = fileFor(key);
  if (!makePrivateDirectory(file.parent_path())) return;
  file += ".meta";
  QByteArray text = "expires=" + QByteArray::number(meta.expires.toSecsSinceEpoch()) + "\n";
  if (!meta.etag.isEmpty()) text += "etag=" + meta.etag + "\n";
  if (!meta.lastModified.isEmpty()) text += "last-modified=" + meta.lastModified + "\n";
  writePrivateFile(file, text);
}

void TileSource::setProblem(const QString& problem) {
  if (problem == problem_) return;
  problem_ = problem;
  Q_EMIT problemChanged();
}

}  // namespace lumeo::gui
