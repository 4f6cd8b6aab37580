// String comparisons of predicates: case folding and diacritic stripping by
// ICU, LIKE patterns with * and ?, and the string operators. The store's SQL
// functions call the same code, so that a predicate gives the same answer in
// memory and in SQL.
#pragma once

#include <string>
#include <string_view>

namespace lumeo {

enum class StringOperation {
  kEqual,
  kNotEqual,
  kLess,
  kLessOrEqual,
  kGreater,
  kGreaterOrEqual,
  kLike,
  kContains,
  kBeginsWith,
  kEndsWith,
  kMatches
};

// Folds per kCaseInsensitive (1) and kDiacriticInsensitive (2); returns
// UTF-32 code points so that ? in LIKE stands for one character.
std::u32string foldText(std::string_view utf8, unsigned options);
std::string foldTextUTF8(std::string_view utf8, unsigned options);
bool likeMatch(std::u32string_view pattern, std::u32string_view text);
bool compareStrings(StringOperation op, unsigned options, std::string_view lhs, std::string_view rhs);

}  // namespace lumeo
