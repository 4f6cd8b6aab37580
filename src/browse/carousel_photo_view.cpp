// The carousel item's indicator, fade and reload.
#include "browse/carousel_photo_view.h"

#include <algorithm>
#include <any>
#include <cmath>

#include "store/image_store.h"
#include "store/notification_names.h"

namespace lumeo {

namespace {

std::optional<Image> loadImage(const std::optional<std::string>& name) {
  auto images = ImageStore::shared();
  if (!images || !name || name->empty()) return std::nullopt;
  return images->imageForName(name);
}

}  // namespace

CarouselPhotoView::CarouselPhotoView()
    : imageSaved_(NotificationCenter::defaultCenter(), SyncImageSaved, nullptr,
                  [this](const Notification& n) {
                    const auto* saved = std::any_cast<std::string>(&n.object);
                    if (saved && imageName_ && *saved == *imageName_) setImage(loadImage(imageName_));
                  }) {}

void CarouselPhotoView::setImageName(const std::optional<std::string>& name) {
  imageName_ = name;
  setImage(loadImage(name));
}

void CarouselPhotoView::setImage(std::optional<Image> image) {
  image_ = std::move(image);
  indicatorAnimating_ = !image_.has_value();
}

void CarouselPhotoView::setOffset(double offset) {
  constexpr double kFarthestAlpha = 0.3;
  double distance = std::min(1.0, std::fabs(offset));
  alpha_ = 1.0 - (1.0 - kFarthestAlpha) * distance;
}

}  // namespace lumeo
