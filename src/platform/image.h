// A decoded picture: 8-bit RGBA pixels (not premultiplied), row by row from
// the top, with the orientation the camera recorded. Decodes JPEG (with its
// EXIF orientation) and PNG, encodes JPEG and PNG, and scales to a fill of a
// target size. Large JPEGs are decoded at a reduced size when the caller
// only needs a small picture, so a 100-megapixel photo never sits in memory
// at full size.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/color.h"
#include "platform/error.h"

namespace lumeo {

inline constexpr char kImageErrorDomain[] = "LumeoImageErrorDomain";
enum ImageErrorCode : long {
  kImageFileUnreadable = 1,  // the file is missing or cannot be read
  kImageUnknownFormat = 2,   // the bytes are neither JPEG nor PNG
  kImageCorrupt = 3,         // JPEG or PNG whose data cannot be decoded
  kImageTooLarge = 4,        // more pixels than can be held in memory
  kImageEncodeFailed = 5,    // the encoder refused the picture
  kImageEmpty = 6,           // an empty picture was given where one is needed
};

// How the stored pixels must be turned to show the picture upright; the
// numbering is the one the journal's files and the scaling rule use.
enum class ImageOrientation : int {
  kUp = 0,
  kDown = 1,   // turned by 180°
  kLeft = 2,   // must be turned 90° counter-clockwise to show upright
  kRight = 3,  // must be turned 90° clockwise to show upright
  kUpMirrored = 4,
  kDownMirrored = 5,
  kLeftMirrored = 6,
  kRightMirrored = 7,
};

// The orientation for an EXIF orientation value (1 to 8); kUp for others.
ImageOrientation orientationFromExif(int exifOrientation);
// The EXIF orientation of a JPEG, read from its APP1 segment; nothing when
// the data is not a JPEG or carries no orientation.
std::optional<int> exifOrientationOfJPEG(const std::vector<std::uint8_t>& data);

// What a file holds without decoding it.
struct ImageInfo {
  int width = 0;  // of the stored pixels
  int height = 0;
  ImageOrientation orientation = ImageOrientation::kUp;
};

class Image;
template <typename T>
using OrError = std::variant<T, Error>;

class Image {
 public:
  Image() = default;
  // `rgba` must hold width × height × 4 bytes; a mismatch gives an empty image.
  Image(int width, int height, std::vector<std::uint8_t> rgba,
        ImageOrientation orientation = ImageOrientation::kUp);
  // A picture of one colour.
  static Image filled(int width, int height, const Color& color);

  bool empty() const { return width_ == 0 || height_ == 0; }
  int width() const { return width_; }
  int height() const { return height_; }
  // The size as shown: width and height swap for the quarter-turn orientations.
  int orientedWidth() const;
  int orientedHeight() const;
  ImageOrientation orientation() const { return orientation_; }
  void setOrientation(ImageOrientation orientation) { orientation_ = orientation; }
  const std::vector<std::uint8_t>& pixels() const { return rgba_; }
  Color pixelAt(int x, int y) const;

  // Reads the format, size and orientation from the first bytes of a file.
  static OrError<ImageInfo> probe(const std::vector<std::uint8_t>& data);

  // Decodes JPEG or PNG. With `minimumWidth`/`minimumHeight` a JPEG is
  // decoded at the smallest of the decoder's reduced sizes that still covers
  // them (in stored-pixel terms); without, at full size.
  static OrError<Image> decode(const std::vector<std::uint8_t>& data, int minimumWidth = 0,
                               int minimumHeight = 0);
  static OrError<Image> readFile(const std::filesystem::path& path, int minimumWidth = 0,
                                 int minimumHeight = 0);

  // JPEG at `quality` from 0 to 1. JPEG has no transparency: transparent
  // parts are laid over white. The orientation is applied to the pixels
  // first, so the file shows upright in any viewer.
  OrError<std::vector<std::uint8_t>> jpegData(double quality) const;
  OrError<std::vector<std::uint8_t>> pngData() const;

 private:
  int width_ = 0;
  int height_ = 0;
  ImageOrientation orientation_ = ImageOrientation::kUp;
  std::vector<std::uint8_t> rgba_;
};

// The picture drawn upright into a canvas of `width` × `height`: scaled by
// the same factor on both axes so that it fills the target, centred, and
// cropped equally on both sides where the aspect ratios differ. A picture
// stored sideways comes out upright. An empty picture gives an empty result.
Image imageByScalingToSize(const Image& image, int width, int height);

// Reads, decodes at no more than the needed size and scales in one go: how
// thumbnails and photos are made from files the user picks.
OrError<Image> scaledImageFromFile(const std::filesystem::path& path, int width, int height);

// The reduced decode size that turbojpeg would pick for covering a target;
// exposed for tests. Returns the decoded width and height.
std::pair<int, int> jpegDecodeSizeFor(int width, int height, int minimumWidth, int minimumHeight);

}  // namespace lumeo
