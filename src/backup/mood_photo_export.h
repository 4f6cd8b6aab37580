// The photos of a date range as files to hand out: each record's photo
// under a name made of its date and time ("November 20, 2026 at 9:30:15 AM.jpg"),
// and the comparison with what a destination already holds, so that only
// new or changed photos are sent. The comparison is a pure function; the
// export to a local folder uses it now, a cloud destination will later.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "platform/error.h"

namespace lumeo {

class JournalStore;

// What a destination holds: a file name and its size in bytes.
struct PhotoEntry {
  std::string name;
  std::uintmax_t size = 0;
  friend bool operator==(const PhotoEntry&, const PhotoEntry&) = default;
};

// What to do with a destination.
struct PhotoComparison {
  // Local names still to send, with their files, in name order.
  std::vector<std::pair<std::string, std::filesystem::path>> toSend;
  // Destination entries to remove before sending: same name (up to case)
  // but another size.
  std::vector<std::string> toDelete;
  // Local names already there with the same size.
  std::vector<std::string> unchanged;
};

// The form in which names are compared: lower case.
std::string photoNameKey(const std::string& name);

class MoodPhotoExport {
 public:
  // Name → photo file for the records in [from, to] that have a photo, read
  // through a fresh context. Two records in the same second give one name;
  // the later one (in date order) wins. A "/" that a locale's date might
  // hold becomes "-", so that every name is one file name.
  static std::map<std::string, std::filesystem::path> createPhotoURLFrom(JournalStore& store, Date from,
                                                                         Date to);

  // Compares the destination's entries with the local list. Names match in
  // lower case. A match with the same size needs nothing; a match with
  // another size is deleted there and sent anew; whatever is left is sent.
  // `localSize` gives a local file's size (nothing when it cannot be read:
  // such a file is neither sent nor counted as there).
  static PhotoComparison comparePhotos(
      const std::vector<PhotoEntry>& remote, const std::map<std::string, std::filesystem::path>& local,
      const std::function<std::optional<std::uintmax_t>(const std::filesystem::path&)>& localSize);

  // The JPEG files directly in a folder (names ending in ".jpg" in any case).
  static std::variant<std::vector<PhotoEntry>, Error> listFolder(const std::filesystem::path& folder);
};

}  // namespace lumeo
