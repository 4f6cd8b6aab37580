// The XML property-list reader and writer. The reader is a small recursive
// descent over the text, bounded in depth; the writer produces the form
// that the reader and other property-list tools read.
#include "platform/property_list.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

namespace lumeo {

namespace {

// ---------------------------------------------------------------------------
// Text

// Valid UTF-8 without control characters other than tab, line feed and
// carriage return: what an XML 1.0 document may hold as text.
bool isPlainText(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    const unsigned char c = *p;
    if (c < 0x80) {
      if ((c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7f) return false;
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
    if (cp == 0xfffe || cp == 0xffff) return false;
    p += extra + 1;
  }
  return true;
}

void appendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xc0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3f));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xe0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
    out += static_cast<char>(0x80 | (cp & 0x3f));
  } else {
    out += static_cast<char>(0xf0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
    out += static_cast<char>(0x80 | (cp & 0x3f));
  }
}

void appendEscaped(std::string& out, std::string_view text) {
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\r':
        // A reader turns a raw carriage return into a line feed.
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
}

// ---------------------------------------------------------------------------
// Base64

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64(const Value::Data& data) {
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= data.size(); i += 3) {
    const std::uint32_t n = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
    out += kBase64[n >> 18];
    out += kBase64[(n >> 12) & 63];
    out += kBase64[(n >> 6) & 63];
    out += kBase64[n & 63];
  }
  if (i + 1 == data.size()) {
    const std::uint32_t n = data[i] << 16;
    out += kBase64[n >> 18];
    out += kBase64[(n >> 12) & 63];
    out += "==";
  } else if (i + 2 == data.size()) {
    const std::uint32_t n = (data[i] << 16) | (data[i + 1] << 8);
    out += kBase64[n >> 18];
    out += kBase64[(n >> 12) & 63];
    out += kBase64[(n >> 6) & 63];
    out += '=';
  }
  return out;
}

// Whitespace anywhere is skipped, as files wrap long data.
std::optional<Value::Data> fromBase64(std::string_view text) {
  Value::Data out;
  std::uint32_t bits = 0;
  int count = 0;
  int padding = 0;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
    int v;
    if (c >= 'A' && c <= 'Z') {
      v = c - 'A';
    } else if (c >= 'a' && c <= 'z') {
      v = c - 'a' + 26;
    } else if (c >= '0' && c <= '9') {
      v = c - '0' + 52;
    } else if (c == '+') {
      v = 62;
    } else if (c == '/') {
      v = 63;
    } else if (c == '=') {
      ++padding;
      continue;
    } else {
      return std::nullopt;
    }
    if (padding) return std::nullopt;  // data after the padding
    bits = (bits << 6) | static_cast<std::uint32_t>(v);
    if (++count == 4) {
      out.push_back(static_cast<std::uint8_t>(bits >> 16));
      out.push_back(static_cast<std::uint8_t>(bits >> 8));
      out.push_back(static_cast<std::uint8_t>(bits));
      bits = 0;
      count = 0;
    }
  }
  if (count == 1 || padding > 2) return std::nullopt;
  if (count == 2) out.push_back(static_cast<std::uint8_t>(bits >> 4));
  if (count == 3) {
    out.push_back(static_cast<std::uint8_t>(bits >> 10));
    out.push_back(static_cast<std::uint8_t>(bits >> 2));
  }
  return out;
}

// ---------------------------------------------------------------------------
// Dates: proleptic Gregorian calendar in UTC, days counted from 1970-01-01.

constexpr std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

struct Civil {
  std::int64_t year;
  unsigned month, day;
};

constexpr Civil civilFromDays(std::int64_t z) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const std::int64_t y = static_cast<std::int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return {y + (m <= 2), m, d};
}

constexpr double kFirstSecond = static_cast<double>(daysFromCivil(0, 1, 1)) * 86400.0;
constexpr double kEndSecond = static_cast<double>(daysFromCivil(10000, 1, 1)) * 86400.0;

constexpr double kPowersOfTen[] = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,
                                   1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17};

bool digitsAt(std::string_view text, std::size_t at, std::size_t count, unsigned& value) {
  if (at + count > text.size()) return false;
  value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    value = value * 10 + static_cast<unsigned>(text[i] - '0');
  }
  return true;
}

// ---------------------------------------------------------------------------
// Reading

Error unreadable(const std::string& why) {
  return Error(kPropertyListErrorDomain, kPropertyListUnreadable, "Not a property list: " + why);
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  std::variant<Value, Error> document() {
    if (text_.starts_with("bplist")) return unreadable("binary property lists are not read");
    if (text_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
    if (!skipMisc(true)) return fail();
    Value root;
    if (peekTag("plist")) {
      Tag tag;
      if (!openTag(tag) || tag.name != "plist") return fail();
      if (tag.empty) return fail("an empty plist element");
      if (!skipMisc(false)) return fail();
      if (!value(root, 0)) return fail();
      if (!skipMisc(false) || !closeTag("plist")) return fail();
    } else if (!value(root, 0)) {
      return fail();
    }
    if (!skipMisc(false) || pos_ != text_.size()) return fail("text after the list");
    return root;
  }

 private:
  struct Tag {
    std::string_view name;
    bool empty = false;  // <name/>
  };

  Error fail(const std::string& why = {}) {
    if (!why.empty() && error_.empty()) error_ = why;
    return unreadable((error_.empty() ? std::string("malformed XML") : error_) + " near byte " +
                      std::to_string(pos_));
  }
  bool setError(const std::string& why) {
    if (error_.empty()) error_ = why;
    return false;
  }

  static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
  void skipSpace() {
    while (pos_ < text_.size() && isSpace(text_[pos_])) ++pos_;
  }
  bool startsWith(std::string_view s) const { return text_.substr(pos_).starts_with(s); }

  // Whitespace, comments and, before the root, the XML declaration,
  // processing instructions and the document type.
  bool skipMisc(bool prolog) {
    for (;;) {
      skipSpace();
      if (startsWith("<!--")) {
        const std::size_t end = text_.find("-->", pos_ + 4);
        if (end == std::string_view::npos) return setError("an unclosed comment");
        pos_ = end + 3;
      } else if (prolog && startsWith("<?")) {
        const std::size_t end = text_.find("?>", pos_ + 2);
        if (end == std::string_view::npos) return setError("an unclosed declaration");
        pos_ = end + 2;
      } else if (prolog && startsWith("<!DOCTYPE")) {
        // The document type may hold an internal subset in brackets.
        int brackets = 0;
        for (pos_ += 9; pos_ < text_.size(); ++pos_) {
          const char c = text_[pos_];
          if (c == '[') ++brackets;
          if (c == ']') --brackets;
          if (c == '>' && brackets <= 0) break;
        }
        if (pos_ >= text_.size()) return setError("an unclosed document type");
        ++pos_;
      } else {
        return true;
      }
    }
  }

  bool peekTag(std::string_view name) const {
    if (!startsWith("<") || !text_.substr(pos_ + 1).starts_with(name)) return false;
    const std::size_t after = pos_ + 1 + name.size();
    return after < text_.size() && (text_[after] == '>' || text_[after] == '/' || isSpace(text_[after]));
  }

  // "<name attr="…">" or "<name/>"; attributes are skipped.
  bool openTag(Tag& tag) {
    if (!startsWith("<")) return setError("an element expected");
    ++pos_;
    const std::size_t start = pos_;
    while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) != 0)) ++pos_;
    tag.name = text_.substr(start, pos_ - start);
    if (tag.name.empty()) return setError("an element expected");
    char quote = 0;
    for (; pos_ < text_.size(); ++pos_) {
      const char c = text_[pos_];
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '>') {
        tag.empty = pos_ > start && text_[pos_ - 1] == '/';
        ++pos_;
        return true;
      } else if (c == '<') {
        break;
      }
    }
    return setError("an unclosed element");
  }

  bool closeTag(std::string_view name) {
    if (!startsWith("</") || !text_.substr(pos_ + 2).starts_with(name)) {
      return setError("</" + std::string(name) + "> expected");
    }
    pos_ += 2 + name.size();
    skipSpace();
    if (pos_ >= text_.size() || text_[pos_] != '>') return setError("</" + std::string(name) + "> expected");
    ++pos_;
    return true;
  }

  // Character data up to the closing tag, entities and CDATA resolved.
  bool text(std::string_view name, std::string& out) {
    for (;;) {
      if (pos_ >= text_.size()) return setError("an unclosed <" + std::string(name) + ">");
      const char c = text_[pos_];
      if (c == '<') {
        if (startsWith("<![CDATA[")) {
          const std::size_t end = text_.find("]]>", pos_ + 9);
          if (end == std::string_view::npos) return setError("an unclosed CDATA section");
          out.append(text_.substr(pos_ + 9, end - pos_ - 9));
          pos_ = end + 3;
          continue;
        }
        if (startsWith("<!--")) {
          const std::size_t end = text_.find("-->", pos_ + 4);
          if (end == std::string_view::npos) return setError("an unclosed comment");
          pos_ = end + 3;
          continue;
        }
        if (!closeTag(name)) return false;
        if (!isPlainText(out)) return setError("text that is not UTF-8");
        return true;
      }
      if (c == '&') {
        if (!entity(out)) return false;
        continue;
      }
      out += c;
      ++pos_;
    }
  }

  bool entity(std::string& out) {
    const std::size_t end = text_.find(';', pos_);
    if (end == std::string_view::npos || end - pos_ > 12) return setError("a broken entity");
    const std::string_view name = text_.substr(pos_ + 1, end - pos_ - 1);
    pos_ = end + 1;
    if (name == "amp") {
      out += '&';
    } else if (name == "lt") {
      out += '<';
    } else if (name == "gt") {
      out += '>';
    } else if (name == "quot") {
      out += '"';
    } else if (name == "apos") {
      out += '\'';
    } else if (name.starts_with("#")) {
      const bool hex = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
      const std::string_view digits = name.substr(hex ? 2 : 1);
      std::uint32_t cp = 0;
      auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), cp, hex ? 16 : 10);
      if (digits.empty() || ec != std::errc() || ptr != digits.data() + digits.size() || cp == 0 ||
          cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) {
        return setError("a broken character reference");
      }
      appendUtf8(out, cp);
    } else {
      return setError("an unknown entity");
    }
    return true;
  }

  bool value(Value& out, int depth) {
    Tag tag;
    if (!openTag(tag)) return false;
    const std::string_view name = tag.name;
    if (name == "dict" || name == "array") {
      if (depth >= kPropertyListMaxNesting) return setError("nesting deeper than the limit");
      return name == "dict" ? dictionary(tag, out, depth) : array(tag, out, depth);
    }
    if (name == "true" || name == "false") {
      if (!tag.empty && !closeTag(name)) return false;
      out = Value(name == "true");
      return true;
    }
    std::string body;
    if (!tag.empty && !text(name, body)) return false;
    if (name == "string") {
      out = Value(std::move(body));
    } else if (name == "integer") {
      return integer(body, out);
    } else if (name == "real") {
      return real(body, out);
    } else if (name == "date") {
      auto date = parsePropertyListDate(trimmed(body));
      if (!date) return setError("a date that cannot be read");
      out = Value(*date);
    } else if (name == "data") {
      auto data = fromBase64(body);
      if (!data) return setError("data that is not base64");
      out = Value(std::move(*data));
    } else {
      return setError("an unknown element <" + std::string(name) + ">");
    }
    return true;
  }

  static std::string_view trimmed(std::string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
    return s;
  }

  bool integer(const std::string& body, Value& out) {
    std::string_view s = trimmed(body);
    const bool negative = s.starts_with("-");
    if (negative || s.starts_with("+")) s.remove_prefix(1);
    std::uint64_t magnitude = 0;
    auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), magnitude);
    if (s.empty() || ec != std::errc() || ptr != s.data() + s.size())
      return setError("an integer out of range");
    if (negative) {
      if (magnitude > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + 1) {
        return setError("an integer out of range");
      }
      out = Value(static_cast<long long>(-static_cast<std::int64_t>(magnitude - 1) - 1));
    } else {
      // Earlier versions wrote negative numbers as their unsigned 64-bit
      // pattern; they read back as the number they were.
      out = Value(static_cast<long long>(static_cast<std::int64_t>(magnitude)));
    }
    return true;
  }

  bool real(const std::string& body, Value& out) {
    std::string_view s = trimmed(body);
    if (s.starts_with("+")) s.remove_prefix(1);
    double d = 0;
    auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), d);
    if (s.empty() || ec != std::errc() || ptr != s.data() + s.size()) {
      // Other writers spell the infinities out.
      if (s == "infinity") {
        d = std::numeric_limits<double>::infinity();
      } else if (s == "-infinity") {
        d = -std::numeric_limits<double>::infinity();
      } else {
        return setError("a number that cannot be read");
      }
    }
    out = Value(d);
    return true;
  }

  bool dictionary(const Tag& tag, Value& out, int depth) {
    Value::Dictionary dict;
    if (!tag.empty) {
      for (;;) {
        if (!skipMisc(false)) return false;
        if (startsWith("</")) break;
        Tag keyTag;
        if (!openTag(keyTag) || keyTag.name != "key") return setError("<key> expected");
        std::string key;
        if (!keyTag.empty && !text("key", key)) return false;
        if (!skipMisc(false)) return false;
        Value item;
        if (!value(item, depth + 1)) return false;
        dict.insert_or_assign(std::move(key), std::move(item));
      }
      if (!closeTag("dict")) return false;
    }
    out = Value(std::move(dict));
    return true;
  }

  bool array(const Tag& tag, Value& out, int depth) {
    Value::Array items;
    if (!tag.empty) {
      for (;;) {
        if (!skipMisc(false)) return false;
        if (startsWith("</")) break;
        Value item;
        if (!value(item, depth + 1)) return false;
        items.push_back(std::move(item));
      }
      if (!closeTag("array")) return false;
    }
    out = Value(std::move(items));
    return true;
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  std::string error_;
};

// ---------------------------------------------------------------------------
// Writing

Error unsupported(const std::string& why) {
  return Error(kPropertyListErrorDomain, kPropertyListUnsupported, why);
}

OptionalError check(const Value& value, int depth) {
  switch (value.type()) {
    case Value::Type::kNull:
      return unsupported("a property list cannot hold a null value");
    case Value::Type::kReal:
      if (!std::isfinite(value.toDouble())) return unsupported("a number that is not finite cannot be kept");
      break;
    case Value::Type::kString:
      if (!isPlainText(*value.asString())) {
        return unsupported("text that is not UTF-8 or holds control characters cannot be kept");
      }
      break;
    case Value::Type::kDate:
      if (!propertyListDateText(*value.asDate())) {
        return unsupported("dates before the year 0000 or after 9999 cannot be kept");
      }
      break;
    case Value::Type::kArray:
      if (depth >= kPropertyListMaxNesting) return unsupported("lists nested this deep cannot be kept");
      for (const Value& item : *value.asArray()) {
        if (OptionalError e = check(item, depth + 1)) return e;
      }
      break;
    case Value::Type::kDictionary:
      if (depth >= kPropertyListMaxNesting) return unsupported("lists nested this deep cannot be kept");
      for (const auto& [key, item] : *value.asDictionary()) {
        if (!isPlainText(key)) {
          return unsupported("a key that is not UTF-8 or holds control characters cannot be kept");
        }
        if (OptionalError e = check(item, depth + 1)) return e;
      }
      break;
    default:
      break;
  }
  return std::nullopt;
}

void write(std::string& out, const Value& value, int indent) {
  const std::string pad(static_cast<std::size_t>(indent), '\t');
  out += pad;
  switch (value.type()) {
    case Value::Type::kNull:
      break;
    case Value::Type::kBool:
      out += value.toBool() ? "<true/>" : "<false/>";
      break;
    case Value::Type::kInteger:
      out += "<integer>" + std::to_string(value.toInt()) + "</integer>";
      break;
    case Value::Type::kReal: {
      char buffer[40];
      auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value.toDouble());
      out += "<real>";
      out.append(buffer, end);
      out += "</real>";
      break;
    }
    case Value::Type::kString:
      out += "<string>";
      appendEscaped(out, *value.asString());
      out += "</string>";
      break;
    case Value::Type::kDate:
      out += "<date>" + propertyListDateText(*value.asDate()).value_or("") + "</date>";
      break;
    case Value::Type::kData:
      out += "<data>" + base64(*value.asData()) + "</data>";
      break;
    case Value::Type::kArray:
      if (value.asArray()->empty()) {
        out += "<array/>";
        break;
      }
      out += "<array>\n";
      for (const Value& item : *value.asArray()) write(out, item, indent + 1);
      out += pad + "</array>";
      break;
    case Value::Type::kDictionary:
      if (value.asDictionary()->empty()) {
        out += "<dict/>";
        break;
      }
      out += "<dict>\n";
      for (const auto& [key, item] : *value.asDictionary()) {
        out += pad + "\t<key>";
        appendEscaped(out, key);
        out += "</key>\n";
        write(out, item, indent + 1);
      }
      out += pad + "</dict>";
      break;
  }
  out += '\n';
}

}  // namespace

std::optional<std::string> propertyListDateText(Date date) {
  const double seconds = date.timeIntervalSince1970();
  if (!(seconds >= kFirstSecond && seconds < kEndSecond)) return std::nullopt;
  // Whole seconds, cut towards the past: the form every reader takes.
  const auto whole = static_cast<std::int64_t>(std::floor(seconds));
  const std::int64_t days = whole >= 0 ? whole / 86400 : (whole - 86399) / 86400;
  const std::int64_t secondOfDay = whole - days * 86400;
  const Civil civil = civilFromDays(days);
  char text[64];
  const int n = std::snprintf(
      text, sizeof text, "%04lld-%02u-%02uT%02lld:%02lld:%02lldZ", static_cast<long long>(civil.year),
      civil.month, civil.day, static_cast<long long>(secondOfDay / 3600),
      static_cast<long long>(secondOfDay / 60 % 60), static_cast<long long>(secondOfDay % 60));
  return std::string(text, static_cast<std::size_t>(n));
}

std::optional<Date> parsePropertyListDate(std::string_view text) {
  // YYYY-MM-DDTHH:MM:SS[.fraction]Z
  unsigned year, month, day, hour, minute, second;
  if (text.size() < 20 || !digitsAt(text, 0, 4, year) || text[4] != '-' || !digitsAt(text, 5, 2, month) ||
      text[7] != '-' || !digitsAt(text, 8, 2, day) || text[10] != 'T' || !digitsAt(text, 11, 2, hour) ||
      text[13] != ':' || !digitsAt(text, 14, 2, minute) || text[16] != ':' ||
      !digitsAt(text, 17, 2, second)) {
    return std::nullopt;
  }
  std::size_t pos = 19;
  std::uint64_t fraction = 0;
  int digits = 0;
  if (text[pos] == '.') {
    for (++pos; pos < text.size() && text[pos] >= '0' && text[pos] <= '9'; ++pos) {
      // Digits beyond the 17th cannot change a double's seconds.
      if (digits < 17) {
        fraction = fraction * 10 + static_cast<std::uint64_t>(text[pos] - '0');
        ++digits;
      }
    }
    if (digits == 0) return std::nullopt;
  }
  if (pos + 1 != text.size() || text[pos] != 'Z') return std::nullopt;
  static constexpr unsigned kDaysInMonth[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1 || day > kDaysInMonth[month - 1] || hour > 23 || minute > 59 ||
      second > 59) {
    return std::nullopt;
  }
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (month == 2 && day == 29 && !leap) return std::nullopt;
  const std::int64_t whole = daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
  return Date::fromTimeIntervalSince1970(static_cast<double>(whole) +
                                         static_cast<double>(fraction) / kPowersOfTen[digits]);
}

std::variant<Value, Error> parsePropertyList(std::string_view data) {
  if (data.empty()) return unreadable("the data is empty");
  return Reader(data).document();
}

OptionalError checkPropertyListValue(const Value& value) {
  return check(value, 0);
}

std::variant<std::string, Error> xmlPropertyList(const Value& value) {
  if (OptionalError error = checkPropertyListValue(value)) return *error;
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n";
  write(out, value, 0);
  out += "</plist>\n";
  return out;
}

std::variant<Value, Error> readPropertyListFile(const std::filesystem::path& path) {
  auto bytes = readFileBytes(path);
  if (auto* error = std::get_if<Error>(&bytes)) return *error;
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  auto result = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
  if (auto* error = std::get_if<Error>(&result)) {
    error->userInfo["path"] = path.string();
    error->description += " (" + path.string() + ")";
  }
  return result;
}

OptionalError writePropertyListFile(const std::filesystem::path& path, const Value& value,
                                    FileAccess access) {
  auto xml = xmlPropertyList(value);
  if (auto* error = std::get_if<Error>(&xml)) return *error;
  return writeFileAtomically(path, std::string_view(std::get<std::string>(xml)), access);
}

}  // namespace lumeo
