#include "picture_provider.h"

#include <QHash>
#include <QImage>

#include "platform/log.h"

namespace lumeo::gui {

namespace {

QHash<QString, PictureSource>& sources() {
  static QHash<QString, PictureSource> map;
  return map;
}

}  // namespace

void registerPictureSource(const QString& name, PictureSource source) {
  sources().insert(name, std::move(source));
}

bool hasPictureSource(const QString& name) {
  return sources().contains(name);
}

QImage toQImage(const Image& image) {
  if (image.empty()) return {};
  Image upright = image;
  if (image.orientation() != ImageOrientation::kUp)
    upright = imageByScalingToSize(image, image.orientedWidth(), image.orientedHeight());
  QImage wrapped(upright.pixels().data(), upright.width(), upright.height(), upright.width() * 4,
                 QImage::Format_RGBA8888);
  return wrapped.copy();  // the wrapper borrows the vector's bytes
}

PictureProvider::PictureProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage PictureProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize) {
  const qsizetype slash = id.indexOf(QLatin1Char('/'));
  const QString name = slash < 0 ? id : id.left(slash);
  const QString arguments = slash < 0 ? QString() : id.mid(slash + 1);
  auto found = sources().constFind(name);
  QImage result;
  if (found == sources().constEnd()) {
    LUMEO_LOG_DEBUG("no picture source named %@", name.toStdString());
  } else if (auto image = (*found)(arguments, requestedSize)) {
    result = toQImage(*image);
  }
  if (size) *size = result.size();
  return result;
}

}  // namespace lumeo::gui
