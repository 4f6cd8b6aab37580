// Feeds arbitrary bytes to the picture readers: the header probe, the EXIF
// orientation reader and the JPEG and PNG decoders. Nothing may crash, and a
// decoded picture must hold exactly the pixels its size promises.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/image.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::uint8_t> bytes(data, data + size);
  if (auto orientation = lumeo::exifOrientationOfJPEG(bytes)) {
    if (*orientation < 1 || *orientation > 8) std::abort();
  }
  auto info = lumeo::Image::probe(bytes);
  const auto* header = std::get_if<lumeo::ImageInfo>(&info);
  // Headers may promise pictures far larger than the input; decoding them
  // is correct but slow, so the smoke run keeps to modest sizes.
  if (!header || static_cast<std::int64_t>(header->width) * header->height > 4096 * 4096) return 0;
  auto decoded = lumeo::Image::decode(bytes, 16, 16);
  if (const auto* image = std::get_if<lumeo::Image>(&decoded)) {
    if (image->pixels().size() != static_cast<std::size_t>(image->width()) * image->height() * 4)
      std::abort();
    (void)lumeo::imageByScalingToSize(*image, 8, 8);
  }
  return 0;
}
