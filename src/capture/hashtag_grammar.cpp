// Parsing and rewriting of hashtags in comments. The constant patterns are
// compiled once and shared; the dynamic ones (rename, deletion) per call,
// since they carry a tag name.
#include "capture/hashtag_grammar.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace lumeo {

namespace {

const RegularExpression& constantPattern(std::string_view pattern) {
  // Only the constants of the header come here, so a failed compile is a
  // programming error that the grammar tests catch.
  struct Entry {
    std::string_view pattern;
    RegularExpression compiled;
  };
  static const std::vector<Entry> entries = [] {
    std::vector<Entry> result;
    for (std::string_view p :
         {kTagExtractionPattern, kTagSplitPattern, kTagDisplayPattern, kTagDisplayNumberPattern,
          kIncompleteTagPattern, kUnitOfferPattern, kThirdValuePattern, kThirdValueNumberPattern,
          std::string_view(R"([\w\-'\_]+)")}) {
      result.push_back(Entry{p, *RegularExpression::compile(p)});
    }
    return result;
  }();
  for (const Entry& e : entries) {
    if (e.pattern.data() == pattern.data() || e.pattern == pattern) return e.compiled;
  }
  std::abort();
}

std::string replaceRanges(std::string_view text, std::vector<std::pair<TextRange, std::string_view>> edits) {
  // Last to first, so earlier ranges keep their offsets.
  std::string result(text);
  std::sort(edits.begin(), edits.end(),
            [](const auto& a, const auto& b) { return a.first.location > b.first.location; });
  for (const auto& [range, replacement] : edits) result.replace(range.location, range.length, replacement);
  return result;
}

}  // namespace

std::vector<MoodPreTag> findTagsInText(std::string_view text) {
  std::vector<MoodPreTag> tags;
  if (text.empty()) return tags;
  const RegularExpression& split = constantPattern(kTagSplitPattern);
  for (const RegexMatch& match : constantPattern(kTagExtractionPattern).matches(text)) {
    const TextRange r = match.range();
    const std::string_view token = text.substr(r.location + 1, r.length - 1);
    MoodPreTag tag;
    if (auto parts = split.firstMatch(token)) {
      tag.tagName = parts->group(token, 1);
      tag.tagValue = parts->group(token, 2);
      tag.tagUnit = parts->group(token, 3);
    } else {
      tag.tagName = std::string(token);
    }
    tags.push_back(std::move(tag));
  }
  return tags;
}

double doubleValue(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  const std::size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  const std::size_t mantissaStart = i;
  while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
  }
  const std::string_view mantissa = text.substr(mantissaStart, i - mantissaStart);
  if (mantissa.empty() || mantissa == ".") return 0;
  // An exponent counts only when digits follow it.
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    std::size_t j = i + 1;
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) ++j;
    if (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) {
      while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) ++j;
      i = j;
    }
  }
  std::string number(text.substr(start, i - start));
  if (!number.empty() && number[0] == '+') number.erase(0, 1);
  const double sign = number[0] == '-' ? -1 : 1;
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    // Too large saturates to infinity, too small to zero, as strtod does.
    const std::string_view integerPart = mantissa.substr(0, mantissa.find('.'));
    const bool negativeExponent =
        number.find("e-") != std::string::npos || number.find("E-") != std::string::npos;
    const bool large = !negativeExponent && integerPart.find_first_not_of('0') != std::string_view::npos;
    return sign * (large ? HUGE_VAL : 0.0);
  }
  return result.ec == std::errc() ? value : 0;
}

bool isTagName(std::string_view name) {
  return !name.empty() && constantPattern(R"([\w\-'\_]+)").matchesWhole(name);
}

std::string fillPattern(std::string_view format, const std::vector<std::string_view>& arguments) {
  std::string result;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '@' && next < arguments.size()) {
      result += arguments[next++];
      ++i;
    } else {
      result += format[i];
    }
  }
  return result;
}

std::optional<TextRange> rangeOfIncompleteTag(std::string_view text, std::size_t cursor) {
  if (cursor > text.size()) return std::nullopt;
  for (const RegexMatch& match : constantPattern(kIncompleteTagPattern).matches(text)) {
    const TextRange r = match.range();
    if (r.end() == cursor) return TextRange{r.location + 1, r.length - 1};
    if (r.location >= cursor) break;
  }
  return std::nullopt;
}

std::optional<std::string> tagNameForUnitOffer(std::string_view textUpToCursor) {
  auto match = constantPattern(kUnitOfferPattern).firstMatch(textUpToCursor);
  if (!match) return std::nullopt;
  return match->group(textUpToCursor, 1);
}

std::vector<TaggedToken> taggedTokensInText(std::string_view text) {
  std::vector<TaggedToken> tokens;
  const RegularExpression& number = constantPattern(kTagDisplayNumberPattern);
  for (const RegexMatch& match : constantPattern(kTagDisplayPattern).matches(text)) {
    TaggedToken t;
    t.token = match.range();
    const std::string_view body = text.substr(t.token.location + 1, t.token.length - 1);
    const std::size_t colon = body.find(':');
    const std::size_t nameLength = colon == std::string_view::npos ? body.size() : colon;
    t.name = TextRange{t.token.location + 1, nameLength};
    t.tagName = std::string(body.substr(0, nameLength));
    if (colon != std::string_view::npos) {
      const std::string_view rest = body.substr(colon + 1);
      if (auto m = number.firstMatch(rest)) {
        const TextRange r = m->range();
        t.valueUnit = TextRange{t.token.location + 1 + colon + 1 + r.location, r.length};
      }
    }
    tokens.push_back(std::move(t));
  }
  return tokens;
}

std::string renameTagInText(std::string_view text, std::string_view oldName, std::string_view newName) {
  if (!isTagName(oldName)) return std::string(text);
  auto pattern = RegularExpression::compile(fillPattern(kTagRenamePattern, {oldName}));
  if (!pattern) return std::string(text);
  const std::string replacement = "#" + std::string(newName);
  std::vector<std::pair<TextRange, std::string_view>> edits;
  for (const RegexMatch& match : pattern->matches(text)) {
    TextRange r = match.range();
    // The blank or colon behind the name belongs to the text, not the name.
    if (r.length > 0 && (text[r.end() - 1] == ' ' || text[r.end() - 1] == ':')) --r.length;
    edits.emplace_back(r, replacement);
  }
  return replaceRanges(text, std::move(edits));
}

std::string removeTagFromText(std::string_view text, std::string_view name) {
  if (!isTagName(name)) return std::string(text);
  return removeTagFromText(text, name, kTagDeletionPatternPossessive);
}

std::string removeTagFromText(std::string_view text, std::string_view name, std::string_view patternFormat) {
  if (!isTagName(name)) return std::string(text);
  auto pattern = RegularExpression::compile(fillPattern(patternFormat, {name, name, name, name}),
                                            RegularExpression::kCaseInsensitive);
  if (!pattern) return std::string(text);
  std::vector<std::pair<TextRange, std::string_view>> edits;
  for (const RegexMatch& match : pattern->matches(text))
    edits.emplace_back(match.range(), std::string_view());
  return replaceRanges(text, std::move(edits));
}

}  // namespace lumeo
