// Folding the mentions of a comment into one entry per tag, with the
// naming and unit rules that applying a record to the store follows.
#include "capture/tag_extraction.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>

#include "capture/hashtag_grammar.h"

namespace lumeo {

std::string foldedTagName(std::string_view name) {
  icu::UnicodeString s =
      icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), static_cast<int32_t>(name.size())));
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_SUCCESS(status)) {
    icu::UnicodeString decomposed = nfd->normalize(s, status);
    if (U_SUCCESS(status)) s = decomposed;
  }
  icu::UnicodeString stripped;
  for (int32_t i = 0; i < s.length();) {
    const UChar32 c = s.char32At(i);
    if (u_charType(c) != U_NON_SPACING_MARK) stripped.append(c);
    i += U16_LENGTH(c);
  }
  stripped.foldCase(U_FOLD_CASE_DEFAULT);
  std::string result;
  stripped.toUTF8String(result);
  return result;
}

std::optional<std::string> mergedTagUnit(const std::optional<std::string>& current,
                                         const std::optional<std::string>& mentioned) {
  if (!current || current->empty()) return mentioned;
  return current;
}

std::optional<std::string> unitAfterApply(const std::optional<std::string>& stored, const ExtractedTag& tag) {
  // Because an absent and an empty unit are both replaced, folding the
  // mentions onto a stored unit gives the stored unit when it is set and
  // the record's own fold otherwise.
  if (stored && !stored->empty()) return stored;
  return tag.tagUnit;
}

std::vector<ExtractedTag> extractTagsForRecord(std::string_view comment) {
  std::vector<ExtractedTag> tags;
  for (MoodPreTag& pre : findTagsInText(comment)) {
    std::string folded = foldedTagName(pre.tagName);
    auto it =
        std::find_if(tags.begin(), tags.end(), [&](const ExtractedTag& t) { return t.foldedName == folded; });
    if (it == tags.end()) {
      ExtractedTag tag;
      tag.foldedName = std::move(folded);
      tag.tagUnit = pre.tagUnit;
      tag.firstValue = pre.tagValue;
      tag.tagName = std::move(pre.tagName);
      tags.push_back(std::move(tag));
      continue;
    }
    it->tagName = std::move(pre.tagName);
    it->tagUnit = mergedTagUnit(it->tagUnit, pre.tagUnit);
    if (!it->firstValue) it->firstValue = pre.tagValue;
  }
  return tags;
}

}  // namespace lumeo
