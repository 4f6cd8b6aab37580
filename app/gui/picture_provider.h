// Pictures that the core draws on its Canvas (level gradients, charts, the
// graph, calendar strips, tagged text), served to QML under
// "image://lumeo/<source>/<arguments>", so the GUI shows the same pixels as
// the command line and the PDF report.
//
// A screen's adapter registers a source once, at start:
//   registerPictureSource("trend", [](const QString& args, QSize size) { ... });
// and QML asks for `image://lumeo/trend/all?rev=3` with a sourceSize. The
// arguments are the source's own business; a changing part (a revision
// number) makes QML ask again after the data changed.
//
// Sources run on the GUI thread, where the core's objects live: QML Images
// using this provider must not set `asynchronous: true`.
#pragma once

#include <QQuickImageProvider>
#include <QString>
#include <functional>
#include <optional>

#include "platform/image.h"

namespace lumeo::gui {

// Draws the picture for `arguments` at `size` (device pixels; width or
// height may be 0 or less when QML did not say). Nothing: no picture, QML
// shows an empty image.
using PictureSource = std::function<std::optional<Image>(const QString& arguments, QSize size)>;

// Adds or replaces the source `name`. Any time before the picture is asked.
void registerPictureSource(const QString& name, PictureSource source);
bool hasPictureSource(const QString& name);

// The core's RGBA pixels as a QImage (copied, upright).
QImage toQImage(const Image& image);

class PictureProvider : public QQuickImageProvider {
 public:
  static constexpr const char* kProviderName = "lumeo";
  PictureProvider();
  QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

}  // namespace lumeo::gui
