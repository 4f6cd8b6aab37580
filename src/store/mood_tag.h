// One hashtag name shared by every record that uses it. `frequency` (the
// number of records holding the tag) is stored so that completion lists can
// sort in the store; the save hook keeps it right.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "store/attributed_string.h"

namespace lumeo {

class MoodRecord;

class MoodTag : public ManagedObject {
 public:
  std::string tagName() const;
  void setTagName(const std::string& name);
  std::optional<std::string> tagUnit() const;
  void setTagUnit(const std::optional<std::string>& unit);
  long frequency() const;
  void setFrequency(long frequency);
  std::vector<std::shared_ptr<MoodRecord>> moodRecords() const;

  // The tag's identity in sync: the member when set, else the name. Nothing
  // in the application sets the member, so renaming a tag changes it.
  std::string uniqueIdentifier() const;
  void setUniqueIdentifier(std::optional<std::string> identifier) {
    uniqueIdentifier_ = std::move(identifier);
  }

  // Sum of the levels of the tag's records, held in memory until cleared.
  // Recomputing it also sets `frequency` (even to the same value, which
  // leaves the tag changed for the next save). Readers that sort by it clear
  // it first; a stale value is not noticed here.
  long cachedLevelSum();
  void setCachedLevelSum(std::optional<long> sum) { cachedLevelSum_ = sum; }
  bool hasCachedLevelSum() const { return cachedLevelSum_.has_value(); }

  // Average level of the tag's records, recomputed on every call; 0 for a
  // tag without records.
  double averageMoodLevel();

  // Label "#name 7.5" (average) with the name in bold, and "#name 12"
  // (count) with the name in regular weight; white, system font of the
  // given size. An all-lower-case name is shown capitalised.
  AttributedString attributedStringWithFontFize(double pointSize);
  AttributedString attributedStringByCountWithFontFize(double pointSize);

  // The name as labels show it.
  static std::string displayName(const std::string& tagName);

 protected:
  void willSave() override;

 private:
  std::optional<long> cachedLevelSum_;
  std::optional<std::string> uniqueIdentifier_;
};

}  // namespace lumeo
