// Feeds arbitrary bytes to every comment parser: tag extraction, the record
// fold, the third-value table, the display tokens, rename and deletion. Any
// name that comes out must consist of the tag alphabet alone, checked here
// against Unicode properties rather than the regex engine that produced it,
// and the fast possessive patterns must agree with the literal ones.
#include <unicode/uniset.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "capture/hashtag_grammar.h"
#include "capture/mood_third_value.h"
#include "capture/tag_extraction.h"

namespace {

const icu::UnicodeSet& tagAlphabet() {
  // ICU's \w: alphabetic, marks, decimal digits, connector punctuation and
  // the two joiners; plus "-" and "'" ("_" is a connector already).
  static const icu::UnicodeSet* set = [] {
    UErrorCode status = U_ZERO_ERROR;
    auto* s = new icu::UnicodeSet(
        icu::UnicodeString(u"[\\p{Alphabetic}\\p{M}\\p{Nd}\\p{Pc}\\u200c\\u200d\\-']"), status);
    if (U_FAILURE(status)) std::abort();
    s->freeze();
    return s;
  }();
  return *set;
}

void checkName(std::string_view name, bool mayBeEmpty = false) {
  if (name.empty()) {
    if (!mayBeEmpty) std::abort();
    return;
  }
  int32_t i = 0;
  const int32_t length = static_cast<int32_t>(name.size());
  while (i < length) {
    UChar32 c;
    U8_NEXT(reinterpret_cast<const uint8_t*>(name.data()), i, length, c);
    if (c < 0 || !tagAlphabet().contains(c)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const lumeo::MoodPreTag& tag : lumeo::findTagsInText(text)) {
    checkName(tag.tagName);
    if (tag.tagUnit) checkName(*tag.tagUnit, true);
    if (tag.tagValue && tag.tagValue->find_first_not_of("0123456789.,|") != std::string::npos) std::abort();
  }
  for (const lumeo::ExtractedTag& tag : lumeo::extractTagsForRecord(text)) checkName(tag.tagName);
  const lumeo::MoodThirdValueTable table = lumeo::thirdValuesForComments({text});
  for (const auto& [key, value] : table.values()) {
    if (value.count != 1 || value.minValue != value.maxValue) std::abort();
    if (lumeo::graphValuesInComment(text, value) !=
        lumeo::graphValuesInComment(text, value, lumeo::kGraphValuesPattern)) {
      std::abort();
    }
  }
  for (const lumeo::TaggedToken& token : lumeo::taggedTokensInText(text)) {
    checkName(token.tagName);
    if (token.token.end() > text.size()) std::abort();
  }
  // Deleting or renaming the first tag must never grow text that held only it.
  const auto tags = lumeo::findTagsInText(text);
  if (!tags.empty()) {
    const std::string removed = lumeo::removeTagFromText(text, tags.front().tagName);
    if (removed.size() > text.size()) std::abort();
    // The possessive pattern that runs must remove exactly what the literal one does.
    if (removed != lumeo::removeTagFromText(text, tags.front().tagName, lumeo::kTagDeletionPattern))
      std::abort();
    (void)lumeo::renameTagInText(text, tags.front().tagName, "renamed");
  }
  if (size > 0) (void)lumeo::rangeOfIncompleteTag(text, size / 2);
  return 0;
}
