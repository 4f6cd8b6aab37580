// ICU's regex engine driven over UTF-8 text through a UText, so that match
// positions come back as byte offsets of the caller's string.
#include "capture/regular_expression.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

namespace lumeo {

namespace {

struct UTextCloser {
  void operator()(UText* text) const { utext_close(text); }
};
using UTextPtr = std::unique_ptr<UText, UTextCloser>;

UTextPtr openUtf8(std::string_view text, UErrorCode& status) {
  static const char kEmpty[] = "";
  const char* data = text.empty() ? kEmpty : text.data();
  return UTextPtr(utext_openUTF8(nullptr, data, static_cast<int64_t>(text.size()), &status));
}

// Walks the matches of `pattern` over `text`, calling `visit` for each until
// it returns false.
template <typename Visit>
void forEachMatch(const icu::RegexPattern& pattern, std::string_view text, Visit visit) {
  UErrorCode status = U_ZERO_ERROR;
  UTextPtr input = openUtf8(text, status);
  if (U_FAILURE(status)) return;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(status));
  if (U_FAILURE(status) || !matcher) return;
  matcher->reset(input.get());
  const int groups = matcher->groupCount();
  while (matcher->find(status) && U_SUCCESS(status)) {
    RegexMatch match;
    match.ranges.reserve(static_cast<std::size_t>(groups) + 1);
    for (int g = 0; g <= groups; ++g) {
      const int64_t start = matcher->start64(g, status);
      const int64_t end = matcher->end64(g, status);
      if (U_FAILURE(status) || start < 0 || end < start) {
        match.ranges.emplace_back();
        status = U_ZERO_ERROR;
        continue;
      }
      match.ranges.push_back(
          TextRange{static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)});
    }
    if (!match.ranges[0]) return;
    if (!visit(std::move(match))) return;
  }
}

}  // namespace

std::string RegexMatch::group(std::string_view text, std::size_t group) const {
  if (group >= ranges.size() || !ranges[group]) return {};
  const TextRange& r = *ranges[group];
  if (r.end() > text.size()) return {};
  return std::string(text.substr(r.location, r.length));
}

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern, unsigned options) {
  UErrorCode status = U_ZERO_ERROR;
  UTextPtr source = openUtf8(pattern, status);
  if (U_FAILURE(status)) return std::nullopt;
  UParseError parseError;
  uint32_t flags = 0;
  if (options & kCaseInsensitive) flags |= UREGEX_CASE_INSENSITIVE;
  std::shared_ptr<const icu::RegexPattern> compiled(
      icu::RegexPattern::compile(source.get(), flags, parseError, status));
  if (U_FAILURE(status) || !compiled) return std::nullopt;
  return RegularExpression(std::move(compiled));
}

std::vector<RegexMatch> RegularExpression::matches(std::string_view text) const {
  std::vector<RegexMatch> result;
  forEachMatch(*pattern_, text, [&](RegexMatch m) {
    result.push_back(std::move(m));
    return true;
  });
  return result;
}

std::optional<RegexMatch> RegularExpression::firstMatch(std::string_view text) const {
  std::optional<RegexMatch> result;
  forEachMatch(*pattern_, text, [&](RegexMatch m) {
    result = std::move(m);
    return false;
  });
  return result;
}

bool RegularExpression::matchesWhole(std::string_view text) const {
  UErrorCode status = U_ZERO_ERROR;
  UTextPtr input = openUtf8(text, status);
  if (U_FAILURE(status)) return false;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern_->matcher(status));
  if (U_FAILURE(status) || !matcher) return false;
  matcher->reset(input.get());
  const bool whole = matcher->matches(status);
  return U_SUCCESS(status) && whole;
}

}  // namespace lumeo
