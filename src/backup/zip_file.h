// A thin object layer over minizip: a zip file opened to read its members
// or to write new ones, a stream per member, the facts of one member, and
// ZipException for every failure of the library. The backup archive is
// made and read through it; it checks nothing beyond what minizip checks
// (the archive scan of zip_archive_scan.h decides what may be unpacked).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/date.h"

namespace lumeo {

// A failure of the zip layer: the reason as the user may read it and
// minizip's result code (0 when the failure was not minizip's).
class ZipException : public std::runtime_error {
 public:
  ZipException(const std::string& reason, std::int64_t error)
      : std::runtime_error(reason), reason_(reason), error_(error) {}
  static constexpr const char* kName = "ZipException";
  const std::string& reason() const { return reason_; }
  std::int64_t error() const { return error_; }

 private:
  std::string reason_;
  std::int64_t error_;
};

// One member as the central directory describes it.
struct FileInZipInfo {
  std::string name;
  std::uint64_t length = 0;  // uncompressed size
  std::int32_t level = 0;    // 0 stored, else the deflate level class
  bool crypted = false;
  std::uint64_t size = 0;  // compressed size
  Date date;               // in the current zone, as zip dates have none
  std::uint64_t crc32 = 0;
};

enum class ZipFileMode { kUnzip = 0, kCreate = 1, kAppend = 2 };

class ZipFile;

// Data of one new member. finishedWriting() ends it; dropping the stream
// without it leaves the member unfinished (the archive is then useless and
// its maker deletes it).
class ZipWriteStream {
 public:
  void writeData(const void* bytes, std::size_t size);
  void finishedWriting();

 private:
  friend class ZipFile;
  ZipWriteStream(void* zip, std::string name) : zip_(zip), name_(std::move(name)) {}
  void* zip_;
  std::string name_;
};

// The data of the current member, inflated and checked against its CRC
// when the last byte has been read (finishedReading reports a mismatch).
class ZipReadStream {
 public:
  // Fills `buffer` up to `length` bytes; the number read, 0 at the end.
  std::size_t readDataWithBuffer(void* buffer, std::size_t length);
  void finishedReading();

 private:
  friend class ZipFile;
  ZipReadStream(void* unzip, std::string name) : unzip_(unzip), name_(std::move(name)) {}
  void* unzip_;
  std::string name_;
};

class ZipFile {
 public:
  // Opens the archive: to read it (kUnzip), or to write a new one (kCreate)
  // or add to one (kAppend). Throws ZipException when it cannot.
  ZipFile(const std::filesystem::path& fileName, ZipFileMode mode);
  ~ZipFile();
  ZipFile(const ZipFile&) = delete;
  ZipFile& operator=(const ZipFile&) = delete;

  // A new member; `compressionLevel` 0 stores the data as it is, 1 to 9
  // deflate it. Names are written as given (the backup's begin with "/").
  std::unique_ptr<ZipWriteStream> writeFileInZipWithName(const std::string& name, Date fileDate,
                                                         int compressionLevel);
  std::unique_ptr<ZipWriteStream> writeFileInZipWithName(const std::string& name, int compressionLevel);
  std::unique_ptr<ZipWriteStream> writeFileInZipWithName(const std::string& name, Date fileDate,
                                                         int compressionLevel,
                                                         const std::optional<std::string>& password,
                                                         std::uint32_t crc32);

  std::uint64_t numFilesInZip();
  std::vector<FileInZipInfo> listFileInZipInfos();
  void goToFirstFileInZip();
  // False after the last member.
  bool goToNextFileInZip();
  bool locateFileInZip(const std::string& name);
  FileInZipInfo getCurrentFileInZipInfo();
  std::unique_ptr<ZipReadStream> readCurrentFileInZip();

  // Writes the central directory (create and append modes) and closes the
  // file. Later calls do nothing.
  void close();

 private:
  void requireUnzip() const;
  void requireZip() const;

  std::string fileName_;
  ZipFileMode mode_;
  void* zip_ = nullptr;
  void* unzip_ = nullptr;
};

}  // namespace lumeo
