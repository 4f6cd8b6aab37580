// A dynamically typed value: what property lists, JSON documents, settings,
// notification payloads and store attributes hold. Dictionaries keep their
// keys sorted so that written files are stable.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/date.h"

namespace lumeo {

class Value {
 public:
  using Data = std::vector<std::uint8_t>;
  using Array = std::vector<Value>;
  using Dictionary = std::map<std::string, Value>;
  enum class Type { kNull, kBool, kInteger, kReal, kString, kDate, kData, kArray, kDictionary };

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool b) : v_(b) {}
  Value(int i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(long long i) : v_(static_cast<std::int64_t>(i)) {}
  Value(unsigned i) : v_(static_cast<std::int64_t>(i)) {}
  Value(double d) : v_(d) {}
  Value(const char* s) : v_(std::string(s)) {}
  Value(std::string s) : v_(std::move(s)) {}
  Value(Date d) : v_(d) {}
  Value(Data d) : v_(std::move(d)) {}
  Value(Array a) : v_(std::move(a)) {}
  Value(Dictionary d) : v_(std::move(d)) {}

  Type type() const { return static_cast<Type>(v_.index()); }
  bool isNull() const { return type() == Type::kNull; }
  bool isNumber() const { return type() == Type::kBool || type() == Type::kInteger || type() == Type::kReal; }

  // Lenient readers in the manner of the platform's number objects: a number
  // of any kind reads as bool, integer or double; anything else gives the
  // fallback.
  bool toBool(bool fallback = false) const;
  std::int64_t toInt(std::int64_t fallback = 0) const;
  double toDouble(double fallback = 0) const;

  // Strict accessors: nullptr when the value is of another type.
  const std::string* asString() const { return std::get_if<std::string>(&v_); }
  const Date* asDate() const { return std::get_if<Date>(&v_); }
  const Data* asData() const { return std::get_if<Data>(&v_); }
  const Array* asArray() const { return std::get_if<Array>(&v_); }
  const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&v_); }
  Array* asArray() { return std::get_if<Array>(&v_); }
  Dictionary* asDictionary() { return std::get_if<Dictionary>(&v_); }

  std::string toString(const std::string& fallback = {}) const {
    const std::string* s = asString();
    return s ? *s : fallback;
  }

  // Dictionary member or null value when absent or not a dictionary.
  const Value& operator[](const std::string& key) const;

  friend bool operator==(const Value& a, const Value& b);

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Data, Array, Dictionary> v_;
};

}  // namespace lumeo
