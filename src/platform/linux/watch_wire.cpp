// JSON to message dictionaries and back, with the limits that keep a
// hostile peer from costing more than one dropped line.
#include "platform/linux/watch_wire.h"

#include <nlohmann/json.hpp>

namespace lumeo::watch_wire {

namespace {

std::optional<Value> valueFromJson(const nlohmann::json& json, int depth) {
  if (depth > kMaxDepth) return std::nullopt;
  switch (json.type()) {
    case nlohmann::json::value_t::null:
      return Value();
    case nlohmann::json::value_t::boolean:
      return Value(json.get<bool>());
    case nlohmann::json::value_t::number_integer:
      return Value(static_cast<long long>(json.get<std::int64_t>()));
    case nlohmann::json::value_t::number_unsigned: {
      const auto n = json.get<std::uint64_t>();
      if (n > static_cast<std::uint64_t>(INT64_MAX)) return Value(static_cast<double>(n));
      return Value(static_cast<long long>(n));
    }
    case nlohmann::json::value_t::number_float:
      return Value(json.get<double>());
    case nlohmann::json::value_t::string:
      return Value(json.get<std::string>());
    case nlohmann::json::value_t::array: {
      Value::Array array;
      array.reserve(json.size());
      for (const auto& item : json) {
        auto value = valueFromJson(item, depth + 1);
        if (!value) return std::nullopt;
        array.push_back(std::move(*value));
      }
      return Value(std::move(array));
    }
    case nlohmann::json::value_t::object: {
      Value::Dictionary dictionary;
      for (const auto& [key, item] : json.items()) {
        auto value = valueFromJson(item, depth + 1);
        if (!value) return std::nullopt;
        dictionary.emplace(key, std::move(*value));
      }
      return Value(std::move(dictionary));
    }
    default:
      return std::nullopt;  // binary and discarded values
  }
}

nlohmann::json jsonFromValue(const Value& value) {
  switch (value.type()) {
    case Value::Type::kNull:
      return nullptr;
    case Value::Type::kBool:
      return value.toBool();
    case Value::Type::kInteger:
      return value.toInt();
    case Value::Type::kReal:
      return value.toDouble();
    case Value::Type::kString:
      return *value.asString();
    case Value::Type::kDate:
      return value.asDate()->timeIntervalSince1970();
    case Value::Type::kData:
      return *value.asData();
    case Value::Type::kArray: {
      nlohmann::json array = nlohmann::json::array();
      for (const auto& item : *value.asArray()) array.push_back(jsonFromValue(item));
      return array;
    }
    case Value::Type::kDictionary: {
      nlohmann::json object = nlohmann::json::object();
      for (const auto& [key, item] : *value.asDictionary()) object[key] = jsonFromValue(item);
      return object;
    }
  }
  return nullptr;
}

std::optional<std::int64_t> integerMember(const nlohmann::json& object, const char* key, bool& bad) {
  auto it = object.find(key);
  if (it == object.end()) return std::nullopt;
  if (it->is_number_integer()) return it->get<std::int64_t>();
  bad = true;
  return std::nullopt;
}

}  // namespace

std::optional<Envelope> parseLine(std::string_view line) {
  if (line.size() > kMaxLineBytes) return std::nullopt;
  nlohmann::json json = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) return std::nullopt;
  Envelope envelope;
  bool bad = false;
  envelope.id = integerMember(json, "id", bad);
  envelope.reply = integerMember(json, "reply", bad);
  if (bad || (envelope.id && envelope.reply)) return std::nullopt;
  auto message = json.find("message");
  if (message == json.end() || !message->is_object()) return std::nullopt;
  auto value = valueFromJson(*message, 0);
  if (!value || !value->asDictionary()) return std::nullopt;
  envelope.message = std::move(*value->asDictionary());
  return envelope;
}

std::string encodeLine(const Envelope& envelope) {
  nlohmann::json json = nlohmann::json::object();
  if (envelope.id) json["id"] = *envelope.id;
  if (envelope.reply) json["reply"] = *envelope.reply;
  json["message"] = jsonFromValue(Value(envelope.message));
  // Text that is not UTF-8 goes out with replacement characters rather than
  // failing the whole message.
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace lumeo::watch_wire
