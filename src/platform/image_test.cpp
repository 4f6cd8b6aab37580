// Pictures in and out: JPEG and PNG round trips, the EXIF orientation of
// camera files, the upright aspect-fill scaling, reduced decoding of huge
// photos, and a clear error for everything that is not a picture. All test
// pictures are made here, so the expected pixels are known.
#include "platform/image.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <cmath>
#include <fstream>

#include "platform/atomic_file.h"
#include "platform/canvas.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

const Color kRed(1, 0, 0), kBlue(0, 0, 1), kGreen(0, 1, 0);

// 40 × 20 stored pixels: left half red, right half blue.
Image halves(ImageOrientation orientation = ImageOrientation::kUp) {
  Canvas canvas(40, 20);
  canvas.fillRect(Rect{0, 0, 20, 20}, kRed);
  canvas.fillRect(Rect{20, 0, 20, 20}, kBlue);
  Image image = canvas.image();
  image.setOrientation(orientation);
  return image;
}

bool near(const Color& a, const Color& b, double tolerance = 0.1) {
  return std::abs(a.red - b.red) <= tolerance && std::abs(a.green - b.green) <= tolerance &&
         std::abs(a.blue - b.blue) <= tolerance;
}

std::string name(const Color& c) {
  if (near(c, kRed)) return "red";
  if (near(c, kBlue)) return "blue";
  if (near(c, kGreen)) return "green";
  return "other(" + std::to_string(c.red) + "," + std::to_string(c.green) + "," + std::to_string(c.blue) +
         ")";
}

std::vector<std::uint8_t> jpegOf(const Image& image, double quality = 0.99) {
  auto data = image.jpegData(quality);
  EXPECT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(data));
  return std::get<std::vector<std::uint8_t>>(data);
}

// An APP1 segment holding an Exif block whose first IFD has one entry.
std::vector<std::uint8_t> exifSegment(int orientation, bool bigEndian, std::uint16_t type = 3) {
  auto u16 = [&](std::vector<std::uint8_t>& v, unsigned x) {
    if (bigEndian) {
      v.push_back(static_cast<std::uint8_t>(x >> 8));
      v.push_back(static_cast<std::uint8_t>(x));
    } else {
      v.push_back(static_cast<std::uint8_t>(x));
      v.push_back(static_cast<std::uint8_t>(x >> 8));
    }
  };
  auto u32 = [&](std::vector<std::uint8_t>& v, unsigned x) {
    if (bigEndian) {
      u16(v, x >> 16);
      u16(v, x & 0xffff);
    } else {
      u16(v, x & 0xffff);
      u16(v, x >> 16);
    }
  };
  std::vector<std::uint8_t> body = {'E', 'x', 'i', 'f', 0, 0};
  body.push_back(bigEndian ? 'M' : 'I');
  body.push_back(bigEndian ? 'M' : 'I');
  u16(body, 42);
  u32(body, 8);
  u16(body, 2);  // two entries: a width tag first, then the orientation
  u16(body, 0x0100);
  u16(body, 3);
  u32(body, 1);
  u16(body, 40);
  u16(body, 0);
  u16(body, 0x0112);
  u16(body, type);
  u32(body, 1);
  u16(body, static_cast<unsigned>(orientation));
  u16(body, 0);
  u32(body, 0);
  std::vector<std::uint8_t> segment;
  segment.push_back(0xFF);
  segment.push_back(0xE1);
  segment.push_back(static_cast<std::uint8_t>((body.size() + 2) >> 8));
  segment.push_back(static_cast<std::uint8_t>(body.size() + 2));
  for (std::uint8_t b : body) segment.push_back(b);
  return segment;
}

std::vector<std::uint8_t> spliced(std::vector<std::uint8_t> jpeg, const std::vector<std::uint8_t>& segment,
                                  std::size_t at = 2) {
  jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(at), segment.begin(), segment.end());
  return jpeg;
}

TEST(ImageCodec, JPEGAndPNGRoundTrips) {
  const Image orange = Image::filled(16, 8, Color::fromRGB255(233, 55, 0));
  auto decoded = Image::decode(jpegOf(orange));
  ASSERT_TRUE(std::holds_alternative<Image>(decoded));
  const Image& jpeg = std::get<Image>(decoded);
  EXPECT_EQ(jpeg.width(), 16);
  EXPECT_EQ(jpeg.height(), 8);
  EXPECT_TRUE(near(jpeg.pixelAt(7, 3), Color::fromRGB255(233, 55, 0), 3.0 / 255));

  // PNG keeps transparency exactly; JPEG lays it over white.
  const Image glass = Image::filled(4, 4, Color(0, 0, 1, 0.5));
  auto png = glass.pngData();
  ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(png));
  auto back = Image::decode(std::get<std::vector<std::uint8_t>>(png));
  ASSERT_TRUE(std::holds_alternative<Image>(back));
  EXPECT_NEAR(std::get<Image>(back).pixelAt(1, 1).alpha, 128 / 255.0, 1.0 / 255);
  auto overWhite = std::get<Image>(Image::decode(jpegOf(glass)));
  EXPECT_TRUE(near(overWhite.pixelAt(1, 1), Color(0.5, 0.5, 1), 3.0 / 255));

  EXPECT_TRUE(std::get<Error>(Image().jpegData(0.99)).is(kImageErrorDomain, kImageEmpty));
  EXPECT_TRUE(Image(3, 3, std::vector<std::uint8_t>(5)).empty());
}

TEST(ImageCodec, ExifOrientationIsReadFromAPP1) {
  const auto jpeg = jpegOf(halves());
  EXPECT_EQ(exifOrientationOfJPEG(jpeg), std::nullopt);
  for (bool bigEndian : {true, false}) {
    for (int o = 1; o <= 8; ++o) {
      EXPECT_EQ(exifOrientationOfJPEG(spliced(jpeg, exifSegment(o, bigEndian))), o) << o << " " << bigEndian;
    }
  }
  // Behind the JFIF segment that encoders write first.
  const std::size_t afterApp0 = 4 + (jpeg[4] << 8 | jpeg[5]);
  EXPECT_EQ(exifOrientationOfJPEG(spliced(jpeg, exifSegment(6, true), afterApp0)), 6);

  EXPECT_EQ(orientationFromExif(1), ImageOrientation::kUp);
  EXPECT_EQ(orientationFromExif(3), ImageOrientation::kDown);
  EXPECT_EQ(orientationFromExif(6), ImageOrientation::kRight);
  EXPECT_EQ(orientationFromExif(8), ImageOrientation::kLeft);
  EXPECT_EQ(orientationFromExif(0), ImageOrientation::kUp);
  EXPECT_EQ(orientationFromExif(9), ImageOrientation::kUp);

  // Damaged blocks are ignored, and the picture still decodes upright.
  std::vector<std::vector<std::uint8_t>> damaged;
  damaged.push_back(exifSegment(9, true));              // out of range
  damaged.push_back(exifSegment(6, true, /*LONG*/ 4));  // wrong type
  auto badMagic = exifSegment(6, true);
  badMagic[13] = 41;
  damaged.push_back(badMagic);
  auto badOffset = exifSegment(6, false);
  badOffset[14] = 0xF0;  // first IFD far outside the block
  damaged.push_back(badOffset);
  auto overlong = exifSegment(6, true);
  overlong[2] = 0x7F;  // segment longer than the file
  damaged.push_back(overlong);
  for (const auto& segment : damaged) {
    const auto data = spliced(jpeg, segment);
    EXPECT_EQ(exifOrientationOfJPEG(data), std::nullopt);
  }
  auto decoded = Image::decode(spliced(jpeg, damaged[0]));
  ASSERT_TRUE(std::holds_alternative<Image>(decoded));
  EXPECT_EQ(std::get<Image>(decoded).orientation(), ImageOrientation::kUp);
  EXPECT_EQ(exifOrientationOfJPEG({0xFF, 0xD8}), std::nullopt);
  EXPECT_EQ(exifOrientationOfJPEG({0x89, 'P', 'N', 'G'}), std::nullopt);
}

TEST(ImageScaling, ThumbnailsComeOutUprightAndFilled) {
  struct Case {
    ImageOrientation orientation;
    const char* top;
    const char* bottom;
    const char* left;
    const char* right;
  };
  // Stored: red left, blue right. "Left" pictures must turn counter-clockwise
  // to show upright, which takes the red left side to the bottom.
  const std::vector<Case> cases = {
      {ImageOrientation::kUp, nullptr, nullptr, "red", "blue"},
      {ImageOrientation::kDown, nullptr, nullptr, "blue", "red"},
      {ImageOrientation::kLeft, "blue", "red", nullptr, nullptr},
      {ImageOrientation::kRight, "red", "blue", nullptr, nullptr},
  };
  for (const Case& c : cases) {
    const Image thumb = imageByScalingToSize(halves(c.orientation), 264, 264);
    ASSERT_EQ(thumb.width(), 264);
    ASSERT_EQ(thumb.height(), 264);
    EXPECT_EQ(thumb.orientation(), ImageOrientation::kUp);
    const int o = static_cast<int>(c.orientation);
    if (c.top) {
      EXPECT_EQ(name(thumb.pixelAt(132, 30)), c.top) << o;
    }
    if (c.bottom) {
      EXPECT_EQ(name(thumb.pixelAt(132, 234)), c.bottom) << o;
    }
    if (c.left) {
      EXPECT_EQ(name(thumb.pixelAt(30, 132)), c.left) << o;
    }
    if (c.right) {
      EXPECT_EQ(name(thumb.pixelAt(234, 132)), c.right) << o;
    }
    // Filled to the corners: no transparent border anywhere.
    EXPECT_EQ(thumb.pixelAt(0, 0).alpha, 1.0);
    EXPECT_EQ(thumb.pixelAt(263, 263).alpha, 1.0);
  }

  // A wide picture is cropped equally on both sides: of three bands only
  // the middle one remains.
  Canvas bands(300, 100);
  bands.fillRect(Rect{0, 0, 100, 100}, kRed);
  bands.fillRect(Rect{100, 0, 100, 100}, kGreen);
  bands.fillRect(Rect{200, 0, 100, 100}, kBlue);
  const Image cropped = imageByScalingToSize(bands.image(), 264, 264);
  EXPECT_EQ(name(cropped.pixelAt(3, 132)), "green");
  EXPECT_EQ(name(cropped.pixelAt(260, 132)), "green");
  // A photo-shaped target from a tall picture keeps its aspect.
  const Image photo = imageByScalingToSize(halves(ImageOrientation::kRight), 320, 640);
  EXPECT_EQ(photo.width(), 320);
  EXPECT_EQ(name(photo.pixelAt(160, 100)), "red");
  EXPECT_EQ(name(photo.pixelAt(160, 540)), "blue");

  EXPECT_TRUE(imageByScalingToSize(Image(), 264, 264).empty());
  EXPECT_TRUE(imageByScalingToSize(halves(), 0, 264).empty());
}

TEST(ImageScaling, CameraFileWithLeftOrientationBecomesAnUprightThumbnail) {
  testing::TempDir dir;
  const auto path = dir / "camera.jpg";
  ASSERT_FALSE(writeFileAtomically(path, spliced(jpegOf(halves()), exifSegment(8, true))));
  auto read = Image::readFile(path);
  ASSERT_TRUE(std::holds_alternative<Image>(read));
  EXPECT_EQ(std::get<Image>(read).orientation(), ImageOrientation::kLeft);
  EXPECT_EQ(std::get<Image>(read).orientedWidth(), 20);
  EXPECT_EQ(std::get<Image>(read).orientedHeight(), 40);

  auto thumb = scaledImageFromFile(path, 264, 264);
  ASSERT_TRUE(std::holds_alternative<Image>(thumb));
  EXPECT_EQ(name(std::get<Image>(thumb).pixelAt(132, 30)), "blue");
  EXPECT_EQ(name(std::get<Image>(thumb).pixelAt(132, 234)), "red");

  // Written back out, the orientation is in the pixels, not in a tag.
  auto upright = Image::decode(jpegOf(std::get<Image>(read)));
  ASSERT_TRUE(std::holds_alternative<Image>(upright));
  const Image& u = std::get<Image>(upright);
  EXPECT_EQ(u.orientation(), ImageOrientation::kUp);
  EXPECT_EQ(u.width(), 20);
  EXPECT_EQ(u.height(), 40);
  EXPECT_EQ(name(u.pixelAt(10, 5)), "blue");
  EXPECT_EQ(name(u.pixelAt(10, 35)), "red");
}

TEST(ImageErrors, EverythingThatIsNotAPictureNamesItsKind) {
  testing::TempDir dir;
  testing::writeFile(dir / "notes.txt", "Dear diary, today was fine.");
  testing::writeFile(dir / "empty.jpg", "");
  const auto png = std::get<std::vector<std::uint8_t>>(Image::filled(32, 32, kGreen).pngData());
  ASSERT_FALSE(writeFileAtomically(dir / "cut.png",
                                   std::vector<std::uint8_t>(png.begin(), png.begin() + png.size() / 2)));
  ASSERT_FALSE(writeFileAtomically(dir / "garbage.jpg",
                                   std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF, 0x00, 0x12, 0x34}));
  // A PNG header that claims 40000 × 40000 pixels: refused before decoding.
  std::vector<std::uint8_t> bomb(png.begin(), png.begin() + 33);
  for (int i : {16, 20}) {
    bomb[i] = 0;
    bomb[i + 1] = 0;
    bomb[i + 2] = 0x9C;
    bomb[i + 3] = 0x40;
  }
  ASSERT_FALSE(writeFileAtomically(dir / "bomb.png", bomb));

  const std::vector<std::pair<const char*, long>> cases = {
      {"missing.jpg", kImageFileUnreadable}, {"notes.txt", kImageUnknownFormat},
      {"empty.jpg", kImageUnknownFormat},    {"cut.png", kImageCorrupt},
      {"garbage.jpg", kImageCorrupt},        {"bomb.png", kImageTooLarge},
  };
  for (const auto& [file, code] : cases) {
    auto result = Image::readFile(dir / file);
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << file;
    EXPECT_TRUE(std::get<Error>(result).is(kImageErrorDomain, code))
        << file << ": " << std::get<Error>(result).toString();
    auto scaled = scaledImageFromFile(dir / file, 264, 264);
    ASSERT_TRUE(std::holds_alternative<Error>(scaled)) << file;
  }
  EXPECT_TRUE(std::get<Error>(Image::probe({})).is(kImageErrorDomain, kImageUnknownFormat));

  // A JPEG cut short still shows what arrived, as other viewers do.
  const auto full = jpegOf(halves());
  auto truncated = Image::decode(std::vector<std::uint8_t>(full.begin(), full.begin() + full.size() * 3 / 4));
  ASSERT_TRUE(std::holds_alternative<Image>(truncated));
  EXPECT_EQ(std::get<Image>(truncated).width(), 40);
}

// A 10000 × 10000 grey JPEG, written in strips so the test never holds the
// full picture either.
std::vector<std::uint8_t> hundredMegapixelJPEG() {
  const int side = 10000;
  std::vector<std::uint8_t> grey(static_cast<std::size_t>(side) * side);
  for (int y = 0; y < side; ++y)
    std::fill_n(&grey[static_cast<std::size_t>(y) * side], side, y < side / 2 ? 40 : 220);
  tjhandle tj = tjInitCompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  const int status = tjCompress2(tj, grey.data(), side, 0, side, TJPF_GRAY, &jpeg, &size, TJSAMP_GRAY, 50, 0);
  tjDestroy(tj);
  EXPECT_EQ(status, 0);
  std::vector<std::uint8_t> out(jpeg, jpeg + size);
  tjFree(jpeg);
  return out;
}

TEST(ImageScaling, HundredMegapixelPhotoIsDecodedReduced) {
  EXPECT_EQ(jpegDecodeSizeFor(10000, 10000, 264, 264), (std::pair<int, int>{1250, 1250}));
  // Reduced sizes come in eighths: 1300 needs 2/8.
  EXPECT_EQ(jpegDecodeSizeFor(10000, 10000, 1300, 264), (std::pair<int, int>{2500, 2500}));
  EXPECT_EQ(jpegDecodeSizeFor(100, 100, 264, 264), (std::pair<int, int>{100, 100}));
  EXPECT_EQ(jpegDecodeSizeFor(4000, 3000, 0, 0), (std::pair<int, int>{4000, 3000}));

  testing::TempDir dir;
  const auto path = dir / "huge.jpg";
  ASSERT_FALSE(writeFileAtomically(path, hundredMegapixelJPEG()));

#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "address-space limits do not work under AddressSanitizer";
#endif
  // In a child whose address space cannot hold the full-size pixels
  // (400 MB), a thumbnail must still come out right.
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  statm >> pages;
  const rlim_t limit = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (200u << 20);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The child must never fall back into the test runner: its queues'
    // threads did not survive the fork, and the parent would wait forever.
    try {
      rlimit rl{limit, limit};
      setrlimit(RLIMIT_AS, &rl);
      auto full = Image::readFile(path);
      if (!std::holds_alternative<Error>(full)) _exit(10);  // the limit must bite
      if (!std::get<Error>(full).is(kImageErrorDomain, kImageTooLarge)) _exit(14);
      auto thumb = scaledImageFromFile(path, 264, 264);
      if (!std::holds_alternative<Image>(thumb)) _exit(11);
      const Image& t = std::get<Image>(thumb);
      if (t.width() != 264 || t.height() != 264) _exit(12);
      if (t.pixelAt(132, 10).red > 0.25 || t.pixelAt(132, 250).red < 0.75) _exit(13);
      _exit(0);
    } catch (...) {
      _exit(15);
    }
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace lumeo
