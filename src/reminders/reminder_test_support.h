// Helpers of the reminder tests: wall times in the test's zone on a fixed
// day, and random sources that give known or seeded numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/calendar.h"
#include "platform/date.h"
#include "reminders/mood_random_reminder.h"

namespace lumeo::testing {

// y-m-d h:m:s on the current calendar.
inline Date wallTime(int year, int month, int day, int hour, int minute, int second = 0) {
  DateComponents c;
  c.year = year;
  c.month = month;
  c.day = day;
  c.hour = hour;
  c.minute = minute;
  c.second = second;
  return *Calendar::current().dateFromComponents(c);
}

// "HH:MM" of a date on the current calendar.
inline std::string hourMinute(Date date) {
  Calendar calendar = Calendar::current();
  char text[8];
  std::snprintf(text, sizeof text, "%02d:%02d",
                static_cast<int>(calendar.component(CalendarUnit::kHour, date)),
                static_cast<int>(calendar.component(CalendarUnit::kMinute, date)));
  return text;
}

// Gives the listed numbers in turn, then repeats the last one.
inline RandomSource sequenceSource(std::vector<std::uint32_t> numbers) {
  auto state = std::make_shared<std::pair<std::vector<std::uint32_t>, std::size_t>>(std::move(numbers), 0);
  return [state] {
    auto& [list, next] = *state;
    std::uint32_t value = list[std::min(next, list.size() - 1)];
    ++next;
    return value;
  };
}

// A seeded uniform 32-bit source.
inline RandomSource seededSource(std::uint32_t seed) {
  auto engine = std::make_shared<std::mt19937>(seed);
  return [engine] { return static_cast<std::uint32_t>((*engine)()); };
}

}  // namespace lumeo::testing
