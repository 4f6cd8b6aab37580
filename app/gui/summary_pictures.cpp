// The registry behind the tabs' pictures, and its picture source. Adapters
// and the picture provider both live on the GUI thread, where the core's
// objects are; the map is all there is.
#include "summary_pictures.h"

#include <map>

#include "gui_runtime.h"
#include "picture_provider.h"

namespace lumeo::gui {

namespace {

std::map<QString, TabPictureRenderer>& registry() {
  static std::map<QString, TabPictureRenderer> renderers;
  return renderers;
}

const GuiRegistration kTabPictures(10, [](GuiRuntime&) {
  registerPictureSource(
      QString::fromLatin1(TabPictures::kSourceName),
      [](const QString& arguments, QSize size) { return TabPictures::render(arguments, size); });
});

}  // namespace

QString TabPictures::newKey(const QString& prefix) {
  static long next = 0;
  return prefix + QString::number(++next);
}

void TabPictures::registerRenderer(const QString& key, TabPictureRenderer renderer) {
  registry()[key] = std::move(renderer);
}

void TabPictures::unregisterRenderer(const QString& key) {
  registry().erase(key);
}

std::optional<Image> TabPictures::render(const QString& id, const QSize& requested) {
  auto it = registry().find(id.section(QLatin1Char('/'), 0, 0));
  if (it == registry().end()) return std::nullopt;
  // The renderer may unregister others; call a copy.
  TabPictureRenderer renderer = it->second;
  return renderer(requested);
}

}  // namespace lumeo::gui
