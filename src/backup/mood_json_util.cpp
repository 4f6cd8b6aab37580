// The backup documents' writers, and the JSON parser and printer they share
// with the readers.
#include "backup/mood_json_util.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "backup/backup_journal_reader.h"
#include "platform/date_formatter.h"
#include "platform/property_list.h"
#include "platform/time_zone.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo {

namespace {

constexpr int kMaxJSONNesting = 256;

// The shortest text that reads back as the same double.
std::string shortestNumber(double value) {
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::variant<Value, Error> parseDocument() {
    skipSpace();
    Value value;
    if (!parseValue(value, 0)) return error_;
    skipSpace();
    if (at_ != text_.size()) {
      fail("text after the end of the document");
      return error_;
    }
    return value;
  }

 private:
  void fail(const std::string& what) {
    error_ = Error(kBackupErrorDomain, kBackupDocumentUnreadable,
                   "not valid JSON at byte " + std::to_string(at_) + ": " + what);
  }

  void skipSpace() {
    while (at_ < text_.size() &&
           (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r')) {
      ++at_;
    }
  }

  bool literal(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return false;
    at_ += word.size();
    return true;
  }

  bool parseValue(Value& out, int depth) {
    if (depth > kMaxJSONNesting) {
      fail("nested too deep");
      return false;
    }
    if (at_ >= text_.size()) {
      fail("the document ends early");
      return false;
    }
    const char c = text_[at_];
    if (c == '{') return parseObject(out, depth);
    if (c == '[') return parseArray(out, depth);
    if (c == '"') {
      std::string s;
      if (!parseString(s)) return false;
      out = Value(std::move(s));
      return true;
    }
    if (literal("true")) {
      out = Value(true);
      return true;
    }
    if (literal("false")) {
      out = Value(false);
      return true;
    }
    if (literal("null")) {
      out = Value();
      return true;
    }
    if (c == '-' || (c >= '0' && c <= '9')) return parseNumber(out);
    fail(std::string("unexpected character '") + c + "'");
    return false;
  }

  bool parseObject(Value& out, int depth) {
    ++at_;
    Value::Dictionary dict;
    skipSpace();
    if (at_ < text_.size() && text_[at_] == '}') {
      ++at_;
      out = Value(std::move(dict));
      return true;
    }
    for (;;) {
      skipSpace();
      if (at_ >= text_.size() || text_[at_] != '"') {
        fail("a key was expected");
        return false;
      }
      std::string key;
      if (!parseString(key)) return false;
      skipSpace();
      if (at_ >= text_.size() || text_[at_] != ':') {
        fail("':' was expected");
        return false;
      }
      ++at_;
      skipSpace();
      Value value;
      if (!parseValue(value, depth + 1)) return false;
      dict[key] = std::move(value);
      skipSpace();
      if (at_ < text_.size() && text_[at_] == ',') {
        ++at_;
        continue;
      }
      if (at_ < text_.size() && text_[at_] == '}') {
        ++at_;
        out = Value(std::move(dict));
        return true;
      }
      fail("',' or '}' was expected");
      return false;
    }
  }

  bool parseArray(Value& out, int depth) {
    ++at_;
    Value::Array array;
    skipSpace();
    if (at_ < text_.size() && text_[at_] == ']') {
      ++at_;
      out = Value(std::move(array));
      return true;
    }
    for (;;) {
      skipSpace();
      Value value;
      if (!parseValue(value, depth + 1)) return false;
      array.push_back(std::move(value));
      skipSpace();
      if (at_ < text_.size() && text_[at_] == ',') {
        ++at_;
        continue;
      }
      if (at_ < text_.size() && text_[at_] == ']') {
        ++at_;
        out = Value(std::move(array));
        return true;
      }
      fail("',' or ']' was expected");
      return false;
    }
  }

  static void appendUTF8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  std::optional<std::uint32_t> hex4(std::size_t from) const {
    if (from + 4 > text_.size()) return std::nullopt;
    std::uint32_t code = 0;
    for (std::size_t i = from; i < from + 4; ++i) {
      const char h = text_[i];
      code <<= 4;
      if (h >= '0' && h <= '9') {
        code |= static_cast<std::uint32_t>(h - '0');
      } else if (h >= 'a' && h <= 'f') {
        code |= static_cast<std::uint32_t>(h - 'a' + 10);
      } else if (h >= 'A' && h <= 'F') {
        code |= static_cast<std::uint32_t>(h - 'A' + 10);
      } else {
        return std::nullopt;
      }
    }
    return code;
  }

  bool parseString(std::string& out) {
    const std::size_t start = at_++;
    for (;;) {
      // Copy the plain run at once: comments of a megabyte are common
      // enough.
      std::size_t run = at_;
      while (run < text_.size() && text_[run] != '"' && text_[run] != '\\') ++run;
      out.append(text_.data() + at_, run - at_);
      at_ = run;
      if (at_ >= text_.size()) {
        at_ = start;
        fail("a string is not closed");
        return false;
      }
      if (text_[at_] == '"') {
        ++at_;
        return true;
      }
      // A backslash.
      if (at_ + 1 >= text_.size()) {
        at_ = start;
        fail("a string is not closed");
        return false;
      }
      const char e = text_[at_ + 1];
      at_ += 2;
      switch (e) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case '/':
          out += '/';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          auto code = hex4(at_);
          if (!code) {
            // Not an escape after all: the writer left a backslash as it was.
            out += "\\u";
            break;
          }
          at_ += 4;
          if (*code >= 0xD800 && *code <= 0xDBFF && text_.substr(at_, 2) == "\\u") {
            auto low = hex4(at_ + 2);
            if (low && *low >= 0xDC00 && *low <= 0xDFFF) {
              at_ += 6;
              appendUTF8(out, 0x10000 + ((*code - 0xD800) << 10) + (*low - 0xDC00));
              break;
            }
          }
          appendUTF8(out, *code);
          break;
        }
        default:
          // "\q": a backslash that was never escaped stands for itself.
          out += '\\';
          out += e;
          break;
      }
    }
  }

  bool parseNumber(Value& out) {
    const std::size_t start = at_;
    if (text_[at_] == '-') ++at_;
    bool integral = true;
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c >= '0' && c <= '9') {
        ++at_;
      } else if (c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-') {
        integral = false;
        ++at_;
      } else {
        break;
      }
    }
    const std::string_view number = text_.substr(start, at_ - start);
    if (integral) {
      std::int64_t value = 0;
      auto result = std::from_chars(number.data(), number.data() + number.size(), value);
      if (result.ec == std::errc() && result.ptr == number.data() + number.size()) {
        out = Value(static_cast<long long>(value));
        return true;
      }
    }
    double value = 0;
    auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec != std::errc() || result.ptr != number.data() + number.size() || !std::isfinite(value)) {
      at_ = start;
      fail("a number cannot be read");
      return false;
    }
    out = Value(value);
    return true;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  Error error_;
};

void appendJSON(std::string& out, const Value& value, bool pretty, int indent) {
  auto newline = [&](int level) {
    if (!pretty) return;
    out += '\n';
    out.append(static_cast<std::size_t>(level) * 2, ' ');
  };
  switch (value.type()) {
    case Value::Type::kNull:
      out += "null";
      break;
    case Value::Type::kBool:
      out += value.toBool() ? "true" : "false";
      break;
    case Value::Type::kInteger:
      out += std::to_string(value.toInt());
      break;
    case Value::Type::kReal: {
      std::string number = shortestNumber(value.toDouble());
      if (number.find_first_of(".eEn") == std::string::npos) number += ".0";
      out += number;
      break;
    }
    case Value::Type::kString:
      out += '"';
      out += escapeJSONString(*value.asString());
      out += '"';
      break;
    case Value::Type::kDate:
      out += '"';
      out += propertyListDateText(*value.asDate()).value_or("");
      out += '"';
      break;
    case Value::Type::kData:
      out += "null";
      break;
    case Value::Type::kArray: {
      const auto& array = *value.asArray();
      out += '[';
      for (std::size_t i = 0; i < array.size(); ++i) {
        if (i) out += ',';
        newline(indent + 1);
        appendJSON(out, array[i], pretty, indent + 1);
      }
      if (!array.empty()) newline(indent);
      out += ']';
      break;
    }
    case Value::Type::kDictionary: {
      const auto& dict = *value.asDictionary();
      out += '{';
      bool first = true;
      for (const auto& [key, member] : dict) {
        if (!first) out += ',';
        first = false;
        newline(indent + 1);
        out += '"';
        out += escapeJSONString(key);
        out += pretty ? "\" : " : "\":";
        appendJSON(out, member, pretty, indent + 1);
      }
      if (!dict.empty()) newline(indent);
      out += '}';
      break;
    }
  }
}

DateFormatter unifiedDateFormatter() {
  DateFormatter formatter(kBackupDateFormat);
  formatter.setLocale("en_US");
  return formatter;
}

}  // namespace

std::string escapeJSONString(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      default:
        if (c < 0x20) {
          char buffer[8];
          std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
          out += buffer;
        } else {
          out += ch;
        }
    }
  }
  return out;
}

std::variant<Value, Error> parseLenientJSON(std::string_view text) {
  // A byte-order mark in front is no part of the document.
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  return Parser(text).parseDocument();
}

std::string jsonText(const Value& value, bool pretty) {
  std::string out;
  appendJSON(out, value, pretty, 0);
  return out;
}

// --- backup.json ----------------------------------------------------------

std::string MoodJSONUtil::jsonTag(MoodTag& tag) {
  std::string out = "{\"tagName\":\"" + escapeJSONString(tag.tagName()) + "\",";
  out += "\"frequency\":" + std::to_string(static_cast<std::int32_t>(tag.frequency())) + ",";
  out += "\"cachedLevelSum\":" + std::to_string(static_cast<std::int32_t>(tag.cachedLevelSum()));
  if (auto unit = tag.tagUnit()) out += ",\"tagUnit\":\"" + escapeJSONString(*unit) + "\"";
  return out + "}";
}

std::string MoodJSONUtil::jsonTags(const std::vector<std::shared_ptr<MoodTag>>& tags) {
  std::string out = "[";
  for (std::size_t i = 0; i < tags.size(); ++i) {
    if (i) out += ',';
    out += jsonTag(*tags[i]);
  }
  return out + "]";
}

std::string MoodJSONUtil::jsonDescription(const MoodDescription* description) {
  if (!description) return "";
  std::string out = "{";
  if (auto comment = description->comment()) out += "\"comment\":\"" + escapeJSONString(*comment) + "\",";
  if (auto thumb = description->thumbName()) out += "\"thumbName\":\"" + escapeJSONString(*thumb) + "\",";
  if (auto photo = description->photoName()) out += "\"photoName\":\"" + escapeJSONString(*photo) + "\",";
  // -1 is "nowhere"; each coordinate is left out on its own, as the
  // phone app does, and comes back as -1.
  if (description->latitude() != -1.0)
    out += "\"latitude\":\"" + shortestNumber(description->latitude()) + "\",";
  if (description->longitude() != -1.0) {
    out += "\"longitude\":\"" + shortestNumber(description->longitude()) + "\",";
  }
  out += "\"wasEdited\":" + std::to_string(description->wasEdited() ? 1 : 0);
  return out + "}";
}

std::string MoodJSONUtil::jsonRecord(const MoodRecord& record) {
  static thread_local DateFormatter formatter = unifiedDateFormatter();
  formatter.setTimeZone(TimeZone::current());
  std::string out = "{";
  const std::optional<Date> date = record.date();
  out += "\"date\":\"" + (date ? formatter.stringFromDate(*date) : std::string()) + "\",";
  out += "\"moodLevel\":" + std::to_string(static_cast<std::int32_t>(record.moodLevel())) + ",";
  auto description = record.moodDescription();
  out += "\"moodDescription\":" + jsonDescription(description.get());
  auto tags = record.moodTags();
  if (!tags.empty()) out += ",\"moodTags\":" + jsonTags(tags);
  // The exact instant: "date" keeps only the local wall-clock time to the
  // second, which a change of zone or a clock set back would shift.
  if (date) out += ",\"timestamp\":" + shortestNumber(date->timeIntervalSince1970());
  return out + "}";
}

std::string MoodJSONUtil::jsonRecords(const std::vector<std::shared_ptr<MoodRecord>>& records) {
  std::string out = "[";
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (i) out += ',';
    out += jsonRecord(*records[i]);
  }
  return out + "]";
}

std::string MoodJSONUtil::jsonCreateFile(JournalStore& store) {
  return jsonRecords(store.allRecords());
}

// --- The settings documents ---------------------------------------------------

std::string MoodJSONUtil::jsonMoodsFile(const Value::Array& moodTable) {
  return jsonText(Value(moodTable), true);
}

std::variant<std::string, Error> MoodJSONUtil::remindersFile(const Value::Array& alarms) {
  return xmlPropertyList(Value(alarms));
}

std::variant<std::string, Error> MoodJSONUtil::jsonColorsFile(const Color& from, const Color& middle,
                                                              const Color& to) {
  Value::Array colors;
  for (const Color* color : {&from, &middle, &to}) {
    Value::Array triple;
    triple.reserve(3);
    triple.emplace_back(color->red);
    triple.emplace_back(color->green);
    triple.emplace_back(color->blue);
    colors.emplace_back(std::move(triple));
  }
  return xmlPropertyList(Value(colors));
}

std::variant<std::string, Error> MoodJSONUtil::emotionsFile(const Value::Array& emotions) {
  return xmlPropertyList(Value(emotions));
}

}  // namespace lumeo
