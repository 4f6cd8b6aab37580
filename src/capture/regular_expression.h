// A compiled ICU regular expression over UTF-8 text. Tags are defined with
// ICU's meaning of \w (Unicode letters, marks, digits and connectors), so
// every tag pattern goes through this one engine; positions are byte offsets
// into the UTF-8 string, never UTF-16 indices.
#pragma once

#include <unicode/uversion.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace lumeo {

// A byte range in a UTF-8 string.
struct TextRange {
  std::size_t location = 0;
  std::size_t length = 0;

  std::size_t end() const { return location + length; }
  friend bool operator==(const TextRange&, const TextRange&) = default;
};

// One match: range 0 is the whole match, range i group i. A group that took
// no part in the match has no range.
struct RegexMatch {
  std::vector<std::optional<TextRange>> ranges;

  TextRange range() const { return *ranges[0]; }
  // The text of group `group`, empty when it did not take part.
  std::string group(std::string_view text, std::size_t group) const;
};

class RegularExpression {
 public:
  enum Options : unsigned { kNone = 0, kCaseInsensitive = 1 };

  // Compiles `pattern`; nothing when it is not a valid ICU pattern (a tag
  // name with pattern operators can make a dynamic pattern invalid).
  static std::optional<RegularExpression> compile(std::string_view pattern, unsigned options = kNone);

  // All non-overlapping matches, left to right. Invalid UTF-8 in `text`
  // reads as replacement characters, which no tag pattern accepts.
  std::vector<RegexMatch> matches(std::string_view text) const;
  std::optional<RegexMatch> firstMatch(std::string_view text) const;
  // True when the whole of `text` matches.
  bool matchesWhole(std::string_view text) const;

 private:
  explicit RegularExpression(std::shared_ptr<const icu::RegexPattern> pattern)
      : pattern_(std::move(pattern)) {}

  // Compiled patterns are immutable and may be shared by copies and threads.
  std::shared_ptr<const icu::RegexPattern> pattern_;
};

}  // namespace lumeo
