// The one-step capture of a new record.
#include "capture/record_capture.h"

#include "objectgraph/managed_object_context.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

std::optional<std::string> takeNewRecordTemplate(MoodUserDefaultsOperator& defaults) {
  std::string text = defaults.reminderTemplateText().value_or("");
  if (text.empty()) text = defaults.templateText().value_or("");
  if (!defaults.reminderTemplateText().value_or("").empty()) {
    (void)defaults.setReminderTemplateText(std::string());
  }
  if (text.empty()) return std::nullopt;
  return text;
}

std::variant<std::shared_ptr<MoodRecord>, Error> captureNewRecord(const RecordStateServices& services,
                                                                  MoodUserDefaultsOperator& defaults,
                                                                  const NewRecordInput& input) {
  if (!services.store) return Error(kJournalStoreErrorDomain, 0, "there is no journal store");
  JournalStore& store = *services.store;
  // As a level tile does: record and description together.
  auto record = store.insertRecordWithDescription();
  if (!record) {
    return store.storeOpenError().value_or(
        Error(kJournalStoreErrorDomain, 0, "the journal store is not open"));
  }
  record->setMoodLevel(input.level);
  record->setDate(input.date);
  if (input.place) {
    record->moodDescription()->setLatitude(input.place->first);
    record->moodDescription()->setLongitude(input.place->second);
  }
  // The editor's state of the new record, finished at once: one apply, one
  // save, and the record is in the store with its tags and pictures.
  MoodRecordState state(*record, nullptr);
  state.comment = input.comment ? input.comment : takeNewRecordTemplate(defaults);
  if (state.comment && state.comment->empty()) state.comment.reset();
  state.photo = input.photo;
  state.thumb = input.thumb;
  OptionalError error = state.applyToRecord(record, services);
  if (!error) error = store.lastSaveError();
  if (error) {
    if (auto context = store.managedObjectContext()) context->rollback();
    return *error;
  }
  return record;
}

}  // namespace lumeo
