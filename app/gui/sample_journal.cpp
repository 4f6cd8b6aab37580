#include "sample_journal.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "capture/mood_record_state.h"
#include "platform/calendar.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace lumeo::gui {

namespace {

// Comments that read like a real journal; levels lean towards the mood the
// comment suggests, so the tag rankings have something to say.
struct SampleComment {
  const char* text;
  int lean;
};

constexpr SampleComment kComments[] = {
    {"Slept well #sleep:8h and a long walk by the river #walk", 2},
    {"Busy day at #work, too much coffee #coffee:3", -1},
    {"Dinner with old friends #friends", 2},
    {"Tired all day #sleep:5h", -2},
    {"Quiet evening reading #reading", 1},
    {"Ran in the park #running:5km", 2},
    {"Headache all afternoon #work", -2},
    {"Cooked something new #cooking with #friends", 1},
    {"Rainy, stayed in #sleep:7h", 0},
    {"Deadline stress #work #coffee:4", -2},
    {"Yoga in the morning #yoga:30min", 1},
    {"Called mum #family", 1},
};

}  // namespace

std::size_t fillSampleJournal(JournalStore& store, Date end, int days, std::uint32_t seed) {
  std::mt19937 random(seed);
  Calendar calendar = Calendar::current();
  const Date lastDay = calendar.startOfDay(end);
  std::size_t made = 0;
  for (int d = days - 1; d >= 0; --d) {
    auto day = calendar.dateByAddingUnit(CalendarUnit::kDay, -d, lastDay);
    if (!day) continue;
    const int perDay = 2 + static_cast<int>(random() % 2);
    for (int i = 0; i < perDay; ++i) {
      const double hour = 8 + i * 5 + static_cast<double>(random() % 180) / 60.0;
      const Date when = day->dateByAddingTimeInterval(hour * 3600);
      if (when > end) continue;
      const SampleComment& comment = kComments[random() % std::size(kComments)];
      // A weekly rhythm: weekends are better.
      const int weekday = static_cast<int>(calendar.component(CalendarUnit::kWeekday, when));
      long level =
          5 + comment.lean + (weekday == 1 || weekday == 7 ? 1 : 0) + static_cast<long>(random() % 3) - 1;
      level = std::clamp(level, 1L, 10L);
      auto record = store.insertRecordWithDescription();
      if (!record) return made;
      record->setMoodLevel(level);
      record->setDate(when);
      record->moodDescription()->setComment(comment.text);
      MoodRecordState::applyCommentTags(store, record, comment.text);
      ++made;
    }
  }
  store.saveContext();
  return made;
}

}  // namespace lumeo::gui
