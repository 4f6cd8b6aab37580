// The hashtag grammar of comments: a tag is "#name" or "#name:number unit"
// written into the text, and the text is the only place where a tag and its
// numbers live. Each pattern below is used by one feature and differs from
// the others on purpose; changing one changes what existing comments mean.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "capture/regular_expression.h"

namespace lumeo {

// Tags for the store: a value form needs a digit behind the colon.
inline constexpr std::string_view kTagExtractionPattern =
    R"(#[\w\-'\_]+:[0-9]+(\.|,)?[0-9]*[\w\-'\_]*|#[\w\-'\_]+)";
// Splits one extracted token (without "#") into name, number and unit. The
// class also admits "|", which extraction never lets through.
inline constexpr std::string_view kTagSplitPattern = R"(([\w\-'\_]+):([0-9]+[\.|,]?[0-9]*)([\w\-'\_]*))";
// Tokens as shown and as marked used while typing: the number may be empty,
// so "#sleep:" and "#sleep:h" are whole tokens.
inline constexpr std::string_view kTagDisplayPattern =
    R"(#[\w\-'\_]+:[0-9]*[\.,]?[0-9]*[\w\-'\_]*|#[\w\-'\_]+)";
// Number and unit behind the colon of a displayed token; needs a digit.
inline constexpr std::string_view kTagDisplayNumberPattern = R"([0-9]+[\.,]?[0-9]*[\w\-'\_]*)";
// The tag being typed; a bare "#" counts, so completion can offer all tags.
inline constexpr std::string_view kIncompleteTagPattern = R"(#[\w\-'\_]*)";
// A tag name and colon right at the cursor: time to offer the tag's unit.
inline constexpr std::string_view kUnitOfferPattern = R"(#([\w\-'_]+):$)";
// Value tokens for the graph's table of tag and unit pairs.
inline constexpr std::string_view kThirdValuePattern = R"(#[\w\-'\_]+:([0-9]*[\.,]?[0-9]*)[\w\-'\_]*)";
inline constexpr std::string_view kThirdValueNumberPattern = R"([0-9]*[.,]?[0-9]*)";
// Filled with a lowercase tag name and unit ("%@" each, in order).
inline constexpr std::string_view kGraphValuesPattern = R"(#%@:([0-9]+[\.,]?[0-9]*)%@)";
// Filled with the name four times; matched without regard to case.
inline constexpr std::string_view kTagDeletionPattern =
    R"((#%@:[0-9]*[\.,]?[0-9]*[\w\-'\_]*$|#%@:[0-9]*[\.,]?[0-9]*[\w\-'\_]*|#%@$|#%@ ))";
// Filled with the old name; matched with case.
inline constexpr std::string_view kTagRenamePattern = R"(#%@([: ]|$))";

// The deletion and graph-value patterns as they run: the same with
// possessive quantifiers. They match exactly the same ranges (the fuzz target
// compares them), but never backtrack through a long run of digits, which
// with the overlapping classes above costs cubic time: a pasted 800-digit
// number would freeze a tag deletion for twenty seconds.
inline constexpr std::string_view kTagDeletionPatternPossessive =
    R"((#%@:[0-9]*+[\.,]?+[0-9]*+[\w\-'\_]*+$|#%@:[0-9]*+[\.,]?+[0-9]*+[\w\-'\_]*+|#%@$|#%@ ))";
// Equal to kGraphValuesPattern for units that do not start with a digit, a
// "." or a ",", which no unit in the table does.
inline constexpr std::string_view kGraphValuesPatternPossessive = R"(#%@:([0-9]++[\.,]?+[0-9]*+)%@)";

// One token of a comment as parsed for the store.
struct MoodPreTag {
  std::string tagName;                  // without "#"
  std::optional<std::string> tagUnit;   // absent for a plain tag, "" for a value without unit
  std::optional<std::string> tagValue;  // the number as typed, "," or "." kept

  friend bool operator==(const MoodPreTag&, const MoodPreTag&) = default;
};

// Every tag of `text` in text order, duplicates kept; empty text gives none.
std::vector<MoodPreTag> findTagsInText(std::string_view text);

// The number rule shared by all tag values: leading blanks, an optional
// sign, digits with at most one ".", an optional exponent; the rest is
// ignored and no locale is involved. Text without a number gives 0. Callers
// turn "," into "." first.
double doubleValue(std::string_view text);

// True when `name` is a possible tag name: one or more word characters,
// "-", "'" or "_". Only such names can appear in a comment.
bool isTagName(std::string_view name);

// Fills the "%@" slots of a pattern format in order, without escaping.
std::string fillPattern(std::string_view format, const std::vector<std::string_view>& arguments);

// The tag being typed: the match of the incomplete-tag pattern that ends
// exactly at `cursor` (a byte offset), returned without its "#". An empty
// range after a bare "#" is a valid answer.
std::optional<TextRange> rangeOfIncompleteTag(std::string_view text, std::size_t cursor);

// The name of the tag whose unit should be offered, when the text up to the
// cursor ends in "#name:".
std::optional<std::string> tagNameForUnitOffer(std::string_view textUpToCursor);

// One displayed token of a comment.
struct TaggedToken {
  TextRange token;                     // from "#" to the token's end
  std::string tagName;                 // without "#"
  TextRange name;                      // the name's range in the text
  std::optional<TextRange> valueUnit;  // number and unit, when a digit follows ":"
};
std::vector<TaggedToken> taggedTokensInText(std::string_view text);

// The comment after renaming the tag `oldName` to `newName`. Matches are
// case-sensitive and need the name to be followed by a blank, a colon or the
// end of the text; the blank or colon and any value stay. A tag followed by
// anything else ("#sleep.") is left alone. An old name outside the tag
// alphabet cannot occur in a comment and leaves the text unchanged.
std::string renameTagInText(std::string_view text, std::string_view oldName, std::string_view newName);

// The comment after deleting the tag `name`: value forms anywhere, a plain
// tag at the end, and a plain tag with the blank that follows it go; a plain
// tag followed by other text ("#sleep.") stays. Case-insensitive.
std::string removeTagFromText(std::string_view text, std::string_view name);
// The same with a given pattern format (four "%@"), so that tests and the
// fuzz target can hold the literal pattern against the possessive one.
std::string removeTagFromText(std::string_view text, std::string_view name, std::string_view patternFormat);

}  // namespace lumeo
