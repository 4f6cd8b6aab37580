// Conversion between libplist nodes and Value, and the file round trip.
#include "capture/property_list_file.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "platform/atomic_file.h"

namespace lumeo {

namespace {

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

Value toValue(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      // Negative integers are kept in two's complement.
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<long long>(static_cast<std::int64_t>(u)));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING: {
      char* s = nullptr;
      plist_get_string_val(node, &s);
      std::string text = s ? s : "";
      std::free(s);
      return Value(std::move(text));
    }
    case PLIST_DATA: {
      char* bytes = nullptr;
      uint64_t length = 0;
      plist_get_data_val(node, &bytes, &length);
      Value::Data data(bytes, bytes + length);
      std::free(bytes);
      return Value(std::move(data));
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date::fromTimeIntervalSinceReferenceDate(sec + usec / 1e6));
    }
    case PLIST_ARRAY: {
      Value::Array array;
      const uint32_t n = plist_array_get_size(node);
      array.reserve(n);
      for (uint32_t i = 0; i < n; ++i) array.push_back(toValue(plist_array_get_item(node, i)));
      return Value(std::move(array));
    }
    case PLIST_DICT: {
      Value::Dictionary dict;
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      while (it) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, it, &key, &item);
        if (!key) break;
        dict[key] = toValue(item);
        std::free(key);
      }
      std::free(it);
      return Value(std::move(dict));
    }
    default:
      // Keys and UIDs do not occur in our files; they read as null.
      return Value();
  }
}

plist_t toNode(const Value& value) {
  switch (value.type()) {
    case Value::Type::kNull:
      return nullptr;
    case Value::Type::kBool:
      return plist_new_bool(value.toBool() ? 1 : 0);
    case Value::Type::kInteger:
      return plist_new_uint(static_cast<uint64_t>(value.toInt()));
    case Value::Type::kReal:
      return plist_new_real(value.toDouble());
    case Value::Type::kString:
      return plist_new_string(value.asString()->c_str());
    case Value::Type::kDate: {
      const double t = value.asDate()->timeIntervalSinceReferenceDate();
      const double whole = std::floor(t);
      return plist_new_date(static_cast<int32_t>(whole), static_cast<int32_t>((t - whole) * 1e6));
    }
    case Value::Type::kData: {
      const Value::Data& d = *value.asData();
      return plist_new_data(reinterpret_cast<const char*>(d.data()), d.size());
    }
    case Value::Type::kArray: {
      plist_t array = plist_new_array();
      for (const Value& item : *value.asArray()) {
        plist_t child = toNode(item);
        if (!child) {
          plist_free(array);
          return nullptr;
        }
        plist_array_append_item(array, child);
      }
      return array;
    }
    case Value::Type::kDictionary: {
      plist_t dict = plist_new_dict();
      for (const auto& [key, item] : *value.asDictionary()) {
        plist_t child = toNode(item);
        if (!child) {
          plist_free(dict);
          return nullptr;
        }
        plist_dict_set_item(dict, key.c_str(), child);
      }
      return dict;
    }
  }
  return nullptr;
}

}  // namespace

OrError<Value> parsePropertyList(std::string_view data) {
  if (data.empty() || data.size() > std::numeric_limits<uint32_t>::max()) {
    return Error(kPropertyListErrorDomain, kPropertyListUnreadable, "The data is not a property list");
  }
  plist_t root = nullptr;
  plist_from_memory(data.data(), static_cast<uint32_t>(data.size()), &root);
  PlistPtr owner(root);
  if (!root)
    return Error(kPropertyListErrorDomain, kPropertyListUnreadable, "The data is not a property list");
  return toValue(root);
}

OrError<Value> readPropertyListFile(const std::filesystem::path& path) {
  auto bytes = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&bytes)) return *error;
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  auto result = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
  if (auto* error = std::get_if<Error>(&result)) error->userInfo["path"] = path.string();
  return result;
}

OrError<std::string> xmlPropertyList(const Value& value) {
  PlistPtr root(toNode(value));
  if (!root)
    return Error(kPropertyListErrorDomain, kPropertyListUnsupported,
                 "A property list cannot hold a null value");
  char* xml = nullptr;
  uint32_t length = 0;
  plist_to_xml(root.get(), &xml, &length);
  if (!xml)
    return Error(kPropertyListErrorDomain, kPropertyListUnsupported, "The property list cannot be written");
  std::string text(xml, length);
  plist_to_xml_free(xml);
  return text;
}

OptionalError writePropertyListFile(const std::filesystem::path& path, const Value& value) {
  auto xml = xmlPropertyList(value);
  if (auto* error = std::get_if<Error>(&xml)) return *error;
  return writeFileAtomically(path, std::string_view(std::get<std::string>(xml)));
}

}  // namespace lumeo
