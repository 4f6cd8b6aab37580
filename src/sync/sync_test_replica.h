// Test support: one device's journal and sync engine in a folder of its own
// (journal store, image store, event store), with capture on and an
// integrator, plus a canonical dump of the journal for comparing devices.
// Several replicas live side by side in one process. Test-only.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/md5.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"
#include "sync/sync_event_transfer.h"
#include "sync/sync_save_monitor.h"

namespace lumeo::testing {

inline const std::shared_ptr<ManagedObjectModel>& sharedJournalModel() {
  static std::shared_ptr<ManagedObjectModel> model = makeJournalModel();
  return model;
}

class SyncReplica {
 public:
  SyncReplica(std::filesystem::path home, bool prepare = true) : home_(std::move(home)) {
    std::filesystem::create_directories(home_ / "Library");
    images_ = std::make_shared<ImageStore>(home_ / "Library");
    hooks_.managedObjectModel = sharedJournalModel();
    hooks_.globalIdentifiersForManagedObjects = journalGlobalIdentifiersForManagedObjects;
    hooks_.imageStore = images_;
    openJournal();
    events_ = std::make_shared<SyncEventStore>("MainStore", home_ / "Application Support");
    if (prepare && !events_->containsEventData()) {
      EXPECT_FALSE(events_->prepareNewEventStore());
    }
    monitor_ = std::make_unique<SyncSaveMonitor>(storePath(), events_);
    monitor_->setEnsemble(&hooks_);
    integrator_ = std::make_shared<SyncEventIntegrator>(storePath(), sharedJournalModel(), events_);
    integrator_->setEnsemble(&hooks_);
    monitor_->setEventIntegrator(integrator_);
  }

  std::filesystem::path storePath() const { return home_ / "Library" / "Model.sqlite"; }
  ManagedObjectContext& context() { return *context_; }
  std::shared_ptr<ManagedObjectContext> contextPtr() { return context_; }
  SyncEventStore& events() { return *events_; }
  std::shared_ptr<SyncEventStore> eventsPtr() { return events_; }
  SyncEventIntegrator& integrator() { return *integrator_; }
  std::shared_ptr<SyncEventIntegrator> integratorPtr() { return integrator_; }
  SyncEnsembleHooks& hooks() { return hooks_; }
  ImageStore& images() { return *images_; }
  const std::filesystem::path& home() const { return home_; }

  // Saves the journal and waits until the save's event is written.
  void save() {
    ASSERT_FALSE(context_->save());
    ASSERT_FALSE(events_->flush());
  }

  SyncMergeResult merge() {
    SyncMergeResult result = integrator_->mergeEvents();
    // The journal changed under the main context: read it afresh.
    context_->reset();
    if (result.succeeded && !result.error) {
      if (auto photos = integrator_->createPhotosAndThumbs()) {
        syncInstallPhotosAndThumbs(*events_, *images_, *photos);
      }
    }
    return result;
  }

  std::shared_ptr<MoodRecord> addRecord(long level, const std::string& comment, double date = 1000) {
    auto record = context_->insertNewObject<MoodRecord>(kMoodRecordEntity);
    auto description = context_->insertNewObject<MoodDescription>(kMoodDescriptionEntity);
    record->setMoodDescription(description);
    record->setMoodLevel(level);
    record->setDate(Date::fromTimeIntervalSinceReferenceDate(date));
    description->setComment(comment);
    return record;
  }

  std::shared_ptr<MoodTag> tagNamed(const std::string& name, bool create) {
    FetchRequest request(kMoodTagEntity);
    request.setPredicate(Predicate::predicateWithFormat("tagName == %@", name));
    auto found = context_->executeFetchRequest(request);
    if (!found.empty()) return std::dynamic_pointer_cast<MoodTag>(found.lastObject());
    if (!create) return nullptr;
    auto tag = context_->insertNewObject<MoodTag>(kMoodTagEntity);
    tag->setTagName(name);
    return tag;
  }

  std::vector<std::shared_ptr<MoodRecord>> records() {
    FetchRequest request(kMoodRecordEntity);
    request.setSortDescriptors({SortDescriptor("uniqueIdentifier")});
    std::vector<std::shared_ptr<MoodRecord>> out;
    for (const auto& o : context_->executeFetchRequest(request))
      out.push_back(std::dynamic_pointer_cast<MoodRecord>(o));
    return out;
  }

  std::shared_ptr<MoodRecord> recordWithIdentifier(const std::string& uid) {
    FetchRequest request(kMoodRecordEntity);
    request.setPredicate(Predicate::predicateWithFormat("uniqueIdentifier == %@", uid));
    auto found = context_->executeFetchRequest(request);
    return found.empty() ? nullptr : std::dynamic_pointer_cast<MoodRecord>(found.firstObject());
  }

  // Every field of every record, description and tag, photos by checksum,
  // tags with frequency and level sum, in a stable order; duplicates and
  // orphans are listed so that they show in a comparison.
  std::string dump() {
    std::ostringstream out;
    std::map<std::string, int> uidCount;
    for (const auto& record : records()) {
      std::string uid = record->uniqueIdentifier().value_or("?");
      ++uidCount[uid];
      out << "record " << uid << " level=" << record->moodLevel()
          << " date=" << (record->date() ? record->date()->timeIntervalSinceReferenceDate() : -1.0);
      auto d = record->moodDescription();
      if (d) {
        out << " desc=" << d->uniqueIdentifier().value_or("?")
            << " comment=" << d->comment().value_or("<nil>") << " photo=" << d->photoName().value_or("<nil>")
            << " photoSum=" << d->photoChecksum().value_or("<nil>")
            << " thumb=" << d->thumbName().value_or("<nil>")
            << " thumbSum=" << d->thumbChecksum().value_or("<nil>") << " edited=" << d->wasEdited()
            << " lat=" << d->latitude() << " lon=" << d->longitude();
        if (auto name = d->photoName(); name && !name->empty()) {
          auto path = images_->imageURLForName(*name);
          out << " photoFile=" << (path && std::filesystem::exists(*path) ? md5HashOfPath(*path) : "missing");
        }
        if (auto name = d->thumbName(); name && !name->empty()) {
          auto path = images_->imageURLForName(*name);
          out << " thumbFile=" << (path && std::filesystem::exists(*path) ? "present" : "missing");
        }
      } else {
        out << " desc=<none>";
      }
      std::vector<std::string> tags;
      for (const auto& tag : record->moodTags()) tags.push_back(tag->tagName());
      std::sort(tags.begin(), tags.end());
      out << " tags=";
      for (const auto& t : tags) out << t << ",";
      out << "\n";
    }
    for (const auto& [uid, count] : uidCount) {
      if (count > 1) out << "DUPLICATE record " << uid << " x" << count << "\n";
    }
    FetchRequest descriptions(kMoodDescriptionEntity);
    for (const auto& d : context_->executeFetchRequest(descriptions)) {
      if (!d->objectForKey("moodRecord"))
        out << "ORPHAN description " << d->valueForKey("uniqueIdentifier").toString() << "\n";
    }
    FetchRequest tagRequest(kMoodTagEntity);
    tagRequest.setSortDescriptors({SortDescriptor("tagName")});
    std::map<std::string, int> tagCount;
    for (const auto& o : context_->executeFetchRequest(tagRequest)) {
      auto tag = std::dynamic_pointer_cast<MoodTag>(o);
      long sum = 0;
      auto records = tag->moodRecords();
      for (const auto& r : records) sum += r->moodLevel();
      ++tagCount[tag->tagName()];
      out << "tag " << tag->tagName() << " unit=" << tag->tagUnit().value_or("<nil>")
          << " frequency=" << tag->frequency() << " records=" << records.size() << " levelSum=" << sum
          << "\n";
    }
    for (const auto& [name, count] : tagCount) {
      if (count > 1) out << "DUPLICATE tag " << name << " x" << count << "\n";
    }
    return out.str();
  }

 private:
  void openJournal() {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(sharedJournalModel());
    OptionalError error;
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, storePath(), {}, error);
    ASSERT_FALSE(error) << error->toString();
    context_ = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
    context_->setPersistentStoreCoordinator(coordinator);
  }

  std::filesystem::path home_;
  std::shared_ptr<ImageStore> images_;
  SyncEnsembleHooks hooks_;
  std::shared_ptr<ManagedObjectContext> context_;
  std::shared_ptr<SyncEventStore> events_;
  std::unique_ptr<SyncSaveMonitor> monitor_;
  std::shared_ptr<SyncEventIntegrator> integrator_;
};

// Delivers every event `from` made since it last published to `to`.
inline void deliverAll(SyncReplica& from, SyncReplica& to) {
  for (const auto& archived : syncArchiveEvents(from.events())) {
    auto store = from.events().persistentStoreIdentifier();
    if (archived.event["persistentStoreIdentifier"].toString() != store.value_or("")) continue;
    OptionalError error = syncImportEvent(to.events(), archived);
    EXPECT_FALSE(error) << error->toString();
  }
}

}  // namespace lumeo::testing
