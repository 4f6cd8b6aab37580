// Reads a date as a person types it on the command line: ISO 8601
// ("2026-11-22", "2026-11-22T14:30", "2026-11-22 14:30:05+01:00") or the
// short and medium forms of their locale ("11/22/26", "Nov 22, 2026, 2:30 PM").
// Either the whole text is a date or the answer is nullopt; nothing is guessed.
#pragma once

#include <optional>
#include <string_view>

#include "platform/calendar.h"
#include "platform/date.h"

namespace lumeo {

// In the calendar's locale and zone. A text without a time means the start
// of that day; a time without an offset is wall-clock time in the zone (a
// time skipped by a daylight-saving change moves on by the size of the jump,
// as the calendar reads it). Leading and trailing spaces are ignored.
std::optional<Date> parseUserDate(std::string_view text, const Calendar& calendar);
// The same in the user's current calendar.
std::optional<Date> parseUserDate(std::string_view text);

// ISO 8601 alone, for scripts that want no locale at play.
std::optional<Date> parseIsoUserDate(std::string_view text, const Calendar& calendar);

}  // namespace lumeo
