// What a saved comment means for the record's tag links: one link per tag,
// whatever case or accents each mention uses. The record entity applies the
// result to the store; this part only reads the text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumeo {

struct ExtractedTag {
  // The spelling of the last mention: the latest spelling of a tag becomes
  // its name everywhere, so "#Sleep" after "#sleep" renames the tag.
  std::string tagName;
  // The name folded for identity (see foldedTagName).
  std::string foldedName;
  // The unit the mentions give a tag that has none yet, taken mention by
  // mention with the rule of mergedTagUnit from an absent start.
  std::optional<std::string> tagUnit;
  // The first number typed for the tag, as typed; informational only, since
  // numbers live in the comment.
  std::optional<std::string> firstValue;
};

// The distinct tags of `comment`, in the order of their first mention.
std::vector<ExtractedTag> extractTagsForRecord(std::string_view comment);

// The unit a tag has after one mention: a unit, once set and non-empty,
// stays; an absent or empty unit is replaced by the mention's, even by an
// absent one.
std::optional<std::string> mergedTagUnit(const std::optional<std::string>& current,
                                         const std::optional<std::string>& mentioned);

// The unit a stored tag has after a record's mentions were applied to it.
std::optional<std::string> unitAfterApply(const std::optional<std::string>& stored, const ExtractedTag& tag);

// A tag name folded so that names differing only in case or accents are
// equal: decomposed, combining marks dropped, case-folded.
std::string foldedTagName(std::string_view name);

}  // namespace lumeo
