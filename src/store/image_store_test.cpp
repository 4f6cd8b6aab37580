// The image store on a real folder: names used once, checksums that match
// the files, replacing and removing pictures, the launch clean-up, and the
// guarantee that a failed write loses nothing.
#include "store/image_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>

#include "platform/atomic_file.h"
#include "platform/canvas.h"
#include "platform/file_system.h"
#include "platform/md5.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

Image picture(const Color& color, int width = 48, int height = 32) {
  return Image::filled(width, height, color);
}

std::size_t filesIn(const std::filesystem::path& folder) {
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(folder)) ++n;
  return n;
}

TEST(ImageStore, NewImagesGetFreshNamesAndMatchingChecksums) {
  testing::TempDir library;
  ImageStore store(library.path());
  EXPECT_EQ(store.imagesURL(), library / "imageStore");
  EXPECT_TRUE(std::filesystem::is_directory(library / "imageStore"));

  auto first = store.replaceImage(std::nullopt, picture(Color(1, 0.5, 0)));
  ASSERT_TRUE(std::holds_alternative<StoredImage>(first)) << std::get<Error>(first).toString();
  const StoredImage& a = std::get<StoredImage>(first);
  ASSERT_TRUE(a.name);
  EXPECT_TRUE(ImageStore::isImageStoreName(*a.name)) << *a.name;
  EXPECT_EQ(a.checksum.size(), 32u);
  EXPECT_EQ(a.checksum, md5HashOfPath(library / "imageStore" / *a.name));
  EXPECT_EQ(store.checksumForName(a.name), a.checksum);

  // Stored near-losslessly and read back decoded.
  auto image = store.imageForName(a.name);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 48);
  EXPECT_NEAR(image->pixelAt(10, 10).green, 0.5, 2.0 / 255);

  // Saving the same picture again makes a new file and removes the old one.
  auto second = store.replaceImage(a.name, *image);
  ASSERT_TRUE(std::holds_alternative<StoredImage>(second));
  const StoredImage& b = std::get<StoredImage>(second);
  EXPECT_NE(b.name, a.name);
  EXPECT_FALSE(std::filesystem::exists(library / "imageStore" / *a.name));
  auto third = std::get<StoredImage>(store.replaceImage(b.name, *image));
  EXPECT_NE(third.name, b.name);
  EXPECT_EQ(store.allStoredImageNames(), std::vector<std::string>{*third.name});

  // Setting no picture deletes the file, clears the name, empties the checksum.
  auto cleared = store.replaceImage(third.name, std::nullopt);
  ASSERT_TRUE(std::holds_alternative<StoredImage>(cleared));
  EXPECT_EQ(std::get<StoredImage>(cleared), (StoredImage{std::nullopt, ""}));
  EXPECT_EQ(filesIn(library / "imageStore"), 0u);
}

TEST(ImageStore, NamesThatGiveNothing) {
  testing::TempDir library;
  ImageStore store(library.path());
  EXPECT_EQ(store.imageURLForName(std::string()), std::nullopt);
  EXPECT_EQ(store.imageURLForName(std::nullopt), std::nullopt);
  EXPECT_EQ(store.imageForName(std::string()), std::nullopt);
  EXPECT_EQ(store.newNameForImage(std::nullopt), std::nullopt);
  // A name whose file is gone: no picture, and the checksum becomes "".
  const std::string gone = "0123456789abcdef01234567.jpg";
  EXPECT_EQ(store.imageForName(gone), std::nullopt);
  auto reason = store.readImage(gone);
  ASSERT_TRUE(std::holds_alternative<Error>(reason));
  EXPECT_TRUE(std::get<Error>(reason).is(kImageErrorDomain, kImageFileUnreadable));
  EXPECT_EQ(store.checksumForName(gone), "");
  EXPECT_EQ(store.checksumForName(std::nullopt), std::nullopt);
  store.deleteImageWithName(gone);  // no error for a missing file

  // A file in the folder that is not a picture reads as none.
  testing::writeFile(library / "imageStore" / gone, "not a jpeg");
  EXPECT_EQ(store.imageForName(gone), std::nullopt);
  EXPECT_TRUE(std::get<Error>(store.readImage(gone)).is(kImageErrorDomain, kImageUnknownFormat));

  // Names never reach outside the folder.
  testing::writeFile(library / "precious.txt", "keep");
  store.deleteImageWithName(std::string("../precious.txt"));
  EXPECT_TRUE(std::filesystem::exists(library / "precious.txt"));
}

// Makes a file look as if it was last written an hour ago.
void age(const std::filesystem::path& path) {
  std::filesystem::last_write_time(path,
                                   std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
}

TEST(ImageStore, CleanupRemovesEveryFileThatNoRecordNames) {
  testing::TempDir library;
  ImageStore store(library.path());
  const auto folder = library / "imageStore";
  const std::string thumb = *store.newNameForImage(picture(Color(0, 0, 1)));
  const std::string photo = *store.newNameForImage(picture(Color(0, 1, 0)));
  const std::string orphan = *store.newNameForImage(picture(Color(1, 0, 0)));
  // A write cut short by a crash, and a file that is no picture at all.
  testing::writeFile(folder / ".0123456789abcdef01234567.jpg.tmp-ab12cd34", "partial");
  testing::writeFile(folder / "notes.txt", "stray");
  std::filesystem::create_directory(folder / "sub");
  for (const auto& name : {thumb, photo, orphan, std::string(".0123456789abcdef01234567.jpg.tmp-ab12cd34"),
                           std::string("notes.txt")}) {
    age(folder / name);
  }
  // Just written, perhaps by another Lumeo process that has not saved its
  // record yet: spared until a later launch.
  const std::string fresh = *store.newNameForImage(picture(Color(1, 1, 0)));

  const auto doomed = store.clearImageStore([&] { return std::set<std::string>{thumb, photo}; });
  std::vector<std::string> expected{".0123456789abcdef01234567.jpg.tmp-ab12cd34", "notes.txt", orphan};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(doomed, expected);
  store.waitForCleanup();
  for (const auto& name : expected) EXPECT_FALSE(std::filesystem::exists(folder / name)) << name;
  for (const auto& name : {thumb, photo, fresh}) EXPECT_TRUE(std::filesystem::exists(folder / name)) << name;
  EXPECT_TRUE(std::filesystem::is_directory(folder / "sub"));
  EXPECT_EQ(filesIn(folder), 4u);
  EXPECT_TRUE(store.clearImageStore([&] { return std::set<std::string>{thumb, photo}; }).empty());
}

TEST(ImageStore, CleanupOfAnEmptyFolderScansNoRecords) {
  testing::TempDir library;
  ImageStore store(library.path());
  bool scanned = false;
  auto scan = [&] {
    scanned = true;
    return std::set<std::string>{};
  };
  EXPECT_TRUE(store.clearImageStore(scan).empty());  // no folder yet
  store.imagesURL();
  EXPECT_TRUE(store.clearImageStore(scan).empty());  // an empty folder
  EXPECT_FALSE(scanned);
  EXPECT_EQ(std::filesystem::status(library / "imageStore").permissions() & std::filesystem::perms::all,
            std::filesystem::perms::owner_all)
      << "the folder is private";
}

// The fault sweep: fail the first, second, ... file operation of replacing
// a picture until it gets through. After each failure the old picture stands
// whole under its name and checksum and nothing else is in the folder; after
// the success the new picture is there, whole.
TEST(ImageStore, AFailureAtAnyFileOperationLeavesTheOldPictureOrTheNew) {
  testing::TempDir library;
  ImageStore store(library.path());
  const auto folder = library / "imageStore";
  StoredImage current = std::get<StoredImage>(store.replaceImage(std::nullopt, picture(Color(1, 0, 0))));
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem installed(faults);
  int failures = 0;
  for (int n = 1;; ++n) {
    ASSERT_LT(n, 100);
    faults->failAt(n, ENOSPC);
    auto result = store.replaceImage(current.name, picture(Color(0, 0, n / 100.0)));
    const bool fired = faults->faultFired();
    const std::string failed = fired ? faults->operations().back() : "no fault";
    faults->disarm();
    SCOPED_TRACE(failed);
    if (auto* error = std::get_if<Error>(&result)) {
      ++failures;
      EXPECT_TRUE(error->is(kFileErrorDomain, kFileWriteFailed)) << error->toString();
      EXPECT_EQ(store.allStoredImageNames(), std::vector<std::string>{*current.name});
      EXPECT_EQ(filesIn(folder), 1u) << "no temporary file may stay behind";
      EXPECT_EQ(md5HashOfPath(folder / *current.name), current.checksum);
      continue;
    }
    const StoredImage& stored = std::get<StoredImage>(result);
    ASSERT_TRUE(stored.name);
    EXPECT_EQ(md5HashOfPath(folder / *stored.name), stored.checksum);
    ASSERT_TRUE(store.imageForName(stored.name));
    // Only the removal of the old file may fail without failing the
    // replacement: the old file is then an orphan for the next launch.
    if (std::filesystem::exists(folder / *current.name)) {
      EXPECT_EQ(failed.rfind("remove", 0), 0u);
      store.deleteImageWithName(current.name);
    }
    EXPECT_EQ(store.allStoredImageNames(), std::vector<std::string>{*stored.name});
    EXPECT_EQ(filesIn(folder), 1u);
    current = stored;
    if (!fired) break;
  }
  EXPECT_GE(failures, 5) << "create, write, fsync, close, rename";
}

TEST(ImageStore, AFailedWriteKeepsTheOldPicture) {
  testing::TempDir library;
  ImageStore store(library.path());
  const StoredImage old =
      std::get<StoredImage>(store.replaceImage(std::nullopt, picture(Color(1, 0, 0), 8, 8)));

  // A full disk, played by a file size limit in a child process: the new
  // JPEG cannot be written, so the old file, name and checksum must stand.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit rl{200, 200};
    setrlimit(RLIMIT_FSIZE, &rl);
    Canvas noise(400, 400);
    for (int i = 0; i < 400; i += 4)
      noise.fillRect(Rect{double(i), 0, 2, 400}, Color(i / 400.0, 0.3, 1 - i / 400.0));
    auto result = store.replaceImage(old.name, noise.image());
    if (!std::holds_alternative<Error>(result)) _exit(10);
    if (!std::get<Error>(result).is(kFileErrorDomain, kFileWriteFailed)) _exit(11);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(store.allStoredImageNames(), std::vector<std::string>{*old.name});
  EXPECT_EQ(filesIn(library / "imageStore"), 1u) << "no temporary file may stay behind";
  EXPECT_EQ(store.checksumForName(old.name), old.checksum);

  // A library folder that does not exist: the folder is not made with its
  // parents, and the write fails cleanly.
  ImageStore nowhere(library / "missing" / "Library");
  auto failed = nowhere.replaceImage(std::nullopt, picture(Color(0, 0, 0)));
  ASSERT_TRUE(std::holds_alternative<Error>(failed));
  EXPECT_TRUE(std::get<Error>(failed).is(kFileErrorDomain, kFileWriteFailed));
  EXPECT_FALSE(std::filesystem::exists(library / "missing"));
}

TEST(ImageStore, PickedFilesBecomePhotosAndThumbnails) {
  const std::vector<std::pair<std::pair<int, int>, std::pair<int, int>>> sizes = {
      {{4000, 3000}, {640, 480}},  // wide camera photo
      {{3000, 4000}, {640, 853}},  // tall: width decides
      {{1000, 2000}, {430, 860}},  // very tall: height decides
      {{300, 200}, {300, 200}},    // small pictures are never enlarged
      {{0, 10}, {0, 0}},
  };
  for (const auto& [in, out] : sizes) EXPECT_EQ(photoSizeForImageSize(in.first, in.second), out);

  testing::TempDir dir;
  // Stored 1200 × 800 and marked as turned left: shown 800 × 1200.
  Canvas canvas(1200, 800);
  canvas.fillRect(Rect{0, 0, 600, 800}, Color(1, 0, 0));
  canvas.fillRect(Rect{600, 0, 600, 800}, Color(0, 0, 1));
  auto jpeg = std::get<std::vector<std::uint8_t>>(canvas.image().jpegData(0.9));
  const std::vector<std::uint8_t> app1 = {0xFF, 0xE1, 0x00, 0x22, 'E', 'x', 'i', 'f', 0,    0,    'M', 'M',
                                          0,    42,   0,    0,    0,   8,   0,   1,   0x01, 0x12, 0,   3,
                                          0,    0,    0,    1,    0,   8,   0,   0,   0,    0,    0,   0};
  jpeg.insert(jpeg.begin() + 2, app1.begin(), app1.end());
  testing::writeFile(dir / "camera.jpg", std::string(jpeg.begin(), jpeg.end()));

  auto photo = photoFromFile(dir / "camera.jpg");
  ASSERT_TRUE(std::holds_alternative<Image>(photo)) << std::get<Error>(photo).toString();
  EXPECT_EQ(std::get<Image>(photo).width(), 573);
  EXPECT_EQ(std::get<Image>(photo).height(), 860);
  // Upright: the stored left (red) side is now at the bottom.
  EXPECT_GT(std::get<Image>(photo).pixelAt(286, 800).red, 0.8);
  EXPECT_GT(std::get<Image>(photo).pixelAt(286, 50).blue, 0.8);
  auto thumb = thumbnailFromFile(dir / "camera.jpg");
  ASSERT_TRUE(std::holds_alternative<Image>(thumb));
  EXPECT_EQ(std::get<Image>(thumb).width(), kThumbnailSize);
  EXPECT_EQ(std::get<Image>(thumb).height(), kThumbnailSize);

  testing::writeFile(dir / "letter.txt", "Dear diary");
  auto notPicture = photoFromFile(dir / "letter.txt");
  ASSERT_TRUE(std::holds_alternative<Error>(notPicture));
  EXPECT_TRUE(std::get<Error>(notPicture).is(kImageErrorDomain, kImageUnknownFormat));
  auto missing = thumbnailFromFile(dir / "nothing.jpg");
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kImageErrorDomain, kImageFileUnreadable));
}

TEST(ImageStore, SharedStoreIsInstalledByTheApplication) {
  testing::TempDir library;
  ImageStore::setShared(nullptr);
  EXPECT_EQ(ImageStore::shared(), nullptr);
  auto store = std::make_shared<ImageStore>(library.path());
  ImageStore::setShared(store);
  EXPECT_EQ(ImageStore::shared(), store);
  ImageStore::setShared(nullptr);
}

}  // namespace
}  // namespace lumeo
