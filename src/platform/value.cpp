// Lenient number reading and equality of dynamic values.
#include "platform/value.h"

namespace lumeo {

bool Value::toBool(bool fallback) const {
  switch (type()) {
    case Type::kBool:
      return std::get<bool>(v_);
    case Type::kInteger:
      return std::get<std::int64_t>(v_) != 0;
    case Type::kReal:
      return std::get<double>(v_) != 0.0;
    default:
      return fallback;
  }
}

std::int64_t Value::toInt(std::int64_t fallback) const {
  switch (type()) {
    case Type::kBool:
      return std::get<bool>(v_) ? 1 : 0;
    case Type::kInteger:
      return std::get<std::int64_t>(v_);
    case Type::kReal:
      return static_cast<std::int64_t>(std::get<double>(v_));
    default:
      return fallback;
  }
}

double Value::toDouble(double fallback) const {
  switch (type()) {
    case Type::kBool:
      return std::get<bool>(v_) ? 1.0 : 0.0;
    case Type::kInteger:
      return static_cast<double>(std::get<std::int64_t>(v_));
    case Type::kReal:
      return std::get<double>(v_);
    default:
      return fallback;
  }
}

const Value& Value::operator[](const std::string& key) const {
  static const Value kNull;
  const Dictionary* d = asDictionary();
  if (!d) return kNull;
  auto it = d->find(key);
  return it == d->end() ? kNull : it->second;
}

bool operator==(const Value& a, const Value& b) {
  // Numbers compare by value across kinds, as number objects do.
  if (a.isNumber() && b.isNumber() && a.type() != b.type()) {
    return a.toDouble() == b.toDouble();
  }
  return a.v_ == b.v_;
}

}  // namespace lumeo
