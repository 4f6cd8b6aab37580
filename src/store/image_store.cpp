// Files of the image store: random names, atomic JPEG writes, checksums and
// the launch clean-up.
#include "store/image_store.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>

#include "platform/atomic_file.h"
#include "platform/dispatch_queue.h"
#include "platform/file_system.h"
#include "platform/md5.h"

namespace lumeo {

namespace {

std::mutex sharedMutex;
std::shared_ptr<ImageStore>& sharedSlot() {
  static std::shared_ptr<ImageStore> store;
  return store;
}

std::string randomImageName() {
  // Three independent 32-bit numbers from the system's entropy source, as
  // names must not repeat across devices that share a journal.
  static thread_local std::random_device device;
  char name[32];
  std::snprintf(name, sizeof name, "%08x%08x%08x.jpg", static_cast<unsigned>(device()),
                static_cast<unsigned>(device()), static_cast<unsigned>(device()));
  return name;
}

bool hasName(const std::optional<std::string>& name) {
  return name && !name->empty();
}

}  // namespace

std::pair<int, int> photoSizeForImageSize(int width, int height) {
  if (width <= 0 || height <= 0) return {0, 0};
  const double s = std::min(
      {static_cast<double>(kPhotoMaxWidth) / width, static_cast<double>(kPhotoMaxHeight) / height, 1.0});
  return {std::max(1, static_cast<int>(std::lround(width * s))),
          std::max(1, static_cast<int>(std::lround(height * s)))};
}

OrError<Image> photoFromFile(const std::filesystem::path& path) {
  auto bytes = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&bytes)) {
    return Error(kImageErrorDomain, kImageFileUnreadable, error->description, error->userInfo);
  }
  auto info = Image::probe(std::get<std::vector<std::uint8_t>>(bytes));
  if (auto* error = std::get_if<Error>(&info)) return *error;
  // Sizes are of the picture as shown, which is turned for sideways files.
  const ImageInfo& i = std::get<ImageInfo>(info);
  const bool sideways =
      i.orientation == ImageOrientation::kLeft || i.orientation == ImageOrientation::kRight ||
      i.orientation == ImageOrientation::kLeftMirrored || i.orientation == ImageOrientation::kRightMirrored;
  const auto [w, h] = photoSizeForImageSize(sideways ? i.height : i.width, sideways ? i.width : i.height);
  return scaledImageFromFile(path, w, h);
}

OrError<Image> thumbnailFromFile(const std::filesystem::path& path) {
  return scaledImageFromFile(path, kThumbnailSize, kThumbnailSize);
}

ImageStore::ImageStore(std::filesystem::path libraryDirectory)
    : folder_(std::move(libraryDirectory) / kImageStoreFolderName) {}

ImageStore::~ImageStore() {
  waitForCleanup();
}

std::shared_ptr<ImageStore> ImageStore::shared() {
  std::lock_guard lock(sharedMutex);
  return sharedSlot();
}

void ImageStore::setShared(std::shared_ptr<ImageStore> store) {
  std::lock_guard lock(sharedMutex);
  sharedSlot() = std::move(store);
}

std::filesystem::path ImageStore::imagesURL() const {
  (void)FileSystem::current()->makeFolder(folder_, kPrivateFolderMode);
  return folder_;
}

std::optional<std::filesystem::path> ImageStore::imageURLForName(
    const std::optional<std::string>& name) const {
  if (!hasName(name)) return std::nullopt;
  return imagesURL() / *name;
}

OrError<Image> ImageStore::readImage(const std::string& name) const {
  if (name.empty()) return Error(kImageErrorDomain, kImageFileUnreadable, "No image name");
  return Image::readFile(imagesURL() / name);
}

std::optional<Image> ImageStore::imageForName(const std::optional<std::string>& name) const {
  if (!hasName(name)) return std::nullopt;
  auto result = readImage(*name);
  if (auto* image = std::get_if<Image>(&result)) return std::move(*image);
  return std::nullopt;
}

void ImageStore::deleteImageWithName(const std::optional<std::string>& name) const {
  if (!hasName(name)) return;
  // A name is a bare file name; anything with a path in it is not ours.
  if (std::filesystem::path(*name).filename() != *name) return;
  (void)FileSystem::current()->removeFile(folder_ / *name);
}

OrError<std::string> ImageStore::writeNewImage(const Image& image) const {
  if (image.empty()) return Error(kImageErrorDomain, kImageEmpty, "There is no picture to store");
  auto jpeg = image.jpegData(kImageStoreJPEGQuality);
  if (auto* error = std::get_if<Error>(&jpeg)) return *error;
  const std::filesystem::path folder = imagesURL();
  const std::shared_ptr<FileSystem> fs = FileSystem::current();
  std::string name;
  do {
    name = randomImageName();
  } while (fs->exists(folder / name));
  if (auto error = writeFileAtomically(folder / name, std::get<std::vector<std::uint8_t>>(jpeg)))
    return *error;
  return name;
}

std::optional<std::string> ImageStore::newNameForImage(const std::optional<Image>& image) const {
  if (!image) return std::nullopt;
  auto result = writeNewImage(*image);
  if (auto* name = std::get_if<std::string>(&result)) return *name;
  return std::nullopt;
}

OrError<StoredImage> ImageStore::replaceImage(const std::optional<std::string>& oldName,
                                              const std::optional<Image>& image) const {
  StoredImage stored;
  if (image && !image->empty()) {
    auto written = writeNewImage(*image);
    if (auto* error = std::get_if<Error>(&written)) return *error;
    stored.name = std::get<std::string>(written);
    stored.checksum = md5HashOfPath(folder_ / *stored.name);
  }
  if (oldName != stored.name) deleteImageWithName(oldName);
  return stored;
}

std::optional<std::string> ImageStore::checksumForName(const std::optional<std::string>& name) const {
  auto path = imageURLForName(name);
  if (!path) return std::nullopt;
  return md5HashOfPath(*path);
}

bool ImageStore::isImageStoreName(const std::string& name) {
  if (name.size() != 28 || name.compare(24, 4, ".jpg") != 0) return false;
  return std::all_of(name.begin(), name.begin() + 24,
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::vector<std::string> ImageStore::allStoredImageNames() const {
  std::vector<std::string> names;
  auto entries = FileSystem::current()->listFolder(imagesURL());
  if (auto* list = std::get_if<std::vector<FolderEntry>>(&entries)) {
    for (const FolderEntry& entry : *list) {
      if (!entry.isFolder && isImageStoreName(entry.name)) names.push_back(entry.name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> ImageStore::clearImageStore(
    const std::function<std::set<std::string>()>& namesInUse) {
  const std::shared_ptr<FileSystem> fs = FileSystem::current();
  std::vector<std::string> files;
  // No folder yet, or one that cannot be listed: nothing to clean.
  auto entries = fs->listFolder(folder_);
  if (auto* list = std::get_if<std::vector<FolderEntry>>(&entries)) {
    for (FolderEntry& entry : *list) {
      if (!entry.isFolder) files.push_back(std::move(entry.name));
    }
  }
  // A journal without pictures costs no scan of its descriptions.
  if (files.empty()) return {};
  const std::set<std::string> inUse = namesInUse();
  // File times come from the system clock, whatever clock the journal runs on.
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  std::vector<std::string> orphans;
  for (std::string& name : files) {
    if (inUse.count(name)) continue;
    auto status = fs->status(folder_ / name);
    const auto* s = std::get_if<FileStatus>(&status);
    if (!s || s->isFolder || now - s->modified < kCleanupGraceSeconds) continue;
    orphans.push_back(std::move(name));
  }
  std::sort(orphans.begin(), orphans.end());
  if (orphans.empty()) return orphans;
  std::lock_guard lock(queueMutex_);
  if (!cleanupQueue_) cleanupQueue_ = std::make_unique<OperationQueue>(1, "lumeo.imageStore.cleanup");
  for (const std::string& name : orphans) {
    cleanupQueue_->addOperation([this, name] { deleteImageWithName(name); });
  }
  return orphans;
}

void ImageStore::waitForCleanup() {
  std::lock_guard lock(queueMutex_);
  if (cleanupQueue_) cleanupQueue_->waitUntilAllOperationsAreFinished();
}

}  // namespace lumeo
