// A real journal in a temporary folder for the Map tab's tests, records
// placed where a test wants them, and a main loop that runs until the map
// has settled.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "testing/temp_dir.h"

namespace lumeo::testing {

class MapJournal {
 public:
  MapJournal() : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {
    previous_ = UserDefaults::standard();
    UserDefaults::setStandard(defaults_);
    store_ = std::make_unique<JournalStore>(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
                                            defaults_);
  }
  ~MapJournal() { UserDefaults::setStandard(previous_); }

  JournalStore& store() { return *store_; }
  const std::filesystem::path& dir() const { return dir_.path(); }

  // A record at a place (not saved), with the named tags linked.
  std::shared_ptr<MoodRecord> add(long level, double latitude, double longitude,
                                  const std::vector<std::string>& tags = {}, Date date = Date::now()) {
    auto record = store_->insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(date);
    record->moodDescription()->setLatitude(latitude);
    record->moodDescription()->setLongitude(longitude);
    for (const auto& name : tags) {
      auto tag = store_->tagNamed(name);
      if (!tag) {
        tag = store_->managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
    }
    return record;
  }
  void save() { store_->saveContext(); }

 private:
  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<UserDefaults> previous_;
  std::unique_ptr<JournalStore> store_;
};

// Runs the main loop until `done` holds and the main queue has stayed empty
// for a few rounds (a background step may still be handing work back to
// it); false if that never happened.
inline bool runUntilSettled(const std::function<bool()>& done, double seconds = 30) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  int quiet = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    if (!MainLoop::shared().runUntil(done, seconds)) return false;
    if (MainLoop::shared().runOnce() == 0 && done()) {
      if (++quiet == 5) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    } else {
      quiet = 0;
    }
  }
  return false;
}

}  // namespace lumeo::testing
