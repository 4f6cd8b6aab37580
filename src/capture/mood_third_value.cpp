// Building the tag-and-unit table and reading one pair's values, through
// the same ICU patterns as the rest of the hashtag grammar.
#include "capture/mood_third_value.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <set>

#include "capture/hashtag_grammar.h"

namespace lumeo {

namespace {

std::string commaToPoint(std::string_view text) {
  std::string result(text);
  std::replace(result.begin(), result.end(), ',', '.');
  return result;
}

}  // namespace

std::string lowercaseString(std::string_view text) {
  icu::UnicodeString s =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  s.toLower(icu::Locale::getRoot());
  std::string result;
  s.toUTF8String(result);
  return result;
}

void MoodThirdValueTable::addComment(std::string_view comment) {
  static const RegularExpression tokenPattern = *RegularExpression::compile(kThirdValuePattern);
  static const RegularExpression numberPattern = *RegularExpression::compile(kThirdValueNumberPattern);
  std::set<std::string> seen;
  for (const RegexMatch& match : tokenPattern.matches(comment)) {
    const TextRange r = match.range();
    const std::string_view token = comment.substr(r.location + 1, r.length - 1);
    const std::size_t colon = token.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view name = token.substr(0, colon);
    const std::string rest = commaToPoint(token.substr(colon + 1));
    // The number pattern can match empty text, so it always matches at 0.
    std::string number;
    std::string unit = rest;
    if (auto m = numberPattern.firstMatch(rest)) {
      const TextRange n = m->range();
      number = rest.substr(n.location, n.length);
      unit = rest.substr(0, n.location) + rest.substr(n.end());
    }
    const double value = doubleValue(number);
    const std::string lowerName = lowercaseString(name);
    const std::string lowerUnit = lowercaseString(unit);
    const std::string key = lowerName + ":" + lowerUnit;
    if (!seen.insert(key).second) continue;
    auto [it, inserted] = values_.try_emplace(key, MoodThirdValue{lowerName, lowerUnit, value, value, 1});
    if (!inserted) {
      MoodThirdValue& v = it->second;
      v.minValue = std::min(v.minValue, value);
      v.maxValue = std::max(v.maxValue, value);
      ++v.count;
    }
  }
}

std::vector<std::string> MoodThirdValueTable::orderedKeys() const {
  std::vector<std::string> keys;
  keys.reserve(values_.size());
  for (const auto& [key, value] : values_) keys.push_back(key);
  std::stable_sort(keys.begin(), keys.end(), [this](const std::string& a, const std::string& b) {
    return values_.at(a).tagName < values_.at(b).tagName;
  });
  return keys;
}

MoodThirdValueTable thirdValuesForComments(const std::vector<std::string>& comments) {
  MoodThirdValueTable table;
  for (const std::string& comment : comments) {
    if (!comment.empty()) table.addComment(comment);
  }
  return table;
}

std::string tagNameOfThirdValueKey(std::string_view key) {
  return std::string(key.substr(0, key.find(':')));
}

std::vector<double> graphValuesInComment(std::string_view comment, const MoodThirdValue& entry,
                                         std::string_view patternFormat) {
  std::vector<double> values;
  if (!isTagName(entry.tagName)) return values;
  const std::string unit = entry.unitValue.empty() ? std::string(" ") : entry.unitValue;
  auto pattern = RegularExpression::compile(fillPattern(
      patternFormat.empty() ? kGraphValuesPatternPossessive : patternFormat, {entry.tagName, unit}));
  if (!pattern) return values;
  const std::string text = lowercaseString(comment) + " ";
  for (const RegexMatch& match : pattern->matches(text)) {
    values.push_back(doubleValue(commaToPoint(match.group(text, 1))));
  }
  return values;
}

}  // namespace lumeo
