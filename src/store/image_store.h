// The image store: photos and thumbnails as JPEG files in one flat folder,
// "imageStore" in the library folder, each under a random name used once.
// The database holds only a description's file names and MD5 checksums, so
// it stays small and backups and sync copy the files as they are.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/image.h"

namespace lumeo {

class OperationQueue;

inline constexpr char kImageStoreFolderName[] = "imageStore";
// Every stored picture is re-encoded at this quality.
inline constexpr double kImageStoreJPEGQuality = 0.99;
inline constexpr int kThumbnailSize = 264;
inline constexpr int kPhotoMaxWidth = 640;
inline constexpr int kPhotoMaxHeight = 860;

// The size a picked picture is stored at: within 640 × 860, never enlarged,
// aspect kept. Takes and gives the size as shown (oriented).
std::pair<int, int> photoSizeForImageSize(int width, int height);

// A picture file the user picked, made ready for a description: the photo
// within 640 × 860 and the 264 × 264 thumbnail, both upright. Huge files are
// decoded reduced. Errors of the image domain for unreadable files and for
// files that are not pictures.
OrError<Image> photoFromFile(const std::filesystem::path& path);
OrError<Image> thumbnailFromFile(const std::filesystem::path& path);

// What a description stores for one picture.
struct StoredImage {
  std::optional<std::string> name;  // absent when there is no picture
  std::string checksum;             // MD5 of the file; "" without picture
  friend bool operator==(const StoredImage&, const StoredImage&) = default;
};

// All file operations of the store, through FileSystem::current(). Reads and
// writes run on the calling thread and need no lock, because a file never
// changes once written; the launch clean-up deletes on a queue of its own.
// The folder is private to the user (0700).
class ImageStore {
 public:
  // The store of the journal in `libraryDirectory`.
  explicit ImageStore(std::filesystem::path libraryDirectory);
  ~ImageStore();
  ImageStore(const ImageStore&) = delete;
  ImageStore& operator=(const ImageStore&) = delete;

  // The process-wide store that descriptions use. The application installs
  // it with the library folder at start; until then there is none.
  static std::shared_ptr<ImageStore> shared();
  static void setShared(std::shared_ptr<ImageStore> store);

  // The folder. Each call also tries to make it (not its parents, mode 0700);
  // a failure shows later as a failed write.
  std::filesystem::path imagesURL() const;
  // The file of a name; nothing for an absent or empty name.
  std::optional<std::filesystem::path> imageURLForName(const std::optional<std::string>& name) const;
  // The decoded picture; nothing for an empty name or a missing or
  // unreadable file. readImage gives the reason instead.
  std::optional<Image> imageForName(const std::optional<std::string>& name) const;
  OrError<Image> readImage(const std::string& name) const;
  // Removes the file; nothing happens for an empty name or a missing file.
  void deleteImageWithName(const std::optional<std::string>& name) const;

  // Writes the picture under a new name and returns the name. The file
  // appears whole or not at all.
  OrError<std::string> writeNewImage(const Image& image) const;
  // The same with failures dropped: nothing for an absent picture or a
  // failed write.
  std::optional<std::string> newNameForImage(const std::optional<Image>& image) const;

  // Replacing a description's picture (its thumbnail or its photo): the
  // picture is written under a new name, also when it is the same picture
  // again, and the old file is removed. Without a picture the old file goes
  // and the result is no name and an empty checksum. The new file is
  // written before the old one is removed, so a failed write leaves the
  // old picture in place: the result is then the error and nothing changed.
  OrError<StoredImage> replaceImage(const std::optional<std::string>& oldName,
                                    const std::optional<Image>& image) const;

  // The checksum a description should hold for `name` (after a restore):
  // nothing when there is no name, "" when the file is missing, else the
  // file's MD5.
  std::optional<std::string> checksumForName(const std::optional<std::string>& name) const;

  // The names of the pictures in the folder (names of the store's form),
  // sorted.
  std::vector<std::string> allStoredImageNames() const;

  // Files younger than this are spared by the clean-up: another Lumeo
  // process may be writing a picture whose record it has not saved yet.
  static constexpr double kCleanupGraceSeconds = 60;

  // The launch clean-up. The folder is Lumeo's own: every file in it that no
  // record names is deleted, pictures and anything else (a temporary file
  // left by a crash in the middle of a write, a stray download), except
  // files changed in the last kCleanupGraceSeconds; folders are left alone.
  // `namesInUse` (a scan of all descriptions) is only asked for when the
  // folder holds files. Deletions run on a background queue; the call
  // returns the doomed names, sorted, without waiting. Files written after
  // the listing are safe, since they get names that were not listed.
  std::vector<std::string> clearImageStore(const std::function<std::set<std::string>()>& namesInUse);
  // Waits for the clean-up's deletions (tests, and before the library
  // folder is swapped by a restore).
  void waitForCleanup();

  // True when `name` has the store's form: 24 lowercase hex digits, ".jpg".
  static bool isImageStoreName(const std::string& name);

 private:
  std::filesystem::path folder_;
  std::mutex queueMutex_;
  std::unique_ptr<OperationQueue> cleanupQueue_;
};

}  // namespace lumeo
