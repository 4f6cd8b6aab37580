// Event file names and Lumeo's event file format.
#include "sync/sync_event_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <unordered_map>

#include "platform/atomic_file.h"
#include "sync/sync_event_entities.h"

namespace lumeo {

// --- Names ----------------------------------------------------------------------

namespace {

std::optional<std::int64_t> parseInteger(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::int64_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::vector<std::string_view> splitOnUnderscore(std::string_view text) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (true) {
    std::size_t at = text.find('_', start);
    parts.push_back(text.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start));
    if (at == std::string_view::npos) break;
    start = at + 1;
  }
  return parts;
}

}  // namespace

std::string syncPersistentStorePrefix(const std::string& persistentStoreIdentifier) {
  return persistentStoreIdentifier.substr(0, std::min<std::size_t>(8, persistentStoreIdentifier.size()));
}

SyncEventFile::SyncEventFile(const SyncStoreModificationEvent& event)
    : SyncEventFile(event.type() == kSyncEventTypeBaseline, event.globalCount(), event.uniqueIdentifier(),
                    event.persistentStoreIdentifier(),
                    event.eventRevision() ? event.eventRevision()->revisionNumber() : -1) {}

SyncEventFile::SyncEventFile(bool baseline, std::int64_t globalCount, std::string uniqueIdentifier,
                             std::string persistentStoreIdentifier, std::int64_t revisionNumber)
    : baseline_(baseline),
      globalCount_(globalCount),
      revisionNumber_(revisionNumber),
      uniqueIdentifier_(std::move(uniqueIdentifier)),
      persistentStoreIdentifier_(std::move(persistentStoreIdentifier)),
      persistentStorePrefix_(syncPersistentStorePrefix(*persistentStoreIdentifier_)),
      eventShouldBeUnique_(true) {}

std::optional<SyncEventFile> SyncEventFile::fromFilename(std::string_view filename) {
  // Only our own extension: a partial download ("x.syncevent.part") or any
  // other file a sync client leaves beside ours is no event file.
  std::string_view extension = kSyncEventFileExtension;
  if (filename.size() <= extension.size() || filename.substr(filename.size() - extension.size()) != extension)
    return std::nullopt;
  std::string_view stem = filename.substr(0, filename.size() - extension.size());
  std::vector<std::string_view> parts = splitOnUnderscore(stem);
  if (parts.size() != 2 && parts.size() != 3) return std::nullopt;
  for (auto part : parts) {
    if (part.empty()) return std::nullopt;
  }
  auto count = parseInteger(parts[0]);
  if (!count) return std::nullopt;

  SyncEventFile file;
  file.globalCount_ = *count;
  if (parts.size() == 3 && parts[2].size() == 8) {
    file.baseline_ = true;
    file.uniqueIdentifier_ = std::string(parts[1]);
    file.persistentStorePrefix_ = std::string(parts[2]);
    file.revisionNumber_ = -1;
    file.eventShouldBeUnique_ = true;
  } else if (parts.size() == 3) {
    auto revision = parseInteger(parts[2]);
    if (!revision) return std::nullopt;
    file.baseline_ = false;
    file.persistentStoreIdentifier_ = std::string(parts[1]);
    file.persistentStorePrefix_ = syncPersistentStorePrefix(*file.persistentStoreIdentifier_);
    file.revisionNumber_ = *revision;
    file.eventShouldBeUnique_ = true;
  } else {
    file.baseline_ = true;
    file.uniqueIdentifier_ = std::string(parts[1]);
    file.revisionNumber_ = -1;
    file.eventShouldBeUnique_ = false;
  }
  return file;
}

std::string SyncEventFile::preferredFilename() const {
  std::string name = std::to_string(globalCount_) + "_";
  if (baseline_) {
    name += uniqueIdentifier_.value_or("");
    if (persistentStorePrefix_) name += "_" + *persistentStorePrefix_;
  } else {
    name += persistentStoreIdentifier_.value_or("") + "_" + std::to_string(revisionNumber_);
  }
  return name + kSyncEventFileExtension;
}

std::vector<std::string> SyncEventFile::aliases() const {
  std::vector<std::string> names{preferredFilename()};
  if (baseline_) {
    std::string older =
        std::to_string(globalCount_) + "_" + uniqueIdentifier_.value_or("") + kSyncEventFileExtension;
    if (older != names.front()) names.push_back(std::move(older));
  }
  return names;
}

Predicate SyncEventFile::eventFetchPredicate() const {
  if (baseline_) {
    if (persistentStorePrefix_) {
      return Predicate::predicateWithFormat(
          "type = %@ AND globalCount = %@ AND uniqueIdentifier = %@ AND "
          "eventRevision.persistentStoreIdentifier BEGINSWITH %@",
          int(kSyncEventTypeBaseline), static_cast<long long>(globalCount_), uniqueIdentifier_.value_or(""),
          *persistentStorePrefix_);
    }
    return Predicate::predicateWithFormat("type = %@ AND globalCount = %@ AND uniqueIdentifier = %@",
                                          int(kSyncEventTypeBaseline), static_cast<long long>(globalCount_),
                                          uniqueIdentifier_.value_or(""));
  }
  return Predicate::predicateWithFormat(
      "(type = %@ OR type = %@) AND globalCount = %@ AND eventRevision.persistentStoreIdentifier = %@ AND "
      "eventRevision.revisionNumber = %@",
      int(kSyncEventTypeSave), int(kSyncEventTypeMerge), static_cast<long long>(globalCount_),
      persistentStoreIdentifier_.value_or(""), static_cast<long long>(revisionNumber_));
}

void syncSortFilenamesByGlobalCount(std::vector<std::string>& filenames) {
  auto leading = [](const std::string& name) -> std::optional<std::int64_t> {
    return parseInteger(std::string_view(name).substr(0, name.find('_')));
  };
  std::stable_sort(filenames.begin(), filenames.end(), [&](const std::string& a, const std::string& b) {
    auto x = leading(a);
    auto y = leading(b);
    if (x.has_value() != y.has_value()) return x.has_value();
    if (x && *x != *y) return *x < *y;
    return a < b;
  });
}

// --- CRC-32 ---------------------------------------------------------------------

namespace {

struct CrcTables {
  std::array<std::array<std::uint32_t, 256>, 4> t{};
  CrcTables() {
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[0][i] = c;
    }
    for (std::uint32_t i = 0; i < 256; ++i) {
      for (int s = 1; s < 4; ++s) t[s][i] = (t[s - 1][i] >> 8) ^ t[0][t[s - 1][i] & 0xFF];
    }
  }
};

}  // namespace

std::uint32_t syncCrc32(const std::uint8_t* bytes, std::size_t size, std::uint32_t crc) {
  static const CrcTables tables;
  const auto& t = tables.t;
  crc = ~crc;
  while (size >= 4) {
    crc ^= std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
    crc = t[3][crc & 0xFF] ^ t[2][(crc >> 8) & 0xFF] ^ t[1][(crc >> 16) & 0xFF] ^ t[0][crc >> 24];
    bytes += 4;
    size -= 4;
  }
  while (size--) crc = t[0][(crc ^ *bytes++) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

// --- The format -------------------------------------------------------------------
//
// A 32-byte header ("LUMEOSEV", u32 format version, u32 flags, u64 payload
// length, u32 CRC-32 of the payload, u32 CRC-32 of the header's first 28
// bytes; little-endian), then the payload: the string table, the global
// identifiers and the events. docs/sync-event-file.md has the whole layout.

namespace {

constexpr char kMagic[8] = {'L', 'U', 'M', 'E', 'O', 'S', 'E', 'V'};
constexpr std::size_t kHeaderSize = 32;

enum ValueTag : std::uint8_t {
  kTagNull = 0,
  kTagFalse = 1,
  kTagTrue = 2,
  kTagInteger = 3,
  kTagReal = 4,
  kTagString = 5,
  kTagDate = 6,
  kTagData = 7,
  kTagArray = 8,
  kTagDictionary = 9,
};

// Nesting deeper than this is refused: no archive we write comes close.
constexpr int kMaximumValueDepth = 32;

void putLE(std::vector<std::uint8_t>& out, std::uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

std::uint64_t getLE(const std::uint8_t* p, int bytes) {
  std::uint64_t v = 0;
  for (int i = 0; i < bytes; ++i) v |= std::uint64_t(p[i]) << (8 * i);
  return v;
}

class Writer {
 public:
  explicit Writer(std::vector<std::uint8_t>& out) : out_(out) {}

  void varint(std::uint64_t v) {
    while (v >= 0x80) {
      out_.push_back(static_cast<std::uint8_t>(v | 0x80));
      v >>= 7;
    }
    out_.push_back(static_cast<std::uint8_t>(v));
  }
  void signedVarint(std::int64_t v) {
    varint((static_cast<std::uint64_t>(v) << 1) ^ static_cast<std::uint64_t>(v >> 63));
  }
  void real(double d) {
    std::uint64_t bits;
    std::memcpy(&bits, &d, 8);
    putLE(out_, bits, 8);
  }
  void byte(std::uint8_t b) { out_.push_back(b); }
  void bytes(const std::uint8_t* p, std::size_t n) {
    varint(n);
    out_.insert(out_.end(), p, p + n);
  }

 private:
  std::vector<std::uint8_t>& out_;
};

// Every string of a file is written once, in a table at its start; rows
// refer to strings by their index.
class StringTable {
 public:
  std::uint32_t index(const std::string& s) {
    auto [it, fresh] = indexes_.emplace(s, static_cast<std::uint32_t>(strings_.size()));
    if (fresh) strings_.push_back(&it->first);
    return it->second;
  }
  void collect(const Value& v) {
    switch (v.type()) {
      case Value::Type::kString:
        index(*v.asString());
        break;
      case Value::Type::kArray:
        for (const auto& item : *v.asArray()) collect(item);
        break;
      case Value::Type::kDictionary:
        for (const auto& [key, item] : *v.asDictionary()) {
          index(key);
          collect(item);
        }
        break;
      default:
        break;
    }
  }
  std::uint32_t at(const std::string& s) const { return indexes_.at(s); }
  const std::vector<const std::string*>& strings() const { return strings_; }

 private:
  std::unordered_map<std::string, std::uint32_t> indexes_;
  std::vector<const std::string*> strings_;
};

void writeValue(Writer& w, const StringTable& table, const Value& v) {
  switch (v.type()) {
    case Value::Type::kNull:
      w.byte(kTagNull);
      break;
    case Value::Type::kBool:
      w.byte(v.toBool() ? kTagTrue : kTagFalse);
      break;
    case Value::Type::kInteger:
      w.byte(kTagInteger);
      w.signedVarint(v.toInt());
      break;
    case Value::Type::kReal:
      w.byte(kTagReal);
      w.real(v.toDouble());
      break;
    case Value::Type::kString:
      w.byte(kTagString);
      w.varint(table.at(*v.asString()));
      break;
    case Value::Type::kDate:
      w.byte(kTagDate);
      w.real(v.asDate()->timeIntervalSince1970());
      break;
    case Value::Type::kData:
      w.byte(kTagData);
      w.bytes(v.asData()->data(), v.asData()->size());
      break;
    case Value::Type::kArray:
      w.byte(kTagArray);
      w.varint(v.asArray()->size());
      for (const auto& item : *v.asArray()) writeValue(w, table, item);
      break;
    case Value::Type::kDictionary:
      w.byte(kTagDictionary);
      w.varint(v.asDictionary()->size());
      for (const auto& [key, item] : *v.asDictionary()) {
        w.varint(table.at(key));
        writeValue(w, table, item);
      }
      break;
  }
}

// Reads the payload; any length or index out of range throws Damaged.
struct Damaged {
  const char* what;
};

class Reader {
 public:
  Reader(const std::uint8_t* p, std::size_t n) : p_(p), end_(p + n) {}

  std::uint64_t varint() {
    std::uint64_t v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      if (p_ == end_) throw Damaged{"a number runs past the end"};
      std::uint8_t b = *p_++;
      v |= std::uint64_t(b & 0x7F) << shift;
      if (!(b & 0x80)) return v;
    }
    throw Damaged{"a number is too long"};
  }
  std::int64_t signedVarint() {
    std::uint64_t z = varint();
    return static_cast<std::int64_t>((z >> 1) ^ (~(z & 1) + 1));
  }
  // A count of items that each take at least one byte: never more than what
  // is left, so a damaged count cannot make us reserve gigabytes.
  std::size_t count() {
    std::uint64_t n = varint();
    if (n > static_cast<std::uint64_t>(end_ - p_)) throw Damaged{"a count exceeds the file"};
    return static_cast<std::size_t>(n);
  }
  double real() {
    need(8);
    std::uint64_t bits = getLE(p_, 8);
    p_ += 8;
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
  }
  std::uint8_t byte() {
    need(1);
    return *p_++;
  }
  const std::uint8_t* bytes(std::size_t n) {
    need(n);
    const std::uint8_t* start = p_;
    p_ += n;
    return start;
  }
  bool atEnd() const { return p_ == end_; }

 private:
  void need(std::size_t n) const {
    if (static_cast<std::size_t>(end_ - p_) < n) throw Damaged{"a field runs past the end"};
  }
  const std::uint8_t* p_;
  const std::uint8_t* end_;
};

class PayloadReader {
 public:
  PayloadReader(const std::uint8_t* p, std::size_t n) : r_(p, n) {}

  SyncEventFileContents read() {
    std::size_t stringCount = r_.count();
    strings_.reserve(stringCount);
    for (std::size_t i = 0; i < stringCount; ++i) {
      std::size_t length = r_.count();
      const std::uint8_t* bytes = r_.bytes(length);
      strings_.emplace_back(reinterpret_cast<const char*>(bytes), length);
    }
    SyncEventFileContents contents;
    std::size_t identifierCount = r_.count();
    contents.globalIdentifiers.reserve(identifierCount);
    for (std::size_t i = 0; i < identifierCount; ++i) {
      SyncEventFileGlobalIdentifier& identifier = contents.globalIdentifiers.emplace_back();
      identifier.globalIdentifier = string();
      identifier.nameOfEntity = string();
    }
    std::size_t eventCount = r_.count();
    contents.events.reserve(eventCount);
    for (std::size_t i = 0; i < eventCount; ++i) {
      SyncEventFileEvent& event = contents.events.emplace_back();
      event.uniqueIdentifier = string();
      event.type = smallInteger();
      event.globalCount = r_.signedVarint();
      event.timestamp = r_.real();
      std::uint64_t version = r_.varint();
      if (version != 0) event.modelVersion = stringAt(version - 1);
      event.eventRevision.persistentStoreIdentifier = string();
      event.eventRevision.revisionNumber = r_.signedVarint();
      std::size_t otherCount = r_.count();
      event.eventRevisionsOfOtherStores.reserve(otherCount);
      for (std::size_t k = 0; k < otherCount; ++k) {
        SyncEventFileRevision& revision = event.eventRevisionsOfOtherStores.emplace_back();
        revision.persistentStoreIdentifier = string();
        revision.revisionNumber = r_.signedVarint();
      }
      std::size_t changeCount = r_.count();
      event.objectChanges.reserve(changeCount);
      for (std::size_t k = 0; k < changeCount; ++k) {
        SyncEventFileObjectChange& change = event.objectChanges.emplace_back();
        change.type = smallInteger();
        change.nameOfEntity = string();
        std::uint64_t identifier = r_.varint();
        if (identifier >= identifierCount)
          throw Damaged{"a change names a global identifier that is not there"};
        change.globalIdentifierIndex = static_cast<std::uint32_t>(identifier);
        change.propertyChangeValues = value(0);
        std::size_t fileCount = r_.count();
        change.dataFiles.reserve(fileCount);
        for (std::size_t f = 0; f < fileCount; ++f) change.dataFiles.push_back(string());
      }
    }
    if (!r_.atEnd()) throw Damaged{"bytes follow the last event"};
    return contents;
  }

 private:
  const std::string& stringAt(std::uint64_t index) const {
    if (index >= strings_.size()) throw Damaged{"a string index is out of range"};
    return strings_[index];
  }
  const std::string& string() { return stringAt(r_.varint()); }
  std::int16_t smallInteger() {
    std::int64_t v = r_.signedVarint();
    if (v < INT16_MIN || v > INT16_MAX) throw Damaged{"a type is out of range"};
    return static_cast<std::int16_t>(v);
  }
  Value value(int depth) {
    if (depth > kMaximumValueDepth) throw Damaged{"values nest too deeply"};
    switch (r_.byte()) {
      case kTagNull:
        return Value();
      case kTagFalse:
        return Value(false);
      case kTagTrue:
        return Value(true);
      case kTagInteger:
        return Value(static_cast<long long>(r_.signedVarint()));
      case kTagReal:
        return Value(r_.real());
      case kTagString:
        return Value(string());
      case kTagDate:
        return Value(Date::fromTimeIntervalSince1970(r_.real()));
      case kTagData: {
        std::size_t n = r_.count();
        const std::uint8_t* bytes = r_.bytes(n);
        return Value(Value::Data(bytes, bytes + n));
      }
      case kTagArray: {
        std::size_t n = r_.count();
        Value::Array array;
        array.reserve(n);
        for (std::size_t i = 0; i < n; ++i) array.push_back(value(depth + 1));
        return Value(std::move(array));
      }
      case kTagDictionary: {
        std::size_t n = r_.count();
        Value::Dictionary dictionary;
        for (std::size_t i = 0; i < n; ++i) {
          const std::string& key = string();
          dictionary[key] = value(depth + 1);
        }
        return Value(std::move(dictionary));
      }
      default:
        throw Damaged{"a value has an unknown tag"};
    }
  }

  Reader r_;
  std::vector<std::string> strings_;
};

Error fileError(long code, const std::string& name, const std::string& what) {
  return syncError(code, "The event file \"" + name + "\" " + what);
}

}  // namespace

std::vector<std::uint8_t> syncEncodeEventFile(const SyncEventFileContents& contents) {
  StringTable table;
  for (const auto& identifier : contents.globalIdentifiers) {
    table.index(identifier.globalIdentifier);
    table.index(identifier.nameOfEntity);
  }
  for (const auto& event : contents.events) {
    table.index(event.uniqueIdentifier);
    if (event.modelVersion) table.index(*event.modelVersion);
    table.index(event.eventRevision.persistentStoreIdentifier);
    for (const auto& revision : event.eventRevisionsOfOtherStores)
      table.index(revision.persistentStoreIdentifier);
    for (const auto& change : event.objectChanges) {
      table.index(change.nameOfEntity);
      table.collect(change.propertyChangeValues);
      for (const auto& file : change.dataFiles) table.index(file);
    }
  }

  std::vector<std::uint8_t> out(kHeaderSize, 0);
  Writer w(out);
  w.varint(table.strings().size());
  for (const std::string* s : table.strings())
    w.bytes(reinterpret_cast<const std::uint8_t*>(s->data()), s->size());
  w.varint(contents.globalIdentifiers.size());
  for (const auto& identifier : contents.globalIdentifiers) {
    w.varint(table.at(identifier.globalIdentifier));
    w.varint(table.at(identifier.nameOfEntity));
  }
  w.varint(contents.events.size());
  for (const auto& event : contents.events) {
    w.varint(table.at(event.uniqueIdentifier));
    w.signedVarint(event.type);
    w.signedVarint(event.globalCount);
    w.real(event.timestamp);
    w.varint(event.modelVersion ? table.at(*event.modelVersion) + 1 : 0);
    w.varint(table.at(event.eventRevision.persistentStoreIdentifier));
    w.signedVarint(event.eventRevision.revisionNumber);
    w.varint(event.eventRevisionsOfOtherStores.size());
    for (const auto& revision : event.eventRevisionsOfOtherStores) {
      w.varint(table.at(revision.persistentStoreIdentifier));
      w.signedVarint(revision.revisionNumber);
    }
    w.varint(event.objectChanges.size());
    for (const auto& change : event.objectChanges) {
      w.signedVarint(change.type);
      w.varint(table.at(change.nameOfEntity));
      w.varint(change.globalIdentifierIndex);
      writeValue(w, table, change.propertyChangeValues);
      w.varint(change.dataFiles.size());
      for (const auto& file : change.dataFiles) w.varint(table.at(file));
    }
  }

  std::size_t payload = out.size() - kHeaderSize;
  std::vector<std::uint8_t> header;
  header.insert(header.end(), kMagic, kMagic + 8);
  putLE(header, kSyncEventFileFormatVersion, 4);
  putLE(header, 0, 4);
  putLE(header, payload, 8);
  putLE(header, syncCrc32(out.data() + kHeaderSize, payload), 4);
  putLE(header, syncCrc32(header.data(), header.size()), 4);
  std::copy(header.begin(), header.end(), out.begin());
  return out;
}

SyncResult<SyncEventFileContents> syncDecodeEventFile(const std::uint8_t* bytes, std::size_t size,
                                                      const std::string& name) {
  if (size == 0) return fileError(kSyncErrorCodeFileAccessFailed, name, "is empty");
  if (size < kHeaderSize) {
    return fileError(kSyncErrorCodeFileAccessFailed, name,
                     "is truncated: " + std::to_string(size) + " bytes, shorter than its header");
  }
  if (std::memcmp(bytes, kMagic, 8) != 0)
    return fileError(kSyncErrorCodeFileAccessFailed, name, "is not a Lumeo event file");
  if (static_cast<std::uint32_t>(getLE(bytes + 28, 4)) != syncCrc32(bytes, 28))
    return fileError(kSyncErrorCodeFileAccessFailed, name, "has a damaged header");
  auto version = static_cast<std::uint32_t>(getLE(bytes + 8, 4));
  if (version == 0 || version > kSyncEventFileFormatVersion) {
    return fileError(kSyncErrorCodeUnknownModelVersion, name,
                     "has format version " + std::to_string(version) + "; this Lumeo reads version " +
                         std::to_string(kSyncEventFileFormatVersion) + " and needs an update to read it");
  }
  std::uint64_t payload = getLE(bytes + 16, 8);
  if (payload != size - kHeaderSize) {
    return fileError(kSyncErrorCodeFileAccessFailed, name,
                     "is truncated or padded: its header announces " + std::to_string(payload) +
                         " bytes of events, it holds " + std::to_string(size - kHeaderSize));
  }
  if (static_cast<std::uint32_t>(getLE(bytes + 24, 4)) != syncCrc32(bytes + kHeaderSize, payload))
    return fileError(kSyncErrorCodeFileAccessFailed, name, "is damaged: its checksum does not match");
  try {
    return PayloadReader(bytes + kHeaderSize, payload).read();
  } catch (const Damaged& damaged) {
    return fileError(kSyncErrorCodeFileAccessFailed, name, std::string("is malformed: ") + damaged.what);
  }
}

OptionalError syncWriteEventFile(const std::filesystem::path& path, const SyncEventFileContents& contents) {
  std::vector<std::uint8_t> bytes = syncEncodeEventFile(contents);
  if (OptionalError error = writeFileAtomically(path, bytes)) {
    return syncError(kSyncErrorCodeFileWriteFailed,
                     "Could not write the event file \"" + path.string() + "\": " + error->description);
  }
  return std::nullopt;
}

SyncResult<SyncEventFileContents> syncReadEventFile(const std::filesystem::path& path) {
  auto read = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&read)) {
    return syncError(
        kSyncErrorCodeFileAccessFailed,
        "Could not read the event file \"" + path.filename().string() + "\": " + error->description);
  }
  const auto& bytes = std::get<std::vector<std::uint8_t>>(read);
  return syncDecodeEventFile(bytes.data(), bytes.size(), path.filename().string());
}

}  // namespace lumeo
