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

// Places in and around one city, so the map has pins to show: home, work,
// the park by the river, friends, the gym, a weekend by the lake. Chosen
// from the record's number, not from the random stream, so the records'
// levels and comments stay what they always were.
struct SamplePlace {
  double latitude;
  double longitude;
};

constexpr SamplePlace kPlaces[] = {
    {52.5200, 13.4050}, {52.5163, 13.3777}, {52.5145, 13.3501}, {52.4990, 13.4180},
    {52.5380, 13.4240}, {52.4500, 13.2300}, {52.5200, 13.4050}, {52.5075, 13.4590},
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
      // Most records have a place; every fifth has none.
      if (made % 5 != 4) {
        const SamplePlace& place = kPlaces[(made * 7 + made / 3) % std::size(kPlaces)];
        record->moodDescription()->setLatitude(place.latitude);
        record->moodDescription()->setLongitude(place.longitude);
      }
      ++made;
    }
  }
  store.saveContext();
  return made;
}

}  // namespace lumeo::gui
