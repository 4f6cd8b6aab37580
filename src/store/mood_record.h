// One journal entry: when, how good (1 to 10), its description and the tags
// named in its comment. A record is always created with its description.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "platform/date.h"

namespace lumeo {

class MoodDescription;
class MoodTag;

// A new identifier, unique across processes and devices (a random UUID in
// upper-case hexadecimal).
std::string globallyUniqueString();

class MoodRecord : public ManagedObject {
 public:
  std::optional<std::string> uniqueIdentifier() const;
  void setUniqueIdentifier(const std::optional<std::string>& identifier);
  std::optional<Date> date() const;
  void setDate(std::optional<Date> date);
  long moodLevel() const;
  void setMoodLevel(long level);

  std::shared_ptr<MoodDescription> moodDescription() const;
  void setMoodDescription(const std::shared_ptr<MoodDescription>& description);

  std::vector<std::shared_ptr<MoodTag>> moodTags() const;
  void addMoodTagsObject(const std::shared_ptr<MoodTag>& tag);
  void removeMoodTagsObject(const std::shared_ptr<MoodTag>& tag);
  void removeMoodTags(const std::vector<std::shared_ptr<MoodTag>>& tags);

  // Gives a new record its identity, unless one came with it (the sync
  // engine inserts objects under their global identifier).
  void awakeFromInsert() override;
};

}  // namespace lumeo
