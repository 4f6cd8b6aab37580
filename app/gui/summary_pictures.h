// Pictures that the Summary and History tabs show, drawn by the core on its
// Canvas: chart cards, the graph, tagged text. Each adapter that owns a
// picture registers a renderer under a key of its own; the picture provider
// source "tabs" serves them to QML as "image://lumeo/tabs/<key>/<revision>".
// The revision only defeats QML's image cache: a picture that changed gets
// a new URL.
#pragma once

#include <QColor>
#include <QSize>
#include <QString>
#include <functional>
#include <optional>

#include "platform/color.h"
#include "platform/image.h"
#include "qt_convert.h"

namespace lumeo::gui {

// A renderer gets the size QML asked for in device pixels (may be empty: the
// renderer's own size then). Runs on the GUI thread.
using TabPictureRenderer = std::function<std::optional<Image>(const QSize& requested)>;

class TabPictures {
 public:
  // The picture provider's source name for these pictures.
  static constexpr const char* kSourceName = "tabs";

  // A key that is free; register under it, unregister before the owner dies.
  static QString newKey(const QString& prefix);
  static void registerRenderer(const QString& key, TabPictureRenderer renderer);
  static void unregisterRenderer(const QString& key);
  // "<key>/<revision>" (or "<key>"): the picture, or nothing for a key
  // nobody owns.
  static std::optional<Image> render(const QString& id, const QSize& requested);
  // What QML puts after "image://lumeo/".
  static QString source(const QString& key, int revision) {
    return QString::fromLatin1(kSourceName) + QLatin1Char('/') + key + QLatin1Char('/') +
           QString::number(revision);
  }
};

}  // namespace lumeo::gui
