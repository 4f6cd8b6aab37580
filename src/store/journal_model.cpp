// Builds the journal's model in code.
#include "store/journal_model.h"

#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo {

std::shared_ptr<ManagedObjectModel> makeJournalModel() {
  auto model = std::make_shared<ManagedObjectModel>();

  EntityDescription& record = model->addEntity(kMoodRecordEntity);
  record.setInstanceClass<MoodRecord>();
  record.addAttribute("uniqueIdentifier", AttributeType::kString).setIndexed(true);
  // Every period, list and chart fetches by date.
  record.addAttribute("date", AttributeType::kDate).setIndexed(true);
  record.addAttribute("moodLevel", AttributeType::kInteger16).setDefaultValue(Value(0));
  // Record and description are deleted by two explicit deletes; nullify
  // keeps a stray delete of one from taking the other along unseen.
  record.addRelationship("moodDescription", kMoodDescriptionEntity)
      .setInverseName("moodRecord")
      .setDeleteRule(DeleteRule::kNullify);
  record.addRelationship("moodTags", kMoodTagEntity)
      .setToMany(true)
      .setInverseName("moodRecords")
      .setDeleteRule(DeleteRule::kNullify);

  EntityDescription& description = model->addEntity(kMoodDescriptionEntity);
  description.setInstanceClass<MoodDescription>();
  description.addAttribute("uniqueIdentifier", AttributeType::kString).setIndexed(true);
  description.addAttribute("comment", AttributeType::kString);
  description.addAttribute("thumbName", AttributeType::kString);
  description.addAttribute("thumbChecksum", AttributeType::kString);
  description.addAttribute("photoName", AttributeType::kString);
  description.addAttribute("photoChecksum", AttributeType::kString);
  // The capture path never sets these: a new description must already be
  // "unedited" and "nowhere".
  description.addAttribute("wasEdited", AttributeType::kBoolean).setDefaultValue(Value(false));
  description.addAttribute("latitude", AttributeType::kDouble).setDefaultValue(Value(-1.0));
  description.addAttribute("longitude", AttributeType::kDouble).setDefaultValue(Value(-1.0));
  description.addRelationship("moodRecord", kMoodRecordEntity)
      .setInverseName("moodDescription")
      .setDeleteRule(DeleteRule::kNullify);

  EntityDescription& tag = model->addEntity(kMoodTagEntity);
  tag.setInstanceClass<MoodTag>();
  tag.addAttribute("tagName", AttributeType::kString).setIndexed(true);
  tag.addAttribute("tagUnit", AttributeType::kString);
  tag.addAttribute("frequency", AttributeType::kInteger32).setDefaultValue(Value(0)).setIndexed(true);
  tag.addRelationship("moodRecords", kMoodRecordEntity)
      .setToMany(true)
      .setInverseName("moodTags")
      .setDeleteRule(DeleteRule::kNullify);

  model->userInfo()["name"] = Value(kJournalModelName);
  model->finalize();
  return model;
}

}  // namespace lumeo
