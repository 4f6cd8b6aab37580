// The zip layer on minizip's 64-bit calls; each failure becomes a
// ZipException with minizip's code.
#include "backup/zip_file.h"

#include <unzip.h>
#include <zip.h>

#include <cmath>
#include <cstring>
#include <ctime>

namespace lumeo {

namespace {

zipFile asZip(void* p) {
  return static_cast<zipFile>(p);
}
unzFile asUnzip(void* p) {
  return static_cast<unzFile>(p);
}

std::string quoted(const std::string& format, const std::string& name) {
  std::string out = format;
  auto at = out.find("%@");
  if (at != std::string::npos) out.replace(at, 2, name);
  return out;
}

}  // namespace

ZipFile::ZipFile(const std::filesystem::path& fileName, ZipFileMode mode)
    : fileName_(fileName.string()), mode_(mode) {
  switch (mode) {
    case ZipFileMode::kUnzip:
      unzip_ = unzOpen64(fileName_.c_str());
      if (!unzip_) throw ZipException(quoted("Cannot open '%@' as a zip file", fileName_), 0);
      break;
    case ZipFileMode::kCreate:
    case ZipFileMode::kAppend:
      zip_ = zipOpen64(fileName_.c_str(),
                       mode == ZipFileMode::kCreate ? APPEND_STATUS_CREATE : APPEND_STATUS_ADDINZIP);
      if (!zip_) throw ZipException(quoted("Cannot open '%@' as a zip file", fileName_), 0);
      break;
  }
}

ZipFile::~ZipFile() {
  // A file never closed on purpose is closed without its directory errors.
  if (zip_) zipClose(asZip(zip_), nullptr);
  if (unzip_) unzClose(asUnzip(unzip_));
}

void ZipFile::requireUnzip() const {
  if (mode_ != ZipFileMode::kUnzip) throw ZipException("Operation not permitted without Unzip mode", 0);
}

void ZipFile::requireZip() const {
  if (mode_ == ZipFileMode::kUnzip) throw ZipException("Operation not permitted with Unzip mode", 0);
}

std::unique_ptr<ZipWriteStream> ZipFile::writeFileInZipWithName(const std::string& name, Date fileDate,
                                                                int compressionLevel,
                                                                const std::optional<std::string>& password,
                                                                std::uint32_t crc32) {
  requireZip();
  zip_fileinfo info{};
  // Zip dates are local wall-clock times without a zone.
  std::time_t seconds = static_cast<std::time_t>(std::floor(fileDate.timeIntervalSince1970()));
  std::tm local{};
  localtime_r(&seconds, &local);
  info.tmz_date.tm_sec = static_cast<uInt>(local.tm_sec);
  info.tmz_date.tm_min = static_cast<uInt>(local.tm_min);
  info.tmz_date.tm_hour = static_cast<uInt>(local.tm_hour);
  info.tmz_date.tm_mday = static_cast<uInt>(local.tm_mday);
  info.tmz_date.tm_mon = static_cast<uInt>(local.tm_mon);
  info.tmz_date.tm_year = static_cast<uInt>(local.tm_year + 1900);
  int err = zipOpenNewFileInZip3_64(asZip(zip_), name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                    compressionLevel != 0 ? Z_DEFLATED : 0, compressionLevel, 0, -MAX_WBITS,
                                    8, Z_DEFAULT_STRATEGY, password ? password->c_str() : nullptr, crc32, 0);
  if (err != ZIP_OK) throw ZipException(quoted("Error in opening '%@' in zipfile", name), err);
  return std::unique_ptr<ZipWriteStream>(new ZipWriteStream(zip_, name));
}

std::unique_ptr<ZipWriteStream> ZipFile::writeFileInZipWithName(const std::string& name, Date fileDate,
                                                                int compressionLevel) {
  return writeFileInZipWithName(name, fileDate, compressionLevel, std::nullopt, 0);
}

std::unique_ptr<ZipWriteStream> ZipFile::writeFileInZipWithName(const std::string& name,
                                                                int compressionLevel) {
  return writeFileInZipWithName(name, Date::now(), compressionLevel);
}

std::uint64_t ZipFile::numFilesInZip() {
  requireUnzip();
  unz_global_info64 info{};
  int err = unzGetGlobalInfo64(asUnzip(unzip_), &info);
  if (err != UNZ_OK) throw ZipException(quoted("Error in getting global info in '%@'", fileName_), err);
  return info.number_entry;
}

std::vector<FileInZipInfo> ZipFile::listFileInZipInfos() {
  std::vector<FileInZipInfo> infos;
  const std::uint64_t count = numFilesInZip();
  if (count == 0) return infos;
  goToFirstFileInZip();
  do {
    infos.push_back(getCurrentFileInZipInfo());
  } while (goToNextFileInZip());
  return infos;
}

void ZipFile::goToFirstFileInZip() {
  requireUnzip();
  int err = unzGoToFirstFile(asUnzip(unzip_));
  if (err != UNZ_OK)
    throw ZipException(quoted("Error in going to first file in zip in '%@'", fileName_), err);
}

bool ZipFile::goToNextFileInZip() {
  requireUnzip();
  int err = unzGoToNextFile(asUnzip(unzip_));
  if (err == UNZ_END_OF_LIST_OF_FILE) return false;
  if (err != UNZ_OK) throw ZipException(quoted("Error in going to next file in zip in '%@'", fileName_), err);
  return true;
}

bool ZipFile::locateFileInZip(const std::string& name) {
  requireUnzip();
  int err = unzLocateFile(asUnzip(unzip_), name.c_str(), 1);
  if (err == UNZ_END_OF_LIST_OF_FILE) return false;
  if (err != UNZ_OK) throw ZipException(quoted("Error in going to next file in zip in '%@'", fileName_), err);
  return true;
}

FileInZipInfo ZipFile::getCurrentFileInZipInfo() {
  requireUnzip();
  unz_file_info64 info{};
  int err = unzGetCurrentFileInfo64(asUnzip(unzip_), &info, nullptr, 0, nullptr, 0, nullptr, 0);
  if (err != UNZ_OK) throw ZipException(quoted("Error in getting current file info in '%@'", fileName_), err);
  // The name exactly as stored, NUL bytes included, so that the caller can
  // refuse such names instead of seeing them cut short.
  std::string name(info.size_filename, '\0');
  if (info.size_filename > 0) {
    err = unzGetCurrentFileInfo64(asUnzip(unzip_), &info, name.data(), info.size_filename, nullptr, 0,
                                  nullptr, 0);
    if (err != UNZ_OK) {
      throw ZipException(quoted("Error in getting current file info in '%@'", fileName_), err);
    }
  }
  FileInZipInfo out;
  out.name = std::move(name);
  out.length = info.uncompressed_size;
  out.size = info.compressed_size;
  out.crc32 = info.crc;
  out.crypted = (info.flag & 1) != 0;
  if (info.compression_method == 0) {
    out.level = 0;
  } else {
    // Bits 1 and 2 of a deflated member tell the class of level it was
    // made with: normal, maximum, fast or super fast.
    switch ((info.flag >> 1) & 3) {
      case 1:
        out.level = 9;
        break;
      case 2:
        out.level = 2;
        break;
      case 3:
        out.level = 1;
        break;
      default:
        out.level = -1;
        break;
    }
  }
  std::tm local{};
  local.tm_sec = static_cast<int>(info.tmu_date.tm_sec);
  local.tm_min = static_cast<int>(info.tmu_date.tm_min);
  local.tm_hour = static_cast<int>(info.tmu_date.tm_hour);
  local.tm_mday = static_cast<int>(info.tmu_date.tm_mday);
  local.tm_mon = static_cast<int>(info.tmu_date.tm_mon);
  local.tm_year = static_cast<int>(info.tmu_date.tm_year) - 1900;
  local.tm_isdst = -1;
  out.date = Date::fromTimeIntervalSince1970(static_cast<double>(std::mktime(&local)));
  return out;
}

std::unique_ptr<ZipReadStream> ZipFile::readCurrentFileInZip() {
  requireUnzip();
  const std::string name = getCurrentFileInZipInfo().name;
  int err = unzOpenCurrentFile(asUnzip(unzip_));
  if (err != UNZ_OK) throw ZipException(quoted("Error in reading '%@' in the zipfile", name), err);
  return std::unique_ptr<ZipReadStream>(new ZipReadStream(unzip_, name));
}

void ZipFile::close() {
  if (zip_) {
    int err = zipClose(asZip(zip_), nullptr);
    zip_ = nullptr;
    if (err != ZIP_OK) throw ZipException(quoted("Error in closing '%@' in the zipfile", fileName_), err);
  }
  if (unzip_) {
    unzClose(asUnzip(unzip_));
    unzip_ = nullptr;
  }
}

void ZipWriteStream::writeData(const void* bytes, std::size_t size) {
  // minizip takes at most 4 GiB less one per call.
  const auto* p = static_cast<const char*>(bytes);
  while (size > 0) {
    const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(size, 1u << 30));
    int err = zipWriteInFileInZip(asZip(zip_), p, chunk);
    if (err != ZIP_OK) throw ZipException(quoted("Error in writing '%@' in the zipfile", name_), err);
    p += chunk;
    size -= chunk;
  }
}

void ZipWriteStream::finishedWriting() {
  int err = zipCloseFileInZip(asZip(zip_));
  if (err != ZIP_OK) throw ZipException(quoted("Error in closing '%@' in the zipfile", name_), err);
}

std::size_t ZipReadStream::readDataWithBuffer(void* buffer, std::size_t length) {
  const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(length, 1u << 30));
  int read = unzReadCurrentFile(asUnzip(unzip_), buffer, chunk);
  if (read < 0) throw ZipException(quoted("Error in reading '%@' in the zipfile", name_), read);
  return static_cast<std::size_t>(read);
}

void ZipReadStream::finishedReading() {
  int err = unzCloseCurrentFile(asUnzip(unzip_));
  if (err != UNZ_OK) throw ZipException(quoted("Error in reading '%@' in the zipfile", name_), err);
}

}  // namespace lumeo
