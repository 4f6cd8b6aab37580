// Archiving and reading back property change values.
#include "sync/sync_property_change_value.h"

#include <cstring>
#include <string_view>
#include <type_traits>

#include "objectgraph/managed_object_model.h"
#include "platform/log.h"
#include "sync/sync_error.h"
#include "sync/sync_event_store.h"

namespace lumeo {

namespace {

Value stringSet(const std::set<std::string>& strings) {
  Value::Array out;
  out.reserve(strings.size());
  for (const auto& s : strings) out.emplace_back(s);
  return Value(std::move(out));
}

std::set<std::string> readStringSet(const Value& v, const char* key) {
  const Value::Array* array = v.asArray();
  if (!array) throw SyncException(std::string("Property change value field \"") + key + "\" is not an array");
  std::set<std::string> out;
  for (const auto& item : *array) {
    const std::string* s = item.asString();
    if (!s)
      throw SyncException(std::string("Property change value field \"") + key + "\" holds a non-string");
    out.insert(*s);
  }
  return out;
}

const std::string& requireString(const Value& v, const char* key) {
  const std::string* s = v.asString();
  if (!s) throw SyncException(std::string("Property change value field \"") + key + "\" is not a string");
  return *s;
}

// Whether a value read from an event can stand in an attribute of this type.
bool fitsAttribute(const Value& v, AttributeType type) {
  if (v.isNull()) return true;
  switch (type) {
    case AttributeType::kString:
      return v.asString() != nullptr;
    case AttributeType::kInteger16:
    case AttributeType::kInteger32:
    case AttributeType::kInteger64:
    case AttributeType::kBoolean:
    case AttributeType::kDouble:
      return v.isNumber();
    case AttributeType::kDate:
      return v.asDate() != nullptr || v.isNumber();
    case AttributeType::kBinary:
      return v.asData() != nullptr;
    case AttributeType::kTransformable:
      return true;
  }
  return false;
}

}  // namespace

Value SyncPropertyChangeValue::archive() const {
  Value::Dictionary d;
  d["classVersion"] = Value(1);
  d["type"] = Value(type);
  d["propertyName"] = Value(propertyName);
  if (!value.isNull()) d["value"] = value;
  if (filename) d["filename"] = Value(*filename);
  if (relatedIdentifier) d["relatedIdentifier"] = Value(*relatedIdentifier);
  if (addedIdentifiers) d["addedIdentifiers"] = stringSet(*addedIdentifiers);
  if (removedIdentifiers) d["removedIdentifiers"] = stringSet(*removedIdentifiers);
  if (movedIdentifiersByIndex) {
    Value::Dictionary moved;
    for (const auto& [index, identifier] : *movedIdentifiersByIndex)
      moved[std::to_string(index)] = Value(identifier);
    d["movedIdentifiersByIndex"] = Value(std::move(moved));
  }
  return Value(std::move(d));
}

namespace {

// Reads an archive dictionary; from a dictionary that is not const, the
// value is moved out rather than copied.
template <class Dictionary>
SyncPropertyChangeValue unarchiveDictionary(Dictionary* d) {
  if (!d) throw SyncException("Property change value is not a dictionary");
  SyncPropertyChangeValue out;
  bool hasType = false;
  bool hasName = false;
  for (const auto& [key, v] : *d) {
    if (key == "classVersion") {
      continue;  // never read: every version so far reads alike
    } else if (key == "type") {
      if (v.type() != Value::Type::kInteger)
        throw SyncException("Property change value type is not an integer");
      std::int64_t t = v.toInt();
      if (t < 0 || t > 3)
        throw SyncException("Property change value type " + std::to_string(t) + " is unknown");
      out.type = static_cast<int>(t);
      hasType = true;
    } else if (key == "propertyName") {
      out.propertyName = requireString(v, "propertyName");
      hasName = !out.propertyName.empty();
    } else if (key == "value") {
      if constexpr (std::is_const_v<Dictionary>) {
        out.value = v;
      } else {
        out.value = std::move(v);
      }
    } else if (key == "filename") {
      if (!v.isNull()) out.filename = requireString(v, "filename");
    } else if (key == "relatedIdentifier") {
      if (!v.isNull()) out.relatedIdentifier = requireString(v, "relatedIdentifier");
    } else if (key == "addedIdentifiers") {
      out.addedIdentifiers = readStringSet(v, "addedIdentifiers");
    } else if (key == "removedIdentifiers") {
      out.removedIdentifiers = readStringSet(v, "removedIdentifiers");
    } else if (key == "movedIdentifiersByIndex") {
      const Value::Dictionary* moved = v.asDictionary();
      if (!moved)
        throw SyncException("Property change value field \"movedIdentifiersByIndex\" is not a dictionary");
      std::map<std::int64_t, std::string> byIndex;
      for (const auto& [indexText, identifier] : *moved) {
        std::size_t used = 0;
        std::int64_t index = -1;
        try {
          index = std::stoll(indexText, &used);
        } catch (const std::exception&) {
          used = 0;
        }
        if (used != indexText.size() || index < 0) {
          throw SyncException("Property change value has a bad index \"" + indexText + "\"");
        }
        byIndex[index] = requireString(identifier, "movedIdentifiersByIndex");
      }
      out.movedIdentifiersByIndex = std::move(byIndex);
    } else {
      throw SyncException("Property change value has an unknown field \"" + key + "\"");
    }
  }
  if (!hasType || !hasName) throw SyncException("Property change value lacks its type or property name");
  return out;
}

}  // namespace

SyncPropertyChangeValue SyncPropertyChangeValue::unarchive(const Value& archive) {
  return unarchiveDictionary(archive.asDictionary());
}

SyncPropertyChangeValue SyncPropertyChangeValue::unarchive(Value&& archive) {
  return unarchiveDictionary(archive.asDictionary());
}

Value SyncPropertyChangeValue::archiveArray(const std::vector<SyncPropertyChangeValue>& values) {
  Value::Array out;
  out.reserve(values.size());
  for (const auto& v : values) out.push_back(v.archive());
  return Value(std::move(out));
}

std::optional<std::vector<SyncPropertyChangeValue>> SyncPropertyChangeValue::unarchiveArray(
    const Value& archive) {
  if (archive.isNull()) return std::nullopt;
  const Value::Array* array = archive.asArray();
  if (!array) throw SyncException("Property change values are not an array");
  std::vector<SyncPropertyChangeValue> out;
  out.reserve(array->size());
  for (const auto& item : *array) out.push_back(unarchive(item));
  return out;
}

std::optional<std::vector<SyncPropertyChangeValue>> SyncPropertyChangeValue::unarchiveArray(Value&& archive) {
  if (archive.isNull()) return std::nullopt;
  Value::Array* array = archive.asArray();
  if (!array) throw SyncException("Property change values are not an array");
  std::vector<SyncPropertyChangeValue> out;
  out.reserve(array->size());
  for (auto& item : *array) out.push_back(unarchive(std::move(item)));
  return out;
}

namespace {

// Reads the object store's value coding (objectgraph/value_coder.cpp: a tag
// byte, little-endian 64-bit counts and numbers, length-prefixed strings)
// for the shape archives have: an array of dictionaries with sorted, known
// keys and plain values. Anything else, or anything the strict reading
// would refuse, makes it give up, and the general path reads the bytes and
// reports what is wrong.
class CodedArchiveReader {
 public:
  CodedArchiveReader(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

  bool read(std::vector<SyncPropertyChangeValue>& out) {
    std::uint8_t tag = 0;
    std::uint64_t count = 0;
    if (!byte(tag) || tag != kArray || !u64(count) || count > std::uint64_t(end_ - at_)) return false;
    out.reserve(static_cast<std::size_t>(count));
    for (std::uint64_t i = 0; i < count; ++i) {
      // Read in place: a value is large, and most are read only once.
      if (!byte(tag) || tag != kDict || !readDictionary(out.emplace_back())) return false;
    }
    return at_ == end_;
  }

 private:
  enum Tag : std::uint8_t { kNull, kFalse, kTrue, kInt, kReal, kString, kDate, kData, kArray, kDict };

  bool byte(std::uint8_t& b) {
    if (at_ == end_) return false;
    b = *at_++;
    return true;
  }
  bool u64(std::uint64_t& v) {
    if (end_ - at_ < 8) return false;
    v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<std::uint64_t>(at_[i]) << (8 * i);
    at_ += 8;
    return true;
  }
  bool bytes(std::string_view& out) {
    std::uint64_t n = 0;
    if (!u64(n) || n > std::uint64_t(end_ - at_)) return false;
    out = std::string_view(reinterpret_cast<const char*>(at_), static_cast<std::size_t>(n));
    at_ += n;
    return true;
  }
  bool string(std::string& out) {
    std::uint8_t tag = 0;
    std::string_view text;
    if (!byte(tag) || tag != kString || !bytes(text)) return false;
    out.assign(text);
    return true;
  }
  // A value that is no array or dictionary.
  bool plain(Value& out) {
    std::uint8_t tag = 0;
    if (!byte(tag)) return false;
    std::uint64_t bits = 0;
    std::string_view text;
    switch (tag) {
      case kNull:
        out = Value();
        return true;
      case kFalse:
      case kTrue:
        out = Value(tag == kTrue);
        return true;
      case kInt:
        if (!u64(bits)) return false;
        out = Value(static_cast<long long>(bits));
        return true;
      case kReal:
      case kDate: {
        if (!u64(bits)) return false;
        double x;
        std::memcpy(&x, &bits, 8);
        out = tag == kReal ? Value(x) : Value(Date::fromTimeIntervalSince1970(x));
        return true;
      }
      case kString:
        if (!bytes(text)) return false;
        out = Value(std::string(text));
        return true;
      case kData:
        if (!bytes(text)) return false;
        out = Value(Value::Data(text.begin(), text.end()));
        return true;
      default:
        return false;
    }
  }
  bool optionalString(std::optional<std::string>& out) {
    if (at_ != end_ && *at_ == kNull) {
      ++at_;
      return true;
    }
    std::string text;
    if (!string(text)) return false;
    out = std::move(text);
    return true;
  }
  bool stringSet(std::optional<std::set<std::string>>& out) {
    std::uint8_t tag = 0;
    std::uint64_t count = 0;
    if (!byte(tag) || tag != kArray || !u64(count)) return false;
    std::set<std::string> strings;
    for (std::uint64_t i = 0; i < count; ++i) {
      std::string text;
      if (!string(text)) return false;
      strings.insert(std::move(text));
    }
    out = std::move(strings);
    return true;
  }
  bool readDictionary(SyncPropertyChangeValue& out) {
    std::uint64_t count = 0;
    if (!u64(count)) return false;
    bool hasType = false;
    bool hasName = false;
    std::string_view previous;
    for (std::uint64_t i = 0; i < count; ++i) {
      std::string_view key;
      // Keys come in the dictionary's order; a repeat or a disorder is for
      // the general path.
      if (!bytes(key) || (i > 0 && key <= previous)) return false;
      previous = key;
      if (key == "classVersion") {
        Value ignored;
        if (!plain(ignored)) return false;
      } else if (key == "type") {
        std::uint8_t tag = 0;
        std::uint64_t bits = 0;
        if (!byte(tag) || tag != kInt || !u64(bits)) return false;
        auto type = static_cast<std::int64_t>(bits);
        if (type < 0 || type > 3) return false;
        out.type = static_cast<int>(type);
        hasType = true;
      } else if (key == "propertyName") {
        if (!string(out.propertyName)) return false;
        hasName = !out.propertyName.empty();
      } else if (key == "value") {
        if (!plain(out.value)) return false;
      } else if (key == "filename") {
        if (!optionalString(out.filename)) return false;
      } else if (key == "relatedIdentifier") {
        if (!optionalString(out.relatedIdentifier)) return false;
      } else if (key == "addedIdentifiers") {
        if (!stringSet(out.addedIdentifiers)) return false;
      } else if (key == "removedIdentifiers") {
        if (!stringSet(out.removedIdentifiers)) return false;
      } else {
        return false;
      }
    }
    return hasType && hasName;
  }

  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

}  // namespace

std::optional<std::vector<SyncPropertyChangeValue>> SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(
    const std::uint8_t* data, std::size_t size) {
  std::vector<SyncPropertyChangeValue> values;
  if (CodedArchiveReader(data, size).read(values)) return values;
  return unarchiveArray(decodeValue(Value::Data(data, data + size)));
}

Value SyncPropertyChangeValue::attributeValueForAttributeDescription(const AttributeDescription& attribute,
                                                                     SyncEventStore* eventStore) const {
  Value fromFile;
  if (filename) {
    std::optional<Value::Data> data = eventStore ? eventStore->dataForFile(*filename) : std::nullopt;
    if (data) fromFile = Value(std::move(*data));
  }
  const Value& raw = filename ? fromFile : value;
  const std::string& transformerName = attribute.valueTransformerName();
  if (!transformerName.empty()) {
    if (raw.isNull()) return raw;
    auto transformer = ValueTransformer::valueTransformerForName(transformerName);
    if (!transformer || !raw.asData()) {
      LUMEO_LOG_ERROR("Failed to retrieve value transformer: %@", transformerName);
      return Value();
    }
    return transformer->reverseTransformedValue(*raw.asData());
  }
  if (!fitsAttribute(raw, attribute.attributeType())) {
    throw SyncException("Value of attribute \"" + attribute.name() + "\" of " + attribute.entity().name() +
                        " has the wrong type");
  }
  return attribute.coerce(raw);
}

void SyncPropertyChangeValue::mergeToManyRelationshipFromSubordinatePropertyChangeValue(
    const SyncPropertyChangeValue& other) {
  // This change is the later one: its own additions and removals win over
  // the subordinate's for the same member.
  std::set<std::string> added = addedIdentifiers.value_or(std::set<std::string>{});
  std::set<std::string> removed = removedIdentifiers.value_or(std::set<std::string>{});
  for (const auto& id : other.addedIdentifiers.value_or(std::set<std::string>{})) {
    if (!removed.count(id)) added.insert(id);
  }
  for (const auto& id : other.removedIdentifiers.value_or(std::set<std::string>{})) {
    if (!added.count(id)) removed.insert(id);
  }
  addedIdentifiers = std::move(added);
  removedIdentifiers = std::move(removed);
  if (type == kSyncPropertyChangeTypeOrderedToManyRelationship && !movedIdentifiersByIndex &&
      other.movedIdentifiersByIndex) {
    movedIdentifiersByIndex = other.movedIdentifiersByIndex;
  }
}

}  // namespace lumeo
