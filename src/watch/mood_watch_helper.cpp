// Messages arrive on the session's queue; everything that touches the
// journal hops to the main queue, where its context lives. A "saveMood" is
// answered before the record exists, as the watch expects a quick answer
// and the record cannot fail in a way the watch could act on.
#include "watch/mood_watch_helper.h"

#include "capture/location_helper.h"
#include "capture/mood_levels_presentation.h"
#include "platform/clock.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/settings_keys.h"

namespace lumeo {

using namespace watch_keys;

MoodWatchHelper& MoodWatchHelper::sharedHelper() {
  static const std::shared_ptr<MoodWatchHelper> helper = std::make_shared<MoodWatchHelper>();
  return *helper;
}

void MoodWatchHelper::setSession(std::shared_ptr<WatchSession> session) {
  session_ = std::move(session);
  isPaired_ = false;
  if (session_) session_->activate(weak_from_this());
}

JournalStore* MoodWatchHelper::store() {
  if (store_) return store_;
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) return &app->store();
  return nullptr;
}

void MoodWatchHelper::withJournal(const std::function<void(JournalStore&)>& work) {
  if (access_) {
    access_(work);
  } else if (JournalStore* journal = store()) {
    work(*journal);
  }
}

bool MoodWatchHelper::skipHashtags() const {
  return UserDefaults::standard()->boolForKey(kSkipHashtagsStep);
}

void MoodWatchHelper::setSkipHashtags(bool skip) {
  LUMEO_DROP_ERROR(UserDefaults::standard()->setBool(kSkipHashtagsStep, skip));
  UserDefaults::standard()->synchronize();
}

bool MoodWatchHelper::skipDictation() const {
  return UserDefaults::standard()->boolForKey(kSkipDictationStep);
}

void MoodWatchHelper::setSkipDictation(bool skip) {
  LUMEO_DROP_ERROR(UserDefaults::standard()->setBool(kSkipDictationStep, skip));
  UserDefaults::standard()->synchronize();
}

Value::Dictionary MoodWatchHelper::dictForWatch() {
  // The captions of the level table in effect (the user's own, else the
  // shipped one), level 1 first.
  Value::Array moods;
  const MoodLevelsPresentation levels;
  for (long level = 1; level <= 10; ++level) {
    auto presentation = levels.presentationForMoodLevel(level);
    moods.emplace_back(presentation ? presentation->text : std::string());
  }
  Value::Array tags;
  withJournal([&](JournalStore& journal) {
    FetchRequest request(kMoodTagEntity);
    request.setSortDescriptors({SortDescriptor("frequency", false)});
    request.setFetchLimit(kMaxTags);
    for (const auto& object : journal.executeFetch(request)) {
      auto tag = std::dynamic_pointer_cast<MoodTag>(object);
      if (tag && !tag->tagName().empty()) tags.emplace_back(tag->tagName());
    }
  });
  return {{kCommand, kData},
          {kMoods, std::move(moods)},
          {kTags, std::move(tags)},
          {kSkipDictation, skipDictation()},
          {kSkipHashtags, skipHashtags()}};
}

Value::Dictionary MoodWatchHelper::stepsForWatch() const {
  return {{kCommand, kSteps}, {kSkipDictation, skipDictation()}, {kSkipHashtags, skipHashtags()}};
}

void MoodWatchHelper::saveData() {
  if (session_) session_->sendMessage(dictForWatch(), nullptr, nullptr);
}

void MoodWatchHelper::saveSteps() {
  if (session_) session_->sendMessage(stepsForWatch(), nullptr, nullptr);
}

std::optional<WatchMood> MoodWatchHelper::moodFromMessage(const Value::Dictionary& message) {
  auto level = message.find(kLevel);
  auto tags = message.find(kTags);
  if (level == message.end() || tags == message.end()) return std::nullopt;
  if (level->second.type() != Value::Type::kInteger) return std::nullopt;
  const std::int64_t value = level->second.toInt();
  if (value < 1 || value > 10) return std::nullopt;
  const Value::Array* names = tags->second.asArray();
  if (!names) return std::nullopt;
  WatchMood mood;
  mood.level = static_cast<long>(value);
  for (const auto& name : *names) {
    const std::string* text = name.asString();
    if (!text) return std::nullopt;
    mood.tags.push_back(*text);
  }
  if (auto text = message.find(kText); text != message.end() && !text->second.isNull()) {
    const std::string* string = text->second.asString();
    if (!string) return std::nullopt;
    mood.text = *string;
  }
  return mood;
}

std::shared_ptr<MoodRecord> MoodWatchHelper::createRecordFromLevel(
    long level, const std::vector<std::string>& andTags, const std::optional<std::string>& andText) {
  std::shared_ptr<MoodRecord> record;
  withJournal([&](JournalStore& journal) {
    record = journal.insertRecordWithDescription();
    record->setDate(Clock::current()->now());
    record->setMoodLevel(level);

    // A mood sent without text starts from an empty one, not from a
    // placeholder such as "(null)".
    std::string comment = andText.value_or("") + " ";
    std::vector<std::shared_ptr<MoodTag>> linked;
    for (const auto& name : andTags) {
      auto tag = journal.tagNamed(name);
      if (!tag) continue;
      comment += "#" + name + " ";
      linked.push_back(tag);
    }
    if (!comment.empty() && comment.back() == ' ') comment.pop_back();
    // The watch's dictation sends a line break as a backslash and an n.
    for (std::size_t at = comment.find("\\n"); at != std::string::npos; at = comment.find("\\n", at + 1)) {
      comment.replace(at, 2, "\n");
    }

    auto description = record->moodDescription();
    description->setComment(comment);
    description->setThumbName(std::nullopt);
    description->setPhotoName(std::nullopt);
    description->setLatitude(MoodDescription::kNoCoordinate);
    description->setLongitude(MoodDescription::kNoCoordinate);
    description->setWasEdited(false);
    for (const auto& tag : linked) record->addMoodTagsObject(tag);
    journal.saveContext();
    if (auto error = journal.lastSaveError()) {
      LUMEO_LOG_ERROR("watch: the mood from the watch could not be saved: %s", error->description);
    }
  });
  if (record && LocationHelper::sharedInstance().isEnabled()) locationHelperStart(record);
  return record;
}

void MoodWatchHelper::locationHelperStart(const std::shared_ptr<MoodRecord>& record) {
  LocationHelper& helper = LocationHelper::sharedInstance();
  std::weak_ptr<MoodWatchHelper> weak = weak_from_this();
  awaitingPlace_ = record;
  helper.setTarget([weak] {
    auto self = weak.lock();
    if (!self) return;
    self->awaitingPlace_.reset();
    self->withJournal([](JournalStore& journal) { journal.saveContext(); });
  });
  helper.setRecord(record);
  helper.requestLocation();
}

void MoodWatchHelper::sessionActivationDidComplete(WatchSession&, bool paired) {
  isPaired_ = paired;
  if (!paired) return;
  std::weak_ptr<MoodWatchHelper> weak = weak_from_this();
  DispatchQueue::main().async([weak] {
    auto self = weak.lock();
    if (!self) return;
    self->saveData();
    self->saveSteps();
  });
}

void MoodWatchHelper::sessionDidReceiveMessage(WatchSession&, const Value::Dictionary& message,
                                               ReplyHandler replyHandler) {
  auto command = message.find(kCommand);
  const std::string* name = command == message.end() ? nullptr : command->second.asString();
  if (!name) return;
  std::weak_ptr<MoodWatchHelper> weak = weak_from_this();
  if (*name == kRequest) {
    DispatchQueue::main().async([weak, replyHandler] {
      auto self = weak.lock();
      if (!self || !replyHandler) return;
      Value::Dictionary reply = self->dictForWatch();
      reply[kCommand] = kResponse;
      replyHandler(reply);
    });
    return;
  }
  if (*name == kSaveMood) {
    auto mood = moodFromMessage(message);
    if (!mood) {
      LUMEO_LOG_DEBUG("watch: a saveMood without a usable level or tags was ignored");
      return;
    }
    if (replyHandler) replyHandler({{kResult, kOK}});
    DispatchQueue::main().async([weak, mood = std::move(*mood)] {
      if (auto self = weak.lock()) self->createRecordFromLevel(mood.level, mood.tags, mood.text);
    });
  }
}

}  // namespace lumeo
