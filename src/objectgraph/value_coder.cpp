// The built-in coding of any Value as bytes, used for transformable
// attributes without a named transformer. Format: one tag byte per value,
// little-endian fixed-width numbers, length-prefixed strings, data, arrays
// and dictionaries. Decoding checks every length and gives null for data it
// cannot read, so a damaged row never crashes a fetch.
#include <cstring>

#include "objectgraph/managed_object_model.h"

namespace lumeo {

namespace {

enum Tag : std::uint8_t { kNull, kFalse, kTrue, kInt, kReal, kString, kDate, kData, kArray, kDict };

void putU64(Value::Data& out, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void putDouble(Value::Data& out, double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, 8);
  putU64(out, bits);
}
void putBytes(Value::Data& out, const void* p, std::size_t n) {
  putU64(out, n);
  const auto* b = static_cast<const std::uint8_t*>(p);
  out.insert(out.end(), b, b + n);
}

void encode(const Value& v, Value::Data& out) {
  switch (v.type()) {
    case Value::Type::kNull:
      out.push_back(kNull);
      break;
    case Value::Type::kBool:
      out.push_back(v.toBool() ? kTrue : kFalse);
      break;
    case Value::Type::kInteger:
      out.push_back(kInt);
      putU64(out, static_cast<std::uint64_t>(v.toInt()));
      break;
    case Value::Type::kReal:
      out.push_back(kReal);
      putDouble(out, v.toDouble());
      break;
    case Value::Type::kString:
      out.push_back(kString);
      putBytes(out, v.asString()->data(), v.asString()->size());
      break;
    case Value::Type::kDate:
      out.push_back(kDate);
      putDouble(out, v.asDate()->timeIntervalSince1970());
      break;
    case Value::Type::kData:
      out.push_back(kData);
      putBytes(out, v.asData()->data(), v.asData()->size());
      break;
    case Value::Type::kArray:
      out.push_back(kArray);
      putU64(out, v.asArray()->size());
      for (const auto& item : *v.asArray()) encode(item, out);
      break;
    case Value::Type::kDictionary:
      out.push_back(kDict);
      putU64(out, v.asDictionary()->size());
      for (const auto& [key, item] : *v.asDictionary()) {
        putBytes(out, key.data(), key.size());
        encode(item, out);
      }
      break;
  }
}

struct Reader {
  const Value::Data& d;
  std::size_t pos = 0;
  bool ok = true;
  int depth = 0;

  bool need(std::size_t n) {
    if (!ok || d.size() - pos < n) ok = false;
    return ok;
  }
  std::uint64_t u64() {
    if (!need(8)) return 0;
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<std::uint64_t>(d[pos + i]) << (8 * i);
    pos += 8;
    return v;
  }
  double real() {
    std::uint64_t bits = u64();
    double x;
    std::memcpy(&x, &bits, 8);
    return x;
  }
  std::string bytes() {
    std::uint64_t n = u64();
    if (!need(n)) return {};
    std::string s(reinterpret_cast<const char*>(d.data() + pos), n);
    pos += n;
    return s;
  }
  Value value() {
    if (!need(1) || ++depth > 200) {
      ok = false;
      return {};
    }
    Value out;
    switch (d[pos++]) {
      case kNull:
        break;
      case kFalse:
        out = false;
        break;
      case kTrue:
        out = true;
        break;
      case kInt:
        out = Value(static_cast<long long>(u64()));
        break;
      case kReal:
        out = real();
        break;
      case kString:
        out = bytes();
        break;
      case kDate:
        out = Date::fromTimeIntervalSince1970(real());
        break;
      case kData: {
        std::string s = bytes();
        out = Value::Data(s.begin(), s.end());
        break;
      }
      case kArray: {
        std::uint64_t n = u64();
        Value::Array a;
        for (std::uint64_t i = 0; i < n && ok; ++i) a.push_back(value());
        out = std::move(a);
        break;
      }
      case kDict: {
        std::uint64_t n = u64();
        Value::Dictionary m;
        for (std::uint64_t i = 0; i < n && ok; ++i) {
          std::string key = bytes();
          m[key] = value();
        }
        out = std::move(m);
        break;
      }
      default:
        ok = false;
    }
    --depth;
    return out;
  }
};

}  // namespace

Value::Data encodeValue(const Value& value) {
  Value::Data out;
  encode(value, out);
  return out;
}

Value decodeValue(const Value::Data& data) {
  Reader r{data};
  Value v = r.value();
  if (!r.ok || r.pos != data.size()) return {};
  return v;
}

}  // namespace lumeo
