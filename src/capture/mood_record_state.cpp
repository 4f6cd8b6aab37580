// Taking a record into the editor and writing the editor's values back. The
// comment is the source of the record's tags, so every apply relinks them
// from the text; pictures are re-stored at every apply so that a cancelled
// edit can bring back the old photo from the copy held in memory.
#include "capture/mood_record_state.h"

#include <variant>

#include "capture/hashtag_grammar.h"
#include "capture/location_helper.h"
#include "capture/tag_extraction.h"
#include "objectgraph/managed_object_context.h"
#include "platform/notification_center.h"
#include "shell/mood_app_delegate.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"

namespace lumeo {

RecordStateServices RecordStateServices::fromSharedDelegate() {
  RecordStateServices services;
  services.images = ImageStore::shared();
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) {
    services.store = &app->store();
    services.addToDropboxCounter = [app](long delta) { app->setDropboxCounter(delta); };
  }
  return services;
}

MoodRecordState::MoodRecordState(const MoodRecord& record, const ImageStore* images) {
  existing = true;
  moodLevel = record.moodLevel();
  date = record.date();
  if (auto description = record.moodDescription()) {
    wasEdited = description->wasEdited();
    comment = description->comment();
    if (images) {
      thumb = images->imageForName(description->thumbName());
      photo = images->imageForName(description->photoName());
    }
  }
  locationHelper = &LocationHelper::sharedInstance();
  locationHelper->startUpdatingLocation();
}

MoodRecordState MoodRecordState::initWithStateOfRecord(const MoodRecord& record) {
  auto images = ImageStore::shared();
  return MoodRecordState(record, images.get());
}

void MoodRecordState::removePhotoAndThumb() {
  if (!existing) return;
  thumb.reset();
  photo.reset();
}

void MoodRecordState::locationHelperStart(const std::shared_ptr<MoodRecord>& record) {
  LocationHelper& helper = LocationHelper::sharedInstance();
  std::weak_ptr<MoodRecord> weakRecord = record;
  // coordinateObtained: nobody in the application listens yet; the watch
  // link and the map are the expected listeners.
  helper.setTarget([weakRecord] {
    NotificationCenter::defaultCenter().post(MoodLocationObtainedNotification, nullptr,
                                             std::any(weakRecord.lock()));
  });
  helper.setRecord(record);
  helper.requestLocation();
}

void MoodRecordState::applyCommentTags(JournalStore& store, const std::shared_ptr<MoodRecord>& record,
                                       const std::string& text) {
  record->removeMoodTags(record->moodTags());
  auto context = store.managedObjectContext();
  for (const MoodPreTag& preTag : findTagsInText(text)) {
    // The fetch sees tags inserted a moment ago, so a tag named twice in one
    // text gets one row. With two rows of one name (after a rename onto an
    // existing name) the last one wins.
    auto matches = store.tagsNamedLike(preTag.tagName);
    std::shared_ptr<MoodTag> tag = matches.empty() ? nullptr : matches.back();
    if (!tag) tag = context->insertNewObject<MoodTag>(kMoodTagEntity);
    if (!tag) continue;
    tag->setTagName(preTag.tagName);
    auto unit = tag->tagUnit();
    if (!unit || unit->empty()) tag->setTagUnit(preTag.tagUnit);
    record->addMoodTagsObject(tag);
  }
}

namespace {

// Writes a picture under a fresh name without touching the file it
// replaces; no picture gives no name and no checksum.
OrError<StoredImage> storeReplacement(const ImageStore& images, const std::optional<Image>& image) {
  return images.replaceImage(std::nullopt, image);
}

}  // namespace

OptionalError MoodRecordState::applyToRecord(const std::shared_ptr<MoodRecord>& record,
                                             const RecordStateServices& services) const {
  if (!record || !services.store) return std::nullopt;
  JournalStore& store = *services.store;
  std::vector<std::optional<std::string>> replacedNames;
  if (existing) {
    record->setMoodLevel(moodLevel);
    auto description = record->moodDescription();
    if (description) {
      description->setWasEdited(wasEdited);
      description->setComment(comment);
      if (services.images) {
        // Thumbnail first, then photo. The old files stay until the save has
        // gone through: should it fail, the context still points at them
        // and keeps the change for the next save, and the launch clean-up
        // later drops whichever files no description names.
        auto storedThumb = storeReplacement(*services.images, thumb);
        if (auto* error = std::get_if<Error>(&storedThumb)) return *error;
        auto storedPhoto = storeReplacement(*services.images, photo);
        if (auto* error = std::get_if<Error>(&storedPhoto)) {
          services.images->deleteImageWithName(std::get<StoredImage>(storedThumb).name);
          return *error;
        }
        const auto& newThumb = std::get<StoredImage>(storedThumb);
        const auto& newPhoto = std::get<StoredImage>(storedPhoto);
        replacedNames.push_back(description->thumbName());
        replacedNames.push_back(description->photoName());
        description->setThumbName(newThumb.name);
        description->setThumbChecksum(newThumb.checksum);
        description->setPhotoName(newPhoto.name);
        description->setPhotoChecksum(newPhoto.checksum);
      }
    }
    applyCommentTags(store, record, comment.value_or(""));
  } else if (OptionalError error = store.deleteRecord(record)) {
    return error;
  }
  // Every apply counts towards the backup reminder, a cancel's delete too;
  // only edits of an older record don't.
  if (!wasEdited && services.addToDropboxCounter) services.addToDropboxCounter(1);
  store.saveContext();
  auto context = store.managedObjectContext();
  if (services.images && context && !context->hasChanges()) {
    for (const auto& name : replacedNames) services.images->deleteImageWithName(name);
  }
  return std::nullopt;
}

OptionalError MoodRecordState::applyToRecord(const std::shared_ptr<MoodRecord>& record) const {
  return applyToRecord(record, RecordStateServices::fromSharedDelegate());
}

}  // namespace lumeo
