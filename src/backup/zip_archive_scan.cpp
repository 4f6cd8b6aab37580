// The archive scan: a bounded parser of the zip structures. Only the end
// record and the central directory are read whole (the directory is bounded
// by the member count); local headers are read one at a time.
#include "backup/zip_archive_scan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "backup/backup_journal_reader.h"

namespace lumeo {

namespace {

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kLocalSize = 30;

std::uint16_t u16(const unsigned char* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
std::uint32_t u32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

Error notAnArchive(const std::filesystem::path& file, const std::string& why) {
  return Error(kBackupErrorDomain, kBackupNotAnArchive,
               file.filename().string() + " is not a backup archive: " + why,
               {{"path", Value(file.string())}});
}

Error hostile(const std::filesystem::path& file, const std::string& why) {
  return Error(kBackupErrorDomain, kBackupHostileArchive,
               file.filename().string() + " was refused and nothing of it was unpacked: " + why,
               {{"path", Value(file.string())}});
}

// A member name for a message: printable, control bytes shown as \xNN.
std::string shown(const std::string& name) {
  std::string out = "\"";
  for (unsigned char c : name.substr(0, 200)) {
    if (c < 0x20 || c == 0x7f) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\x%02x", c);
      out += buffer;
    } else {
      out += static_cast<char>(c);
    }
  }
  if (name.size() > 200) out += "...";
  return out + "\"";
}

struct File {
  int fd = -1;
  ~File() {
    if (fd >= 0) ::close(fd);
  }
  bool readAt(std::uint64_t offset, void* buffer, std::size_t size) const {
    auto* p = static_cast<char*>(buffer);
    while (size > 0) {
      ssize_t n = ::pread(fd, p, size, static_cast<off_t>(offset));
      if (n <= 0) return false;
      p += n;
      size -= static_cast<std::size_t>(n);
      offset += static_cast<std::uint64_t>(n);
    }
    return true;
  }
};

struct Entry {
  ScannedMember member;
  std::uint16_t method = 0;
  std::uint16_t flags = 0;
  std::uint64_t localOffset = 0;
};

}  // namespace

std::optional<ScannedMember> backupMemberForName(const std::string& name) {
  std::string path = name;
  // The phone app's members begin with "/": they are below the working
  // folder all the same. One slash only; "//x" is not a layout name.
  if (!path.empty() && path[0] == '/') path.erase(0, 1);
  if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
  ScannedMember member;
  member.name = name;
  member.relativePath = path;
  static const std::pair<const char*, BackupMemberKind> kDocuments[] = {
      {"backup.json", BackupMemberKind::kJournalDocument},
      {"moods.json", BackupMemberKind::kMoodsDocument},
      {"reminders.json", BackupMemberKind::kRemindersDocument},
      {"colors.json", BackupMemberKind::kColorsDocument},
      {"emotions.xml", BackupMemberKind::kEmotionsDocument},
      {"Model.sqlite", BackupMemberKind::kStoreFile},
  };
  for (const auto& [document, kind] : kDocuments) {
    if (path == document) {
      member.kind = kind;
      return member;
    }
  }
  const std::string folder = "imageStore/";
  if (path == folder) {
    member.kind = BackupMemberKind::kImageFolder;
    return member;
  }
  if (path.rfind(folder, 0) == 0) {
    const std::string file = path.substr(folder.size());
    if (file.empty() || file == "." || file == ".." || file.find('/') != std::string::npos ||
        file.find('\\') != std::string::npos || file.size() > 255) {
      return std::nullopt;
    }
    member.kind = BackupMemberKind::kImage;
    return member;
  }
  return std::nullopt;
}

std::variant<ScannedArchive, Error> scanBackupArchive(const std::filesystem::path& archive) {
  File file;
  file.fd = ::open(archive.c_str(), O_RDONLY | O_CLOEXEC);
  if (file.fd < 0) {
    const int err = errno;
    return Error(kBackupErrorDomain, kBackupNotAnArchive,
                 "cannot open " + archive.string() + ": " + std::strerror(err),
                 {{"path", Value(archive.string())}});
  }
  struct stat st {};
  if (::fstat(file.fd, &st) != 0 || !S_ISREG(st.st_mode)) return notAnArchive(archive, "it is not a file");
  const std::uint64_t fileSize = static_cast<std::uint64_t>(st.st_size);
  if (fileSize == 0) return notAnArchive(archive, "the file is empty");
  if (fileSize < kEndSize) return notAnArchive(archive, "the file is too short to be a zip archive");

  // The end record is within the last 64 KiB + 22 bytes (its comment is at
  // most 64 KiB); the last signature found wins.
  const std::uint64_t tail = std::min<std::uint64_t>(fileSize, 65535 + kEndSize);
  std::vector<unsigned char> buffer(tail);
  if (!file.readAt(fileSize - tail, buffer.data(), buffer.size()))
    return notAnArchive(archive, "it cannot be read");
  std::optional<std::size_t> endAt;
  for (std::size_t i = tail - kEndSize + 1; i-- > 0;) {
    if (u32(&buffer[i]) == kEndSignature) {
      endAt = i;
      break;
    }
  }
  if (!endAt) {
    unsigned char head[4] = {};
    if (file.readAt(0, head, 4) && u32(head) == kLocalSignature) {
      return notAnArchive(archive, "the archive is cut short (its directory of members is missing)");
    }
    return notAnArchive(archive, "it is not a zip archive");
  }
  const unsigned char* end = &buffer[*endAt];
  const std::uint64_t endOffset = fileSize - tail + *endAt;
  const std::uint16_t disk = u16(end + 4), cdDisk = u16(end + 6);
  const std::uint64_t countHere = u16(end + 8), count = u16(end + 10);
  const std::uint64_t cdSize = u32(end + 12), cdOffset = u32(end + 16);
  if (count == 0xffff || cdSize == 0xffffffff || cdOffset == 0xffffffff) {
    // The 64-bit end records: read only for the member count they claim.
    unsigned char locator[20];
    if (endOffset >= 20 && file.readAt(endOffset - 20, locator, 20) && u32(locator) == 0x07064b50) {
      std::uint64_t recordOffset = 0;
      for (int i = 7; i >= 0; --i) recordOffset = (recordOffset << 8) | locator[8 + i];
      unsigned char record[56];
      if (recordOffset + 56 <= endOffset && file.readAt(recordOffset, record, 56) &&
          u32(record) == 0x06064b50) {
        std::uint64_t total = 0;
        for (int i = 7; i >= 0; --i) total = (total << 8) | record[32 + i];
        if (total > kBackupMaxMembers) {
          return hostile(archive, "it has " + std::to_string(total) + " members, more than the " +
                                      std::to_string(kBackupMaxMembers) + " a backup may hold");
        }
      }
    }
    return hostile(archive, "it uses the 64-bit zip format, which no journal backup needs");
  }
  if (disk != 0 || cdDisk != 0 || countHere != count) return hostile(archive, "it spans several disks");
  if (count > kBackupMaxMembers) {
    return hostile(archive, "it has " + std::to_string(count) + " members, more than the " +
                                std::to_string(kBackupMaxMembers) + " a backup may hold");
  }
  if (cdOffset + cdSize > endOffset) {
    return notAnArchive(archive, "the archive is cut short (its directory of members is truncated)");
  }
  // The directory is read whole; a journal's is far below this bound.
  if (cdSize > kBackupMaxMembers * 1024) {
    return hostile(archive, "its directory of members is " + std::to_string(cdSize >> 20) +
                                " MiB, far more than a backup's");
  }
  std::vector<unsigned char> cd(cdSize);
  if (cdSize > 0 && !file.readAt(cdOffset, cd.data(), cd.size())) {
    return notAnArchive(archive, "the directory of members cannot be read");
  }

  std::vector<Entry> entries;
  entries.reserve(count);
  std::set<std::string> seen;
  ScannedArchive result;
  std::size_t at = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    if (at + kCentralSize > cd.size() || u32(&cd[at]) != kCentralSignature) {
      return notAnArchive(archive, "the archive is cut short (its directory of members is truncated)");
    }
    const unsigned char* h = &cd[at];
    const std::uint16_t madeBy = u16(h + 4);
    const std::uint16_t flags = u16(h + 8);
    const std::uint16_t method = u16(h + 10);
    const std::uint32_t crc = u32(h + 16);
    const std::uint64_t compressed = u32(h + 20), uncompressed = u32(h + 24);
    const std::size_t nameLength = u16(h + 28), extraLength = u16(h + 30), commentLength = u16(h + 32);
    const std::uint32_t external = u32(h + 38);
    const std::uint64_t localOffset = u32(h + 42);
    if (at + kCentralSize + nameLength + extraLength + commentLength > cd.size()) {
      return notAnArchive(archive, "the archive is cut short (its directory of members is truncated)");
    }
    const std::string name(reinterpret_cast<const char*>(h + kCentralSize), nameLength);
    at += kCentralSize + nameLength + extraLength + commentLength;

    if (name.find('\0') != std::string::npos)
      return hostile(archive, "a member name holds a NUL byte: " + shown(name));
    if (name.find('\\') != std::string::npos)
      return hostile(archive, "a member name holds a backslash: " + shown(name));
    std::string path = name;
    if (!path.empty() && path[0] == '/') path.erase(0, 1);
    if (path == ".." || path.rfind("../", 0) == 0 || path.find("/../") != std::string::npos ||
        (path.size() >= 3 && path.compare(path.size() - 3, 3, "/..") == 0)) {
      return hostile(archive, "member " + shown(name) + " points outside the backup's folder");
    }
    auto member = backupMemberForName(name);
    if (!member) {
      if (!name.empty() && name[0] == '/' && name.find('/', 1) != std::string::npos &&
          name.rfind("/imageStore/", 0) != 0) {
        return hostile(archive,
                       "member " + shown(name) + " has an absolute path outside the backup's layout");
      }
      return hostile(archive, "member " + shown(name) + " is not part of a Lumeo backup");
    }
    // Symbolic links: Unix attributes in the high half of the external ones.
    const unsigned system = madeBy >> 8;
    if (system == 3 && ((external >> 16) & S_IFMT) == S_IFLNK) {
      return hostile(archive, "member " + shown(name) + " is a symbolic link");
    }
    if (!seen.insert(member->relativePath).second) {
      return hostile(archive, "member " + shown(name) + " appears twice");
    }
    if (flags & 1) return hostile(archive, "member " + shown(name) + " is encrypted");
    if (method != 0 && method != 8) {
      return hostile(archive, "member " + shown(name) + " uses a compression method Lumeo does not read");
    }
    if (method == 0 && compressed != uncompressed) {
      return hostile(archive, "stored member " + shown(name) + " gives two different sizes");
    }
    if (uncompressed > kBackupMaxMemberSize) {
      return hostile(archive, "member " + shown(name) + " would unpack to " +
                                  std::to_string(uncompressed >> 20) + " MiB, more than a backup holds");
    }
    if (uncompressed > kBackupRatioCheckFloor &&
        uncompressed / std::max<std::uint64_t>(compressed, 1) > kBackupMaxRatio) {
      return hostile(archive, "member " + shown(name) + " would unpack to " +
                                  std::to_string(uncompressed >> 20) + " MiB from " +
                                  std::to_string(compressed >> 10) + " KiB (a zip bomb)");
    }
    result.totalUncompressed += uncompressed;
    if (result.totalUncompressed > kBackupMaxTotalSize) {
      return hostile(archive, "the members would unpack to more than " +
                                  std::to_string(kBackupMaxTotalSize >> 30) + " GiB");
    }
    member->compressedSize = compressed;
    member->uncompressedSize = uncompressed;
    member->crc32 = crc;
    entries.push_back({*member, method, flags, localOffset});
  }

  // A directory longer than its members: the count was cut to 16 bits.
  if (at != cd.size()) {
    return hostile(archive, "its directory holds more members than it declares (more than " +
                                std::to_string(count) + ")");
  }

  // Local headers: where the data really is. They must tell the same name,
  // method and (without a data descriptor) sizes and CRC, and the members'
  // data must neither overlap nor run into the directory.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  for (const Entry& entry : entries) {
    unsigned char h[kLocalSize];
    if (entry.localOffset + kLocalSize > cdOffset || !file.readAt(entry.localOffset, h, kLocalSize) ||
        u32(h) != kLocalSignature) {
      return hostile(archive,
                     "member " + shown(entry.member.name) + " has no local header where the directory says");
    }
    const std::size_t nameLength = u16(h + 26), extraLength = u16(h + 28);
    std::string localName(nameLength, '\0');
    if (nameLength > 0 && !file.readAt(entry.localOffset + kLocalSize, localName.data(), nameLength)) {
      return notAnArchive(archive, "the archive is cut short");
    }
    const std::uint16_t localFlags = u16(h + 6), localMethod = u16(h + 8);
    bool same = localName == entry.member.name && localMethod == entry.method &&
                (localFlags & 1) == (entry.flags & 1);
    if (same && !(localFlags & 8)) {
      same = u32(h + 14) == entry.member.crc32 && u32(h + 18) == entry.member.compressedSize &&
             u32(h + 22) == entry.member.uncompressedSize;
    }
    if (!same) {
      return hostile(archive, "the local header of member " + shown(entry.member.name) +
                                  " does not match the directory's entry");
    }
    const std::uint64_t dataStart = entry.localOffset + kLocalSize + nameLength + extraLength;
    const std::uint64_t dataEnd = dataStart + entry.member.compressedSize;
    if (dataEnd > cdOffset) {
      return notAnArchive(archive,
                          "the archive is cut short (member " + shown(entry.member.name) + " is incomplete)");
    }
    ranges.emplace_back(entry.localOffset, dataEnd);
    result.members.push_back(entry.member);
  }
  std::sort(ranges.begin(), ranges.end());
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    if (ranges[i].first < ranges[i - 1].second) return hostile(archive, "two members share the same data");
  }
  return result;
}

}  // namespace lumeo
