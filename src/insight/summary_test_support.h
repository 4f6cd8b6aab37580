// A journal store in a temporary folder on virtual time, for the tests of
// the summary and tag pages: records with levels, dates, comments, tags and
// photo names are written as the editor would leave them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/calendar.h"
#include "platform/clock.h"
#include "platform/time_zone.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo::testing {

inline Date utcDate(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  Calendar calendar("en_US", TimeZone::gmt());
  DateComponents c;
  c.year = y;
  c.month = mo;
  c.day = d;
  c.hour = h;
  c.minute = mi;
  c.second = s;
  return *calendar.dateFromComponents(c);
}

class JournalTest : public ::testing::Test {
 protected:
  explicit JournalTest(Date now = utcDate(2026, 11, 23, 12))
      : clock_(now),
        defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        store_({dir_ / "Library", dir_ / "Documents"}, defaults_) {
    std::filesystem::create_directories(dir_ / "Library");
  }

  std::shared_ptr<MoodRecord> addRecord(long level, Date date, const std::vector<std::string>& tags = {},
                                        bool photo = false) {
    auto record = store_.insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(date);
    std::string comment;
    for (const auto& name : tags) {
      auto tag = store_.tagWithExactName(name);
      if (!tag) {
        tag = store_.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
        tag->setTagName(name);
      }
      record->addMoodTagsObject(tag);
      comment += "#" + name + " ";
    }
    record->moodDescription()->setComment(comment);
    if (photo) record->moodDescription()->setPhotoName("photo" + std::to_string(++photos_) + ".jpg");
    return record;
  }
  void save() { store_.saveContext(); }

  ScopedEnvironment env_{
      {"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}, {"LUMEO_FIRST_WEEKDAY", "1"}};
  ScopedSimulatedClock clock_;
  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  JournalStore store_;
  int photos_ = 0;
};

}  // namespace lumeo::testing
