// Property-list file storage of the settings: conversion between Value and
// libplist nodes, locked read-modify-write, atomic replacement of the file.
#include "platform/linux/plist_user_defaults.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "platform/linux/data_directories.h"
#include "platform/log.h"

namespace lumeo {

namespace {

// ---------------------------------------------------------------------------
// Small RAII helpers.

struct PlistDeleter {
  void operator()(plist_t p) const {
    if (p) plist_free(p);
  }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

Error writeError(const std::string& what, const std::filesystem::path& path, int err) {
  return Error(kUserDefaultsErrorDomain, kUserDefaultsWriteFailed,
               "could not " + what + " " + path.string() + ": " + std::strerror(err));
}

// ---------------------------------------------------------------------------
// Value <-> plist

constexpr double kMinDateSeconds = static_cast<double>(std::numeric_limits<std::int32_t>::min());
constexpr double kMaxDateSeconds = static_cast<double>(std::numeric_limits<std::int32_t>::max());

plist_t toPlist(const Value& value) {
  switch (value.type()) {
    case Value::Type::kNull:
      return nullptr;
    case Value::Type::kBool:
      return plist_new_bool(value.toBool() ? 1 : 0);
    case Value::Type::kInteger:
      return plist_new_uint(static_cast<std::uint64_t>(value.toInt()));
    case Value::Type::kReal:
      return plist_new_real(value.toDouble());
    case Value::Type::kString:
      return plist_new_string(value.asString()->c_str());
    case Value::Type::kDate: {
      double seconds = std::floor(value.asDate()->timeIntervalSinceReferenceDate());
      return plist_new_date(static_cast<std::int32_t>(seconds), 0);
    }
    case Value::Type::kData: {
      const Value::Data& d = *value.asData();
      return plist_new_data(reinterpret_cast<const char*>(d.data()), d.size());
    }
    case Value::Type::kArray: {
      plist_t a = plist_new_array();
      for (const Value& v : *value.asArray()) {
        if (plist_t item = toPlist(v)) plist_array_append_item(a, item);
      }
      return a;
    }
    case Value::Type::kDictionary: {
      plist_t d = plist_new_dict();
      for (const auto& [k, v] : *value.asDictionary()) {
        if (plist_t item = toPlist(v)) plist_dict_set_item(d, k.c_str(), item);
      }
      return d;
    }
  }
  return nullptr;
}

// Settings nest a few levels at most; a file nested deeper than this is
// damaged, and following it would only exhaust the stack.
constexpr int kMaxNesting = 256;

// Nothing for node kinds a Value cannot hold, and for containers nested
// deeper than kMaxNesting.
std::optional<Value> fromPlist(plist_t node, int depth = 0) {
  if (depth > kMaxNesting) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      std::uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<long long>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING: {
      std::uint64_t length = 0;
      const char* s = plist_get_string_ptr(node, &length);
      return Value(s ? std::string(s, length) : std::string());
    }
    case PLIST_DATE: {
      std::int32_t sec = 0;
      std::int32_t usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date::fromTimeIntervalSinceReferenceDate(sec + usec / 1e6));
    }
    case PLIST_DATA: {
      char* bytes = nullptr;
      std::uint64_t length = 0;
      plist_get_data_val(node, &bytes, &length);
      Value::Data d(reinterpret_cast<std::uint8_t*>(bytes), reinterpret_cast<std::uint8_t*>(bytes) + length);
      std::free(bytes);
      return Value(std::move(d));
    }
    case PLIST_ARRAY: {
      Value::Array a;
      std::uint32_t n = plist_array_get_size(node);
      for (std::uint32_t i = 0; i < n; ++i) {
        if (auto v = fromPlist(plist_array_get_item(node, i), depth + 1)) a.push_back(std::move(*v));
      }
      return Value(std::move(a));
    }
    case PLIST_DICT: {
      Value::Dictionary d;
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, it, &key, &item);
        if (!item) {
          std::free(key);
          break;
        }
        if (auto v = fromPlist(item, depth + 1)) d.emplace(key ? key : "", std::move(*v));
        std::free(key);
      }
      std::free(it);
      return Value(std::move(d));
    }
    default:
      return std::nullopt;
  }
}

bool isValidText(const std::string& s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    unsigned char c = *p;
    if (c < 0x80) {
      if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') return false;
      if (c == 0x7f) return false;
      ++p;
      continue;
    }
    int extra;
    std::uint32_t cp;
    if ((c & 0xe0) == 0xc0) {
      extra = 1;
      cp = c & 0x1f;
    } else if ((c & 0xf0) == 0xe0) {
      extra = 2;
      cp = c & 0x0f;
    } else if ((c & 0xf8) == 0xf0) {
      extra = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (end - p <= extra) return false;
    for (int i = 1; i <= extra; ++i) {
      if ((p[i] & 0xc0) != 0x80) return false;
      cp = (cp << 6) | (p[i] & 0x3f);
    }
    static constexpr std::uint32_t kMinForLength[] = {0, 0x80, 0x800, 0x10000};
    if (cp < kMinForLength[extra] || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return false;
    p += extra + 1;
  }
  return true;
}

OptionalError invalid(const std::string& why) {
  return Error(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue, why);
}

OptionalError validateValue(const Value& value) {
  switch (value.type()) {
    case Value::Type::kReal:
      if (!std::isfinite(value.toDouble())) return invalid("a number that is not finite cannot be kept");
      break;
    case Value::Type::kString:
      if (!isValidText(*value.asString())) {
        return invalid("text that is not UTF-8 or holds control characters cannot be kept");
      }
      break;
    case Value::Type::kDate: {
      double s = std::floor(value.asDate()->timeIntervalSinceReferenceDate());
      if (!(s >= kMinDateSeconds && s <= kMaxDateSeconds)) {
        return invalid("dates before 13 December 1932 or after 19 January 2069 cannot be kept");
      }
      break;
    }
    case Value::Type::kArray:
      for (const Value& v : *value.asArray()) {
        if (OptionalError e = validateValue(v)) return e;
      }
      break;
    case Value::Type::kDictionary:
      for (const auto& [k, v] : *value.asDictionary()) {
        if (!isValidText(k))
          return invalid("a key that is not UTF-8 or holds control characters cannot be kept");
        if (OptionalError e = validateValue(v)) return e;
      }
      break;
    default:
      break;
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// Reading the file

// Whether the XML text opens at most kMaxNesting containers at once. The
// property-list parser recurses per level, so a damaged file of a million
// nested arrays would crash it; such a file is unreadable instead.
bool xmlNestingIsSane(const std::string& bytes) {
  int depth = 0;
  for (std::size_t i = bytes.find('<'); i != std::string::npos; i = bytes.find('<', i + 1)) {
    std::string_view tag(bytes.data() + i + 1, std::min<std::size_t>(7, bytes.size() - i - 1));
    bool closing = !tag.empty() && tag.front() == '/';
    if (closing) tag.remove_prefix(1);
    if (!tag.starts_with("array") && !tag.starts_with("dict")) continue;
    std::size_t end = bytes.find('>', i);
    if (end != std::string::npos && end > 0 && bytes[end - 1] == '/') continue;  // <array/>
    depth += closing ? -1 : 1;
    if (depth > kMaxNesting) return false;
  }
  return true;
}

enum class FileState { kMissing, kEmpty, kReadable, kUnreadable };

struct ReadResult {
  FileState state = FileState::kMissing;
  PlistPtr root;  // a dictionary when kReadable
  int error = 0;  // errno when the file exists but could not be read
};

ReadResult readFile(const std::filesystem::path& path) {
  ReadResult result;
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) {
    if (errno == ENOENT) return result;
    result.state = FileState::kUnreadable;
    result.error = errno;
    return result;
  }
  std::string bytes;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      result.state = FileState::kUnreadable;
      result.error = errno;
      return result;
    }
    if (n == 0) break;
    bytes.append(buf, static_cast<std::size_t>(n));
  }
  if (bytes.empty()) {
    result.state = FileState::kEmpty;
    return result;
  }
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
    result.state = FileState::kUnreadable;
    return result;
  }
  // Only the XML form is read. The library's binary reader aborts the
  // process on a key with an embedded NUL, and Lumeo never writes binary
  // lists, so a binary file is treated like any other foreign file: kept
  // aside at the first write.
  if (bytes.starts_with("bplist") || !xmlNestingIsSane(bytes)) {
    result.state = FileState::kUnreadable;
    return result;
  }
  plist_t root = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  result.root.reset(root);
  result.state =
      root && plist_get_node_type(root) == PLIST_DICT ? FileState::kReadable : FileState::kUnreadable;
  if (result.state != FileState::kReadable) result.root.reset();
  return result;
}

Value::Dictionary toDictionary(plist_t root) {
  if (!root) return {};
  std::optional<Value> v = fromPlist(root);
  if (!v || !v->asDictionary()) return {};
  return std::move(*v->asDictionary());
}

bool holdsDate(const Value& value) {
  if (value.asDate()) return true;
  if (const Value::Array* a = value.asArray()) {
    for (const Value& v : *a) {
      if (holdsDate(v)) return true;
    }
  } else if (const Value::Dictionary* d = value.asDictionary()) {
    for (const auto& [k, v] : *d) {
      if (holdsDate(v)) return true;
    }
  }
  return false;
}

// The value as it reads back from the file.
Value throughFile(const Value& value) {
  PlistPtr node(toPlist(value));
  if (!node) return Value();
  return fromPlist(node.get()).value_or(Value());
}

// The XML text of one node, to compare values kind and all (Value's own
// equality takes 1, 1.0 and true as equal).
std::string xmlOf(plist_t node) {
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node, &xml, &length);
  std::string text = xml ? std::string(xml, length) : std::string();
  if (xml) plist_to_xml_free(xml);
  return text;
}

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// PlistUserDefaultsStorage

PlistUserDefaultsStorage::PlistUserDefaultsStorage(std::filesystem::path file) : file_(std::move(file)) {}

Value::Dictionary PlistUserDefaultsStorage::load() {
  // The file is only ever replaced by rename, so an unlocked read sees either
  // the old or the new list, never a mixture.
  ReadResult r = readFile(file_);
  if (r.state == FileState::kUnreadable) {
    LUMEO_LOG_WARNING("settings file %@ is not a readable property list; starting from no settings",
                      file_.string());
  }
  Value::Dictionary contents = toDictionary(r.root.get());
  restoreExactValues(contents);
  return contents;
}

void PlistUserDefaultsStorage::restoreExactValues(Value::Dictionary& contents) const {
  for (const auto& [key, exact] : exact_) {
    auto it = contents.find(key);
    if (it != contents.end() && it->second == throughFile(exact)) it->second = exact;
  }
}

OptionalError PlistUserDefaultsStorage::validate(const Value& value) const {
  return validateValue(value);
}

UserDefaultsStorage::ApplyResult PlistUserDefaultsStorage::apply(const UserDefaultsChanges& changes) {
  const std::filesystem::path folder = file_.parent_path().empty() ? "." : file_.parent_path();
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (ec) return {writeError("make the folder", folder, ec.value()), {}};

  // Serialise read-modify-write with other processes (and other stores of
  // this process: each open file description holds its own flock).
  std::filesystem::path lockPath = file_;
  lockPath += ".lock";
  const bool lockFails = failsAt("lock");
  Fd lock(lockFails ? -1 : ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock.valid()) return {writeError("open the lock file", lockPath, lockFails ? EIO : errno), {}};
  while (::flock(lock.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return {writeError("lock", lockPath, errno), {}};
  }

  ReadResult current = failsAt("read") ? ReadResult{FileState::kUnreadable, nullptr, EIO} : readFile(file_);
  if (current.state == FileState::kUnreadable && current.error != 0) {
    // The file is there but cannot be read (permissions, I/O): replacing it
    // would throw away settings that may still be good.
    return {writeError("read", file_, current.error), {}};
  }
  PlistPtr root = std::move(current.root);
  Value::Dictionary contents = toDictionary(root.get());
  restoreExactValues(contents);
  if (!root) root.reset(plist_new_dict());

  // A change that leaves the file as it is (the launch stores the same
  // hand-over text each time) costs no write and no fsync.
  bool changesFile = false;
  for (const auto& [key, value] : changes) {
    plist_t existing = plist_dict_get_item(root.get(), key.c_str());
    if (value && !value->isNull()) {
      PlistPtr node(toPlist(*value));
      changesFile = changesFile || !existing || xmlOf(existing) != xmlOf(node.get());
    } else {
      changesFile = changesFile || existing;
    }
  }

  for (const auto& [key, value] : changes) {
    if (value && !value->isNull()) {
      plist_dict_set_item(root.get(), key.c_str(), toPlist(*value));
      contents[key] = *value;
    } else {
      if (plist_dict_get_item(root.get(), key.c_str())) plist_dict_remove_item(root.get(), key.c_str());
      contents.erase(key);
    }
  }

  if (!changesFile) {
    rememberExactValues(changes);
    return {std::nullopt, std::move(contents)};
  }

  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &xml, &length);
  std::unique_ptr<char, void (*)(char*)> xmlOwner(xml, plist_to_xml_free);
  if (!xml)
    return {Error(kUserDefaultsErrorDomain, kUserDefaultsWriteFailed, "could not encode the settings"), {}};

  std::string tempTemplate = file_.string() + ".XXXXXX";
  const bool tempFails = failsAt("temp");
  Fd temp(tempFails ? -1 : ::mkstemp(tempTemplate.data()));
  if (!temp.valid()) return {writeError("make a temporary file beside", file_, tempFails ? EIO : errno), {}};
  const std::filesystem::path tempPath = tempTemplate;
  auto discard = [&](const std::string& what, int err) -> ApplyResult {
    temp.reset();
    ::unlink(tempPath.c_str());
    return {writeError(what, tempPath, err), {}};
  };
  ::fchmod(temp.get(), 0600);
  if (failsAt("write")) return discard("write", EIO);
  if (!writeAll(temp.get(), xml, length)) return discard("write", errno);
  if (failsAt("fsync")) return discard("flush", EIO);
  if (::fsync(temp.get()) != 0) return discard("flush", errno);
  if (::close(temp.release()) != 0) return discard("close", errno);

  if (current.state == FileState::kUnreadable) {
    // Keep what was there: it may be a list written by a newer version or
    // damaged by hand, and the user may want it back.
    std::filesystem::path aside = file_;
    aside += ".unreadable";
    for (int n = 2; std::filesystem::exists(aside, ec) && n <= 1000; ++n) {
      aside = file_;
      aside += ".unreadable-" + std::to_string(n);
    }
    // Never rename over an earlier kept file; a thousand of them means
    // something else is wrong, and the write fails instead.
    const bool taken = std::filesystem::exists(aside, ec);
    if (taken || ::rename(file_.c_str(), aside.c_str()) != 0) {
      int err = taken ? EEXIST : errno;
      ::unlink(tempPath.c_str());
      return {Error(kUserDefaultsErrorDomain, kUserDefaultsUnreadable,
                    "could not keep the unreadable settings file " + file_.string() +
                        " aside: " + std::strerror(err)),
              {}};
    }
    LUMEO_LOG_WARNING("kept the unreadable settings file as %@", aside.string());
  }

  const bool renameFails = failsAt("rename");
  if (renameFails || ::rename(tempPath.c_str(), file_.c_str()) != 0) {
    int err = renameFails ? EIO : errno;
    ::unlink(tempPath.c_str());
    return {writeError("replace", file_, err), {}};
  }
  // Make the rename itself durable; a folder that cannot be flushed is no
  // reason to report the write as failed.
  if (Fd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); dir.valid()) ::fsync(dir.get());

  rememberExactValues(changes);
  return {std::nullopt, std::move(contents)};
}

void PlistUserDefaultsStorage::rememberExactValues(const UserDefaultsChanges& changes) {
  for (const auto& [key, value] : changes) {
    if (value && holdsDate(*value)) {
      exact_[key] = *value;
    } else {
      exact_.erase(key);
    }
  }
}

// ---------------------------------------------------------------------------
// PlistUserDefaults

PlistUserDefaults::PlistUserDefaults(std::filesystem::path file)
    : PlistUserDefaults(std::make_shared<PlistUserDefaultsStorage>(std::move(file))) {}

PlistUserDefaults::PlistUserDefaults(std::shared_ptr<PlistUserDefaultsStorage> storage)
    : UserDefaults(storage), storage_(std::move(storage)) {}

std::shared_ptr<PlistUserDefaults> PlistUserDefaults::installStandard() {
  auto defaults = std::make_shared<PlistUserDefaults>(DataDirectories::current().defaultsFile);
  UserDefaults::setStandard(defaults);
  return defaults;
}

}  // namespace lumeo
