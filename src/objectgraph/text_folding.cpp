// ICU-based folding and matching for predicate string operators.
#include "objectgraph/text_folding.h"

#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <memory>
#include <vector>

namespace lumeo {

std::u32string foldText(std::string_view utf8, unsigned options) {
  icu::UnicodeString s =
      icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
  if (options & 2u) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_SUCCESS(status)) {
      icu::UnicodeString decomposed = nfd->normalize(s, status);
      if (U_SUCCESS(status)) {
        icu::UnicodeString stripped;
        for (int32_t i = 0; i < decomposed.length();) {
          UChar32 c = decomposed.char32At(i);
          if (u_charType(c) != U_NON_SPACING_MARK) stripped.append(c);
          i += U16_LENGTH(c);
        }
        s = stripped;
      }
    }
  }
  if (options & 1u) s.foldCase(U_FOLD_CASE_DEFAULT);
  std::u32string out;
  out.reserve(static_cast<std::size_t>(s.length()));
  for (int32_t i = 0; i < s.length();) {
    UChar32 c = s.char32At(i);
    out.push_back(static_cast<char32_t>(c));
    i += U16_LENGTH(c);
  }
  return out;
}

std::string foldTextUTF8(std::string_view utf8, unsigned options) {
  if (options == 0) return std::string(utf8);
  std::u32string folded = foldText(utf8, options);
  icu::UnicodeString s;
  for (char32_t c : folded) s.append(static_cast<UChar32>(c));
  std::string out;
  s.toUTF8String(out);
  return out;
}

bool likeMatch(std::u32string_view pattern, std::u32string_view text) {
  // Iterative wildcard match with backtracking to the last star: linear in
  // practice and never recursive, so hostile patterns cannot blow the stack.
  std::size_t p = 0, t = 0, star = std::u32string_view::npos, mark = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == U'?' || (pattern[p] != U'*' && pattern[p] == text[t]))) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == U'*') {
      star = p++;
      mark = t;
    } else if (star != std::u32string_view::npos) {
      p = star + 1;
      t = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == U'*') ++p;
  return p == pattern.size();
}

namespace {

bool regexMatch(std::string_view pattern, std::string_view text, unsigned options) {
  UErrorCode status = U_ZERO_ERROR;
  uint32_t flags = (options & 1u) ? UREGEX_CASE_INSENSITIVE : 0;
  icu::UnicodeString p =
      icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
  std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(p, flags, status));
  if (U_FAILURE(status) || !compiled) return false;
  std::string folded = (options & 2u) ? foldTextUTF8(text, 2u) : std::string(text);
  icu::UnicodeString t =
      icu::UnicodeString::fromUTF8(icu::StringPiece(folded.data(), static_cast<int32_t>(folded.size())));
  std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(t, status));
  if (U_FAILURE(status) || !matcher) return false;
  matcher->setTimeLimit(50, status);
  bool result = matcher->matches(status);
  return U_SUCCESS(status) && result;
}

}  // namespace

bool compareStrings(StringOperation op, unsigned options, std::string_view lhs, std::string_view rhs) {
  if (op == StringOperation::kMatches) return regexMatch(rhs, lhs, options);
  if (options == 0) {
    switch (op) {
      case StringOperation::kEqual:
        return lhs == rhs;
      case StringOperation::kNotEqual:
        return lhs != rhs;
      case StringOperation::kLess:
        return lhs < rhs;
      case StringOperation::kLessOrEqual:
        return lhs <= rhs;
      case StringOperation::kGreater:
        return lhs > rhs;
      case StringOperation::kGreaterOrEqual:
        return lhs >= rhs;
      case StringOperation::kContains:
        return lhs.find(rhs) != std::string_view::npos;
      case StringOperation::kBeginsWith:
        return lhs.substr(0, rhs.size()) == rhs;
      case StringOperation::kEndsWith:
        return lhs.size() >= rhs.size() && lhs.substr(lhs.size() - rhs.size()) == rhs;
      default:
        break;
    }
  }
  const std::u32string a = foldText(lhs, options);
  const std::u32string b = foldText(rhs, options);
  switch (op) {
    case StringOperation::kEqual:
      return a == b;
    case StringOperation::kNotEqual:
      return a != b;
    case StringOperation::kLess:
      return a < b;
    case StringOperation::kLessOrEqual:
      return a <= b;
    case StringOperation::kGreater:
      return a > b;
    case StringOperation::kGreaterOrEqual:
      return a >= b;
    case StringOperation::kLike:
      return likeMatch(b, a);
    case StringOperation::kContains:
      return a.find(b) != std::u32string::npos;
    case StringOperation::kBeginsWith:
      return a.compare(0, b.size(), b) == 0 && a.size() >= b.size();
    case StringOperation::kEndsWith:
      return a.size() >= b.size() && a.compare(a.size() - b.size(), b.size(), b) == 0;
    default:
      return false;
  }
}

}  // namespace lumeo
