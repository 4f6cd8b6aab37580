// JPEG through libturbojpeg, PNG through cairo, the EXIF orientation through
// a small reader of our own (turbojpeg does not look at APP1), and the
// aspect-fill scaling on a Canvas.
#include "platform/image.h"

#include <cairo.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "platform/atomic_file.h"
#include "platform/canvas.h"

namespace lumeo {

namespace {

// The most pixels one decoded picture may have (512 MiB of RGBA). A camera
// photo is far below; anything above is decoded reduced or refused.
constexpr std::int64_t kMaxPixels = std::int64_t{1} << 27;

Error imageError(long code, std::string description) {
  return Error(kImageErrorDomain, code, std::move(description));
}

bool isJPEG(const std::vector<std::uint8_t>& d) {
  return d.size() >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF;
}
bool isPNG(const std::vector<std::uint8_t>& d) {
  static const std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  return d.size() >= 8 && std::memcmp(d.data(), kSignature, 8) == 0;
}

struct TurboHandle {
  explicit TurboHandle(tjhandle h) : handle(h) {}
  ~TurboHandle() {
    if (handle) tjDestroy(handle);
  }
  TurboHandle(const TurboHandle&) = delete;
  TurboHandle& operator=(const TurboHandle&) = delete;
  tjhandle handle;
};

std::uint32_t readU16(const std::uint8_t* p, bool bigEndian) {
  return bigEndian ? (p[0] << 8 | p[1]) : (p[1] << 8 | p[0]);
}
std::uint32_t readU32(const std::uint8_t* p, bool bigEndian) {
  return bigEndian ? (std::uint32_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3])
                   : (std::uint32_t{p[3]} << 24 | p[2] << 16 | p[1] << 8 | p[0]);
}

// The orientation tag of the first IFD of a TIFF block (the body of an Exif
// APP1 segment after "Exif\0\0").
std::optional<int> orientationInTIFF(const std::uint8_t* tiff, std::size_t size) {
  if (size < 8) return std::nullopt;
  bool bigEndian;
  if (tiff[0] == 'M' && tiff[1] == 'M') {
    bigEndian = true;
  } else if (tiff[0] == 'I' && tiff[1] == 'I') {
    bigEndian = false;
  } else {
    return std::nullopt;
  }
  if (readU16(tiff + 2, bigEndian) != 42) return std::nullopt;
  const std::uint32_t ifd = readU32(tiff + 4, bigEndian);
  if (ifd > size - 2 || ifd < 8) return std::nullopt;
  const std::uint32_t count = readU16(tiff + ifd, bigEndian);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::size_t entry = ifd + 2 + std::size_t{i} * 12;
    if (entry + 12 > size) return std::nullopt;
    if (readU16(tiff + entry, bigEndian) != 0x0112) continue;
    const std::uint32_t type = readU16(tiff + entry + 2, bigEndian);
    const std::uint32_t n = readU32(tiff + entry + 4, bigEndian);
    if (type != 3 || n < 1) return std::nullopt;  // SHORT, stored in the entry itself
    const int value = static_cast<int>(readU16(tiff + entry + 8, bigEndian));
    if (value < 1 || value > 8) return std::nullopt;
    return value;
  }
  return std::nullopt;
}

// Stored pixels turned as the orientation says, for encoders and viewers
// that know nothing of orientations.
Image uprightImage(const Image& image) {
  const ImageOrientation o = image.orientation();
  if (o == ImageOrientation::kUp) return image;
  const int w = image.width();
  const int h = image.height();
  const bool quarter = o == ImageOrientation::kLeft || o == ImageOrientation::kRight ||
                       o == ImageOrientation::kLeftMirrored || o == ImageOrientation::kRightMirrored;
  const int ow = quarter ? h : w;
  const int oh = quarter ? w : h;
  std::vector<std::uint8_t> out(static_cast<std::size_t>(ow) * static_cast<std::size_t>(oh) * 4);
  const std::uint8_t* src = image.pixels().data();
  for (int y = 0; y < oh; ++y) {
    for (int x = 0; x < ow; ++x) {
      // (sx, sy): the stored pixel shown at (x, y).
      int sx = x, sy = y;
      switch (o) {
        case ImageOrientation::kDown:
          sx = w - 1 - x;
          sy = h - 1 - y;
          break;
        case ImageOrientation::kLeft:
          sx = w - 1 - y;
          sy = x;
          break;
        case ImageOrientation::kRight:
          sx = y;
          sy = h - 1 - x;
          break;
        case ImageOrientation::kUpMirrored:
          sx = w - 1 - x;
          break;
        case ImageOrientation::kDownMirrored:
          sy = h - 1 - y;
          break;
        case ImageOrientation::kLeftMirrored:
          sx = y;
          sy = x;
          break;
        case ImageOrientation::kRightMirrored:
          sx = w - 1 - y;
          sy = h - 1 - x;
          break;
        case ImageOrientation::kUp:
          break;
      }
      std::memcpy(&out[(static_cast<std::size_t>(y) * ow + x) * 4],
                  &src[(static_cast<std::size_t>(sy) * w + sx) * 4], 4);
    }
  }
  return Image(ow, oh, std::move(out));
}

OrError<Image> decodeJPEG(const std::vector<std::uint8_t>& data, int minimumWidth, int minimumHeight) {
  TurboHandle tj(tjInitDecompress());
  if (!tj.handle) return imageError(kImageCorrupt, "The JPEG decoder cannot start");
  int width = 0, height = 0, subsampling = 0, colorspace = 0;
  if (tjDecompressHeader3(tj.handle, data.data(), static_cast<unsigned long>(data.size()), &width, &height,
                          &subsampling, &colorspace) != 0) {
    return imageError(kImageCorrupt,
                      std::string("The JPEG data cannot be read: ") + tjGetErrorStr2(tj.handle));
  }
  auto [dw, dh] = jpegDecodeSizeFor(width, height, minimumWidth, minimumHeight);
  if (static_cast<std::int64_t>(dw) * dh > kMaxPixels) {
    return imageError(kImageTooLarge, "The picture has too many pixels: " + std::to_string(width) + " x " +
                                          std::to_string(height));
  }
  const bool cmyk = colorspace == TJCS_CMYK || colorspace == TJCS_YCCK;
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(dw) * static_cast<std::size_t>(dh) * 4);
  const int status = tjDecompress2(tj.handle, data.data(), static_cast<unsigned long>(data.size()),
                                   rgba.data(), dw, 0, dh, cmyk ? TJPF_CMYK : TJPF_RGBA, TJFLAG_ACCURATEDCT);
  // A warning (a truncated file, say) still leaves a usable picture, as
  // other viewers show it; only a real error fails.
  if (status != 0 && tjGetErrorCode(tj.handle) != TJERR_WARNING) {
    return imageError(kImageCorrupt,
                      std::string("The JPEG data cannot be decoded: ") + tjGetErrorStr2(tj.handle));
  }
  if (cmyk) {
    // CMYK JPEGs are written inverted by the tools that make them.
    for (std::size_t i = 0; i < rgba.size(); i += 4) {
      const unsigned k = rgba[i + 3];
      rgba[i] = static_cast<std::uint8_t>(rgba[i] * k / 255);
      rgba[i + 1] = static_cast<std::uint8_t>(rgba[i + 1] * k / 255);
      rgba[i + 2] = static_cast<std::uint8_t>(rgba[i + 2] * k / 255);
      rgba[i + 3] = 255;
    }
  }
  const std::optional<int> exif = exifOrientationOfJPEG(data);
  return Image(dw, dh, std::move(rgba), orientationFromExif(exif.value_or(1)));
}

struct PNGReader {
  const std::vector<std::uint8_t>* data;
  std::size_t offset = 0;
};

cairo_status_t readPNGChunk(void* closure, unsigned char* out, unsigned int length) {
  auto* reader = static_cast<PNGReader*>(closure);
  if (reader->offset + length > reader->data->size()) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(out, reader->data->data() + reader->offset, length);
  reader->offset += length;
  return CAIRO_STATUS_SUCCESS;
}

std::optional<std::pair<int, int>> pngSize(const std::vector<std::uint8_t>& data) {
  // Signature, then the IHDR chunk: length, "IHDR", width, height.
  if (data.size() < 24 || std::memcmp(data.data() + 12, "IHDR", 4) != 0) return std::nullopt;
  const std::uint32_t w = readU32(data.data() + 16, true);
  const std::uint32_t h = readU32(data.data() + 20, true);
  if (w == 0 || h == 0 || w > 0x7fffffff || h > 0x7fffffff) return std::nullopt;
  return std::make_pair(static_cast<int>(w), static_cast<int>(h));
}

OrError<Image> decodePNG(const std::vector<std::uint8_t>& data) {
  const auto size = pngSize(data);
  if (!size) return imageError(kImageCorrupt, "The PNG data has no valid header");
  if (static_cast<std::int64_t>(size->first) * size->second > kMaxPixels) {
    return imageError(kImageTooLarge, "The picture has too many pixels: " + std::to_string(size->first) +
                                          " x " + std::to_string(size->second));
  }
  PNGReader reader{&data};
  cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(readPNGChunk, &reader);
  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> owner(surface, cairo_surface_destroy);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    return imageError(kImageCorrupt, std::string("The PNG data cannot be decoded: ") +
                                         cairo_status_to_string(cairo_surface_status(surface)));
  }
  // Cairo hands back premultiplied native-endian ARGB in one of a few formats.
  cairo_surface_t* argb = surface;
  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> converted(nullptr,
                                                                               cairo_surface_destroy);
  const int w = cairo_image_surface_get_width(surface);
  const int h = cairo_image_surface_get_height(surface);
  if (cairo_image_surface_get_format(surface) != CAIRO_FORMAT_ARGB32) {
    converted.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h));
    cairo_t* cr = cairo_create(converted.get());
    cairo_set_source_surface(cr, surface, 0, 0);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_paint(cr);
    cairo_destroy(cr);
    argb = converted.get();
  }
  cairo_surface_flush(argb);
  const unsigned char* pixels = cairo_image_surface_get_data(argb);
  const int stride = cairo_image_surface_get_stride(argb);
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
  std::uint8_t* out = rgba.data();
  for (int y = 0; y < h; ++y) {
    const auto* row =
        reinterpret_cast<const std::uint32_t*>(pixels + static_cast<std::ptrdiff_t>(y) * stride);
    for (int x = 0; x < w; ++x, out += 4) {
      const std::uint32_t p = row[x];
      const unsigned a = p >> 24;
      auto un = [a](unsigned c) {
        return static_cast<std::uint8_t>(a == 0 ? 0 : std::min(255u, (c * 255 + a / 2) / a));
      };
      out[0] = un((p >> 16) & 0xff);
      out[1] = un((p >> 8) & 0xff);
      out[2] = un(p & 0xff);
      out[3] = static_cast<std::uint8_t>(a);
    }
  }
  return Image(w, h, std::move(rgba));
}

bool isQuarterTurn(ImageOrientation o) {
  return o == ImageOrientation::kLeft || o == ImageOrientation::kRight;
}

}  // namespace

ImageOrientation orientationFromExif(int exifOrientation) {
  switch (exifOrientation) {
    case 2:
      return ImageOrientation::kUpMirrored;
    case 3:
      return ImageOrientation::kDown;
    case 4:
      return ImageOrientation::kDownMirrored;
    case 5:
      return ImageOrientation::kLeftMirrored;
    case 6:
      return ImageOrientation::kRight;
    case 7:
      return ImageOrientation::kRightMirrored;
    case 8:
      return ImageOrientation::kLeft;
    default:
      return ImageOrientation::kUp;
  }
}

std::optional<int> exifOrientationOfJPEG(const std::vector<std::uint8_t>& data) {
  if (data.size() < 4 || data[0] != 0xFF || data[1] != 0xD8) return std::nullopt;
  std::size_t pos = 2;
  while (pos + 4 <= data.size()) {
    if (data[pos] != 0xFF) return std::nullopt;
    const std::uint8_t marker = data[pos + 1];
    if (marker == 0xFF) {  // fill byte
      ++pos;
      continue;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) {  // segments without length
      pos += 2;
      continue;
    }
    if (marker == 0xDA || marker == 0xD9) return std::nullopt;  // image data starts: no more headers
    const std::size_t length = readU16(&data[pos + 2], true);
    if (length < 2 || pos + 2 + length > data.size()) return std::nullopt;
    const std::uint8_t* body = &data[pos + 4];
    const std::size_t bodySize = length - 2;
    if (marker == 0xE1 && bodySize >= 6 && std::memcmp(body, "Exif\0\0", 6) == 0) {
      if (auto o = orientationInTIFF(body + 6, bodySize - 6)) return o;
    }
    pos += 2 + length;
  }
  return std::nullopt;
}

std::pair<int, int> jpegDecodeSizeFor(int width, int height, int minimumWidth, int minimumHeight) {
  if (minimumWidth <= 0 && minimumHeight <= 0) return {width, height};
  int count = 0;
  const tjscalingfactor* factors = tjGetScalingFactors(&count);
  std::pair<int, int> best{width, height};
  for (int i = 0; factors && i < count; ++i) {
    const tjscalingfactor f = factors[i];
    if (f.num > f.denom) continue;  // never enlarge while decoding
    const int w = TJSCALED(width, f);
    const int h = TJSCALED(height, f);
    if (w < minimumWidth || h < minimumHeight) continue;
    if (static_cast<std::int64_t>(w) * h < static_cast<std::int64_t>(best.first) * best.second) best = {w, h};
  }
  return best;
}

Image::Image(int width, int height, std::vector<std::uint8_t> rgba, ImageOrientation orientation) {
  if (width <= 0 || height <= 0 ||
      rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
    return;
  }
  width_ = width;
  height_ = height;
  orientation_ = orientation;
  rgba_ = std::move(rgba);
}

Image Image::filled(int width, int height, const Color& color) {
  if (width <= 0 || height <= 0) return Image();
  auto byte = [](double v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255)); };
  const std::uint8_t px[4] = {byte(color.red), byte(color.green), byte(color.blue), byte(color.alpha)};
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  for (std::size_t i = 0; i < rgba.size(); i += 4) std::memcpy(&rgba[i], px, 4);
  return Image(width, height, std::move(rgba));
}

int Image::orientedWidth() const {
  const bool quarter = isQuarterTurn(orientation_) || orientation_ == ImageOrientation::kLeftMirrored ||
                       orientation_ == ImageOrientation::kRightMirrored;
  return quarter ? height_ : width_;
}

int Image::orientedHeight() const {
  const bool quarter = isQuarterTurn(orientation_) || orientation_ == ImageOrientation::kLeftMirrored ||
                       orientation_ == ImageOrientation::kRightMirrored;
  return quarter ? width_ : height_;
}

Color Image::pixelAt(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return Color(0, 0, 0, 0);
  const std::uint8_t* p = &rgba_[(static_cast<std::size_t>(y) * width_ + x) * 4];
  return Color(p[0] / 255.0, p[1] / 255.0, p[2] / 255.0, p[3] / 255.0);
}

OrError<ImageInfo> Image::probe(const std::vector<std::uint8_t>& data) {
  if (isJPEG(data)) {
    TurboHandle tj(tjInitDecompress());
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (!tj.handle || tjDecompressHeader3(tj.handle, data.data(), static_cast<unsigned long>(data.size()),
                                          &width, &height, &subsampling, &colorspace) != 0) {
      return imageError(kImageCorrupt, "The JPEG data cannot be read");
    }
    return ImageInfo{width, height, orientationFromExif(exifOrientationOfJPEG(data).value_or(1))};
  }
  if (isPNG(data)) {
    const auto size = pngSize(data);
    if (!size) return imageError(kImageCorrupt, "The PNG data has no valid header");
    return ImageInfo{size->first, size->second, ImageOrientation::kUp};
  }
  return imageError(kImageUnknownFormat, "The data is not a JPEG or PNG picture");
}

OrError<Image> Image::decode(const std::vector<std::uint8_t>& data, int minimumWidth, int minimumHeight) {
  try {
    if (isJPEG(data)) return decodeJPEG(data, minimumWidth, minimumHeight);
    if (isPNG(data)) return decodePNG(data);
  } catch (const std::bad_alloc&) {
    // The pixels do not fit into memory; the caller may try a reduced decode.
    return imageError(kImageTooLarge, "There is not enough memory to decode the picture");
  }
  return imageError(kImageUnknownFormat, "The data is not a JPEG or PNG picture");
}

OrError<Image> Image::readFile(const std::filesystem::path& path, int minimumWidth, int minimumHeight) {
  auto bytes = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&bytes)) {
    return Error(kImageErrorDomain, kImageFileUnreadable, error->description, error->userInfo);
  }
  auto result = decode(std::get<std::vector<std::uint8_t>>(bytes), minimumWidth, minimumHeight);
  if (auto* error = std::get_if<Error>(&result)) error->userInfo["path"] = path.string();
  return result;
}

OrError<std::vector<std::uint8_t>> Image::jpegData(double quality) const {
  if (empty()) return imageError(kImageEmpty, "There is no picture to encode");
  const Image upright = uprightImage(*this);
  // Transparent parts over white: what a user sees on a page.
  std::vector<std::uint8_t> rgb(static_cast<std::size_t>(upright.width()) * upright.height() * 3);
  const std::uint8_t* src = upright.pixels().data();
  for (std::size_t i = 0, j = 0; j < rgb.size(); i += 4, j += 3) {
    const unsigned a = src[i + 3];
    for (int c = 0; c < 3; ++c)
      rgb[j + c] = static_cast<std::uint8_t>((src[i + c] * a + 255 * (255 - a) + 127) / 255);
  }
  TurboHandle tj(tjInitCompress());
  if (!tj.handle) return imageError(kImageEncodeFailed, "The JPEG encoder cannot start");
  const int q = std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100);
  // Full colour resolution at high qualities, where chroma blur would show.
  const int subsampling = q >= 90 ? TJSAMP_444 : TJSAMP_420;
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  if (tjCompress2(tj.handle, rgb.data(), upright.width(), 0, upright.height(), TJPF_RGB, &jpeg, &size,
                  subsampling, q, TJFLAG_ACCURATEDCT) != 0) {
    if (jpeg) tjFree(jpeg);
    return imageError(kImageEncodeFailed, std::string("JPEG encoding failed: ") + tjGetErrorStr2(tj.handle));
  }
  std::vector<std::uint8_t> out(jpeg, jpeg + size);
  tjFree(jpeg);
  return out;
}

OrError<std::vector<std::uint8_t>> Image::pngData() const {
  if (empty()) return imageError(kImageEmpty, "There is no picture to encode");
  const Image upright = uprightImage(*this);
  Canvas canvas(upright.width(), upright.height());
  canvas.drawImage(upright,
                   Rect{0, 0, static_cast<double>(upright.width()), static_cast<double>(upright.height())});
  return canvas.pngData();
}

Image imageByScalingToSize(const Image& image, int width, int height) {
  if (image.empty() || width <= 0 || height <= 0) return Image();
  Canvas canvas(width, height);
  canvas.translate(width / 2.0, height / 2.0);
  double targetW = width;
  double targetH = height;
  switch (image.orientation()) {
    // Turned so that the picture shows upright; y grows downward here, so a
    // counter-clockwise turn is a negative angle.
    case ImageOrientation::kLeft:
      canvas.rotate(-M_PI / 2);
      std::swap(targetW, targetH);
      break;
    case ImageOrientation::kRight:
      canvas.rotate(M_PI / 2);
      std::swap(targetW, targetH);
      break;
    case ImageOrientation::kDown:
      canvas.rotate(M_PI);
      break;
    default:
      break;
  }
  const double scale = std::max(targetW / image.width(), targetH / image.height());
  canvas.scale(scale, scale);
  canvas.drawImage(image, Rect{-image.width() / 2.0, -image.height() / 2.0,
                               static_cast<double>(image.width()), static_cast<double>(image.height())});
  return canvas.image();
}

OrError<Image> scaledImageFromFile(const std::filesystem::path& path, int width, int height) {
  if (width <= 0 || height <= 0) return imageError(kImageEmpty, "The target size is empty");
  auto bytes = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&bytes)) {
    return Error(kImageErrorDomain, kImageFileUnreadable, error->description, error->userInfo);
  }
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  auto info = Image::probe(data);
  if (auto* error = std::get_if<Error>(&info)) return *error;
  // The decode must cover the target in stored-pixel terms, which are turned
  // for pictures stored sideways.
  const bool sideways = isQuarterTurn(std::get<ImageInfo>(info).orientation);
  auto decoded = Image::decode(data, sideways ? height : width, sideways ? width : height);
  if (auto* error = std::get_if<Error>(&decoded)) return *error;
  return imageByScalingToSize(std::get<Image>(decoded), width, height);
}

}  // namespace lumeo
