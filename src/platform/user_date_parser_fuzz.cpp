// Feeds arbitrary bytes to the command line's date reader in two locales and
// a zone with daylight saving: it must answer (a date or nothing) without
// crashing, and any date it accepts must format back without trouble.
#include <cstdint>
#include <string_view>

#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/user_date_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const lumeo::Calendar kUnitedStates("en_US", *lumeo::TimeZone::named("America/Sao_Paulo"));
  static const lumeo::Calendar kGermany("de_DE", *lumeo::TimeZone::named("Europe/Berlin"));
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const lumeo::Calendar* calendar : {&kUnitedStates, &kGermany}) {
    if (auto date = lumeo::parseUserDate(text, *calendar)) {
      lumeo::DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ss");
      formatter.setTimeZone(calendar->timeZone());
      if (formatter.stringFromDate(*date).empty()) __builtin_trap();
    }
  }
  return 0;
}
