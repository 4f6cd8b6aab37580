// The numbers behind value tags, summed up per tag and unit over all
// comments: the table from which the graph offers its tag lines, and the
// values of one such line in one comment. Numbers are never stored apart
// from the comment, so these are always computed from the text.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lumeo {

// One tag-and-unit pair over all comments.
struct MoodThirdValue {
  std::string tagName;    // lowercase
  std::string unitValue;  // lowercase, "" without unit
  double minValue = 0;
  double maxValue = 0;
  long count = 0;  // comments that hold the pair

  friend bool operator==(const MoodThirdValue&, const MoodThirdValue&) = default;
};

class MoodThirdValueTable {
 public:
  // Counts one comment: each pair at most once, with its first value. A
  // value form without number ("#sleep:") counts as 0 here.
  void addComment(std::string_view comment);

  // Keyed by "name:unit" in lowercase.
  const std::map<std::string, MoodThirdValue>& values() const { return values_; }
  // The keys ordered by tag name in plain byte order; pairs of one tag keep
  // key order among themselves.
  std::vector<std::string> orderedKeys() const;

 private:
  std::map<std::string, MoodThirdValue> values_;
};

MoodThirdValueTable thirdValuesForComments(const std::vector<std::string>& comments);

// The tag name that a table key belongs to: its part up to the first colon.
std::string tagNameOfThirdValueKey(std::string_view key);

// Every value of the pair in one comment, in text order (all of them, not
// only the first). An entry without unit matches only numbers followed by a
// blank or the end of the text, so "#sleep:8h" is not a value of "sleep:".
// `patternFormat` (two "%@", name and unit) exists for comparing the literal
// pattern with the possessive one that runs by default.
std::vector<double> graphValuesInComment(std::string_view comment, const MoodThirdValue& entry,
                                         std::string_view patternFormat = {});

// Lowercase by Unicode's full mapping, independent of the user's locale.
std::string lowercaseString(std::string_view text);

}  // namespace lumeo
