// One photo of a carousel or of the gallery's pages: it shows a spinning
// indicator until its picture is there, reloads the picture when a sync
// saves the file under its name, and fades with its distance from the
// carousel's centre.
#pragma once

#include <optional>
#include <string>

#include "platform/image.h"
#include "platform/notification_center.h"

namespace lumeo {

class CarouselPhotoView {
 public:
  CarouselPhotoView();
  CarouselPhotoView(const CarouselPhotoView&) = delete;
  CarouselPhotoView& operator=(const CarouselPhotoView&) = delete;

  // The picture's file name in the image store; loads it (nothing yet when
  // the file is not there).
  void setImageName(const std::optional<std::string>& name);
  const std::optional<std::string>& imageName() const { return imageName_; }
  // A picture stops the indicator; none starts it.
  void setImage(std::optional<Image> image);
  const std::optional<Image>& image() const { return image_; }
  bool isIndicatorAnimating() const { return indicatorAnimating_; }

  // `offset` is the distance from the carousel's centre in item widths:
  // fully opaque at the centre, fading linearly to 0.3 one item away and
  // beyond.
  void setOffset(double offset);
  double alpha() const { return alpha_; }

  // The page this view shows in the gallery; -1 when marked for reuse.
  long index = -1;

 private:
  std::optional<std::string> imageName_;
  std::optional<Image> image_;
  bool indicatorAnimating_ = true;
  double alpha_ = 1;
  ScopedObserver imageSaved_;
};

}  // namespace lumeo
