// Calendar on ICU. Each call rebuilds what it needs from the fields it is
// given, so that results never depend on a previous call on the same object.
#include "platform/calendar.h"

#include <unicode/calendar.h>
#include <unicode/dtfmtsym.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/icu_support.h"
#include "platform/user_locale.h"

namespace lumeo {
namespace {

constexpr double kMillisPerSecond = 1000.0;

// ICU computes fields from a finite instant only. A date that is not a
// number (a damaged record) reads as 1970, and infinities as the far past or
// future, so that every operation still answers with whole fields.
UDate toUDate(Date date) {
  const double seconds = date.timeIntervalSince1970();
  if (std::isnan(seconds)) return 0;
  if (std::isinf(seconds)) {
    return (seconds > 0 ? Date::distantFuture() : Date::distantPast()).timeIntervalSince1970() *
           kMillisPerSecond;
  }
  return seconds * kMillisPerSecond;
}
Date fromUDate(UDate millis) {
  return Date::fromTimeIntervalSince1970(millis / kMillisPerSecond);
}

bool fitsInt32(std::int64_t v) {
  return v >= INT32_MIN && v <= INT32_MAX;
}

std::optional<int> firstWeekdayOverride() {
  const char* value = std::getenv(Calendar::kFirstWeekdayVariable);
  if (value == nullptr || *value == '\0') return std::nullopt;
  char* end = nullptr;
  long weekday = std::strtol(value, &end, 10);
  if (*end != '\0' || weekday < 1 || weekday > 7) return std::nullopt;
  return static_cast<int>(weekday);
}

std::unique_ptr<icu::Calendar> makeIcuCalendar(const std::string& localeId, const TimeZone& zone,
                                               bool gregorian) {
  const icu::Locale locale = icuDateLocale(localeId);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Calendar> calendar;
  if (gregorian) {
    calendar = std::make_unique<icu::GregorianCalendar>(zone.icuZone().clone(), locale, status);
  } else {
    calendar.reset(icu::Calendar::createInstance(zone.icuZone().clone(), locale, status));
  }
  if (U_FAILURE(status) || !calendar) {
    // Only a broken ICU data library gets here; nothing date-related could
    // work, so say so plainly rather than compute with a null calendar.
    std::fprintf(stderr, "lumeo: ICU cannot make a calendar for locale %s: %s\n", localeId.c_str(),
                 u_errorName(status));
    std::abort();
  }
  calendar->setLenient(true);
  // A wall time that occurs twice is read as its first occurrence, so that
  // the start of a day is the first instant the clock shows that date.
  calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
  calendar->setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
  return calendar;
}

// Weekday, weekday ordinal and the two week units all step by weeks when
// measured or added.
bool isWeekUnit(CalendarUnit unit) {
  return unit == CalendarUnit::kWeekOfYear || unit == CalendarUnit::kWeekOfMonth ||
         unit == CalendarUnit::kWeekdayOrdinal;
}

std::vector<std::string> symbols(const icu::Calendar& calendar, const std::string& localeId, bool weekdays,
                                 icu::DateFormatSymbols::DtWidthType width) {
  UErrorCode status = U_ZERO_ERROR;
  icu::DateFormatSymbols dfs(icuDateLocale(localeId), calendar.getType(), status);
  std::vector<std::string> out;
  if (U_FAILURE(status)) return out;
  int32_t count = 0;
  const icu::UnicodeString* names = weekdays ? dfs.getWeekdays(count, icu::DateFormatSymbols::FORMAT, width)
                                             : dfs.getMonths(count, icu::DateFormatSymbols::FORMAT, width);
  // ICU's weekday array has an empty slot 0 so that index 1 is Sunday.
  for (int32_t i = weekdays ? 1 : 0; i < count; ++i) out.push_back(fromUnicode(names[i]));
  return out;
}

}  // namespace

std::optional<std::int64_t> DateComponents::value(CalendarUnit unit) const {
  switch (unit) {
    case CalendarUnit::kEra:
      return era;
    case CalendarUnit::kYear:
      return year;
    case CalendarUnit::kMonth:
      return month;
    case CalendarUnit::kDay:
      return day;
    case CalendarUnit::kHour:
      return hour;
    case CalendarUnit::kMinute:
      return minute;
    case CalendarUnit::kSecond:
      return second;
    case CalendarUnit::kNanosecond:
      return nanosecond;
    case CalendarUnit::kWeekday:
      return weekday;
    case CalendarUnit::kWeekdayOrdinal:
      return weekdayOrdinal;
    case CalendarUnit::kQuarter:
      return quarter;
    case CalendarUnit::kWeekOfMonth:
      return weekOfMonth;
    case CalendarUnit::kWeekOfYear:
      return weekOfYear;
    case CalendarUnit::kYearForWeekOfYear:
      return yearForWeekOfYear;
    default:
      return std::nullopt;
  }
}

void DateComponents::setValue(CalendarUnit unit, std::optional<std::int64_t> v) {
  switch (unit) {
    case CalendarUnit::kEra:
      era = v;
      break;
    case CalendarUnit::kYear:
      year = v;
      break;
    case CalendarUnit::kMonth:
      month = v;
      break;
    case CalendarUnit::kDay:
      day = v;
      break;
    case CalendarUnit::kHour:
      hour = v;
      break;
    case CalendarUnit::kMinute:
      minute = v;
      break;
    case CalendarUnit::kSecond:
      second = v;
      break;
    case CalendarUnit::kNanosecond:
      nanosecond = v;
      break;
    case CalendarUnit::kWeekday:
      weekday = v;
      break;
    case CalendarUnit::kWeekdayOrdinal:
      weekdayOrdinal = v;
      break;
    case CalendarUnit::kQuarter:
      quarter = v;
      break;
    case CalendarUnit::kWeekOfMonth:
      weekOfMonth = v;
      break;
    case CalendarUnit::kWeekOfYear:
      weekOfYear = v;
      break;
    case CalendarUnit::kYearForWeekOfYear:
      yearForWeekOfYear = v;
      break;
    default:
      break;
  }
}

std::string DateComponents::description() const {
  static constexpr std::pair<CalendarUnit, const char*> kNames[] = {
      {CalendarUnit::kEra, "era"},
      {CalendarUnit::kYear, "year"},
      {CalendarUnit::kQuarter, "quarter"},
      {CalendarUnit::kMonth, "month"},
      {CalendarUnit::kDay, "day"},
      {CalendarUnit::kHour, "hour"},
      {CalendarUnit::kMinute, "minute"},
      {CalendarUnit::kSecond, "second"},
      {CalendarUnit::kNanosecond, "nanosecond"},
      {CalendarUnit::kWeekday, "weekday"},
      {CalendarUnit::kWeekdayOrdinal, "weekdayOrdinal"},
      {CalendarUnit::kWeekOfMonth, "weekOfMonth"},
      {CalendarUnit::kWeekOfYear, "weekOfYear"},
      {CalendarUnit::kYearForWeekOfYear, "yearForWeekOfYear"},
  };
  std::string out = "{";
  for (const auto& [unit, name] : kNames) {
    if (auto v = value(unit))
      out += (out.size() > 1 ? ", " : "") + std::string(name) + " " + std::to_string(*v);
  }
  if (timeZone) out += (out.size() > 1 ? ", " : "") + std::string("timeZone ") + *timeZone;
  return out + "}";
}

Calendar::Calendar(std::unique_ptr<icu::Calendar> calendar, std::string locale, TimeZone zone)
    : calendar_(std::move(calendar)), locale_(std::move(locale)), zone_(std::move(zone)) {}

Calendar::Calendar(const std::string& localeIdentifier, const TimeZone& timeZone)
    : Calendar(makeIcuCalendar(localeIdentifier, timeZone, false), localeIdentifier, timeZone) {}

Calendar::Calendar(const Calendar& other)
    : calendar_(other.calendar_->clone()), locale_(other.locale_), zone_(other.zone_) {}

Calendar& Calendar::operator=(const Calendar& other) {
  if (this != &other) {
    calendar_.reset(other.calendar_->clone());
    locale_ = other.locale_;
    zone_ = other.zone_;
  }
  return *this;
}

Calendar::Calendar(Calendar&&) noexcept = default;
Calendar& Calendar::operator=(Calendar&&) noexcept = default;
Calendar::~Calendar() = default;

Calendar Calendar::makeCurrent(bool gregorian) {
  std::string locale = userLocaleIdentifier();
  TimeZone zone = TimeZone::current();
  auto icuCalendar = makeIcuCalendar(locale, zone, gregorian);
  Calendar calendar(std::move(icuCalendar), std::move(locale), std::move(zone));
  if (auto weekday = firstWeekdayOverride()) calendar.setFirstWeekday(*weekday);
  return calendar;
}

Calendar Calendar::current() {
  return makeCurrent(false);
}
Calendar Calendar::gregorian() {
  return makeCurrent(true);
}

std::string Calendar::identifier() const {
  return calendar_->getType();
}

void Calendar::setTimeZone(const TimeZone& zone) {
  zone_ = zone;
  calendar_->setTimeZone(zone.icuZone());
}

int Calendar::firstWeekday() const {
  UErrorCode status = U_ZERO_ERROR;
  return static_cast<int>(calendar_->getFirstDayOfWeek(status));
}

void Calendar::setFirstWeekday(int weekday) {
  if (weekday >= 1 && weekday <= 7) calendar_->setFirstDayOfWeek(static_cast<UCalendarDaysOfWeek>(weekday));
}

int Calendar::minimumDaysInFirstWeek() const {
  return calendar_->getMinimalDaysInFirstWeek();
}

void Calendar::setMinimumDaysInFirstWeek(int days) {
  if (days >= 1 && days <= 7) calendar_->setMinimalDaysInFirstWeek(static_cast<uint8_t>(days));
}

DateComponents Calendar::components(CalendarUnit units, Date date) const {
  DateComponents c;
  UErrorCode status = U_ZERO_ERROR;
  const UDate millis = toUDate(date);
  calendar_->setTime(millis, status);
  auto get = [&](UCalendarDateFields field) -> std::int64_t { return calendar_->get(field, status); };
  if (contains(units, CalendarUnit::kEra)) c.era = get(UCAL_ERA);
  if (contains(units, CalendarUnit::kYear)) c.year = get(UCAL_YEAR);
  if (contains(units, CalendarUnit::kMonth)) c.month = get(UCAL_MONTH) + 1;
  if (contains(units, CalendarUnit::kDay)) c.day = get(UCAL_DATE);
  if (contains(units, CalendarUnit::kHour)) c.hour = get(UCAL_HOUR_OF_DAY);
  if (contains(units, CalendarUnit::kMinute)) c.minute = get(UCAL_MINUTE);
  if (contains(units, CalendarUnit::kSecond)) c.second = get(UCAL_SECOND);
  if (contains(units, CalendarUnit::kNanosecond)) {
    const double subMillis = millis - std::floor(millis);
    c.nanosecond = get(UCAL_MILLISECOND) * 1000000 + static_cast<std::int64_t>(std::llround(subMillis * 1e6));
  }
  if (contains(units, CalendarUnit::kWeekday)) c.weekday = get(UCAL_DAY_OF_WEEK);
  if (contains(units, CalendarUnit::kWeekdayOrdinal)) c.weekdayOrdinal = get(UCAL_DAY_OF_WEEK_IN_MONTH);
  if (contains(units, CalendarUnit::kQuarter)) c.quarter = get(UCAL_MONTH) / 3 + 1;
  if (contains(units, CalendarUnit::kWeekOfMonth)) c.weekOfMonth = get(UCAL_WEEK_OF_MONTH);
  if (contains(units, CalendarUnit::kWeekOfYear)) c.weekOfYear = get(UCAL_WEEK_OF_YEAR);
  if (contains(units, CalendarUnit::kYearForWeekOfYear)) c.yearForWeekOfYear = get(UCAL_YEAR_WOY);
  if (contains(units, CalendarUnit::kTimeZone)) c.timeZone = zone_.identifier();
  return c;
}

std::int64_t Calendar::component(CalendarUnit unit, Date date) const {
  return components(unit, date).value(unit).value_or(0);
}

std::optional<Date> Calendar::dateFromComponents(const DateComponents& c) const {
  std::unique_ptr<icu::Calendar> scratch;
  icu::Calendar* cal = calendar_.get();
  if (c.timeZone) {
    auto zone = TimeZone::named(*c.timeZone);
    if (!zone) return std::nullopt;
    scratch.reset(calendar_->clone());
    scratch->setTimeZone(zone->icuZone());
    cal = scratch.get();
  }
  cal->clear();
  bool ok = true;
  auto set = [&](UCalendarDateFields field, const std::optional<std::int64_t>& v, std::int64_t offset = 0) {
    if (!v) return;
    if (!fitsInt32(*v + offset)) {
      ok = false;
      return;
    }
    cal->set(field, static_cast<int32_t>(*v + offset));
  };
  // ICU resolves competing fields by which was set last, so the order below
  // is the precedence: week of year, then week of month and weekday ordinal,
  // then the day of the month.
  set(UCAL_ERA, c.era);
  set(UCAL_YEAR_WOY, c.yearForWeekOfYear);
  set(UCAL_YEAR, c.year);
  if (c.month) {
    set(UCAL_MONTH, c.month, -1);
  } else if (c.quarter) {
    set(UCAL_MONTH, (*c.quarter - 1) * 3);
  }
  set(UCAL_WEEK_OF_YEAR, c.weekOfYear);
  set(UCAL_DAY_OF_WEEK, c.weekday);
  set(UCAL_WEEK_OF_MONTH, c.weekOfMonth);
  set(UCAL_DAY_OF_WEEK_IN_MONTH, c.weekdayOrdinal);
  set(UCAL_DATE, c.day);
  set(UCAL_HOUR_OF_DAY, c.hour.value_or(0));
  set(UCAL_MINUTE, c.minute.value_or(0));
  set(UCAL_SECOND, c.second.value_or(0));
  cal->set(UCAL_MILLISECOND, 0);
  if (!ok) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const UDate millis = cal->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  Date result = fromUDate(millis);
  if (c.nanosecond) result = result.dateByAddingTimeInterval(static_cast<double>(*c.nanosecond) / 1e9);
  return result;
}

std::optional<Date> Calendar::dateByAddingComponents(const DateComponents& c, Date date,
                                                     bool wrappingComponents) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(date), status);
  bool ok = U_SUCCESS(status);
  auto add = [&](UCalendarDateFields field, const std::optional<std::int64_t>& v, std::int64_t factor = 1) {
    if (!v || *v == 0 || !ok) return;
    const std::int64_t amount = *v * factor;
    if (!fitsInt32(amount)) {
      ok = false;
      return;
    }
    if (wrappingComponents) {
      calendar_->roll(field, static_cast<int32_t>(amount), status);
    } else {
      calendar_->add(field, static_cast<int32_t>(amount), status);
    }
    ok = U_SUCCESS(status);
  };
  add(UCAL_ERA, c.era);
  add(UCAL_YEAR, c.year);
  add(UCAL_MONTH, c.quarter, 3);
  add(UCAL_MONTH, c.month);
  add(UCAL_WEEK_OF_YEAR, c.weekOfYear);
  add(UCAL_WEEK_OF_MONTH, c.weekOfMonth);
  add(UCAL_WEEK_OF_MONTH, c.weekdayOrdinal);
  add(UCAL_DAY_OF_WEEK, c.weekday);
  add(UCAL_DATE, c.day);
  add(UCAL_HOUR_OF_DAY, c.hour);
  add(UCAL_MINUTE, c.minute);
  add(UCAL_SECOND, c.second);
  if (!ok) return std::nullopt;
  UDate millis = calendar_->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  Date result = fromUDate(millis);
  if (c.nanosecond) result = result.dateByAddingTimeInterval(static_cast<double>(*c.nanosecond) / 1e9);
  return result;
}

std::optional<Date> Calendar::dateByAddingUnit(CalendarUnit unit, std::int64_t value, Date date) const {
  DateComponents c;
  c.setValue(unit, value);
  return dateByAddingComponents(c, date);
}

DateComponents Calendar::componentsFromDate(CalendarUnit units, Date from, Date to) const {
  DateComponents c;
  UErrorCode status = U_ZERO_ERROR;
  const UDate target = toUDate(to);
  calendar_->setTime(toUDate(from), status);
  auto difference = [&](UCalendarDateFields field) -> std::int64_t {
    UErrorCode fieldStatus = U_ZERO_ERROR;
    const int32_t n = calendar_->fieldDifference(target, field, fieldStatus);
    return U_SUCCESS(fieldStatus) ? n : 0;
  };
  if (contains(units, CalendarUnit::kEra)) {
    // ICU cannot step by eras; the count of era boundaries crossed is the
    // difference of the two eras, and the calendar stays where it is.
    std::unique_ptr<icu::Calendar> probe(calendar_->clone());
    probe->setTime(target, status);
    c.era = probe->get(UCAL_ERA, status) - calendar_->get(UCAL_ERA, status);
  }
  if (contains(units, CalendarUnit::kYear)) c.year = difference(UCAL_YEAR);
  if (contains(units, CalendarUnit::kQuarter)) {
    std::unique_ptr<icu::Calendar> probe(calendar_->clone());
    const int32_t months = probe->fieldDifference(target, UCAL_MONTH, status);
    const int32_t quarters = U_SUCCESS(status) ? months / 3 : 0;
    calendar_->add(UCAL_MONTH, quarters * 3, status);
    c.quarter = quarters;
  }
  if (contains(units, CalendarUnit::kMonth)) c.month = difference(UCAL_MONTH);
  // The first week-like unit in the set takes the whole weeks; any other one
  // gets what is left, which is 0.
  for (CalendarUnit unit : {CalendarUnit::kWeekOfYear, CalendarUnit::kWeekOfMonth,
                            CalendarUnit::kWeekdayOrdinal, CalendarUnit::kWeekday}) {
    if (contains(units, unit)) c.setValue(unit, difference(UCAL_WEEK_OF_YEAR));
  }
  if (contains(units, CalendarUnit::kDay)) c.day = difference(UCAL_DATE);
  // Hours and smaller are elapsed time. They are counted here rather than by
  // ICU, whose 32-bit counts overflow for seconds over some 68 years.
  UDate now = calendar_->getTime(status);
  double remaining = target - now;
  auto take = [&](double unitMillis) -> std::int64_t {
    const double n = std::trunc(remaining / unitMillis);
    remaining -= n * unitMillis;
    return static_cast<std::int64_t>(n);
  };
  if (contains(units, CalendarUnit::kHour)) c.hour = take(3600.0 * kMillisPerSecond);
  if (contains(units, CalendarUnit::kMinute)) c.minute = take(60.0 * kMillisPerSecond);
  if (contains(units, CalendarUnit::kSecond)) c.second = take(kMillisPerSecond);
  if (contains(units, CalendarUnit::kNanosecond)) c.nanosecond = std::llround(remaining * 1e6);
  if (contains(units, CalendarUnit::kTimeZone)) c.timeZone = zone_.identifier();
  return c;
}

std::optional<DateInterval> Calendar::rangeOfUnit(CalendarUnit unit, Date date) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(date), status);
  if (U_FAILURE(status)) return std::nullopt;
  auto clearTimeOfDay = [&] {
    calendar_->set(UCAL_HOUR_OF_DAY, 0);
    calendar_->set(UCAL_MINUTE, 0);
    calendar_->set(UCAL_SECOND, 0);
    calendar_->set(UCAL_MILLISECOND, 0);
  };
  UCalendarDateFields stepField = UCAL_DATE;
  int32_t step = 1;
  double fixedSeconds = 0;  // for hours and smaller, which are elapsed time
  switch (unit) {
    case CalendarUnit::kEra: {
      const int32_t era = calendar_->get(UCAL_ERA, status);
      calendar_->clear();
      calendar_->set(UCAL_ERA, era);
      calendar_->set(UCAL_YEAR, 1);
      calendar_->set(UCAL_DAY_OF_YEAR, 1);
      stepField = UCAL_ERA;
      break;
    }
    case CalendarUnit::kYear:
      calendar_->set(UCAL_DAY_OF_YEAR, 1);
      clearTimeOfDay();
      stepField = UCAL_YEAR;
      break;
    case CalendarUnit::kQuarter: {
      const int32_t month = calendar_->get(UCAL_MONTH, status);
      calendar_->set(UCAL_MONTH, month - month % 3);
      calendar_->set(UCAL_DATE, 1);
      clearTimeOfDay();
      stepField = UCAL_MONTH;
      step = 3;
      break;
    }
    case CalendarUnit::kMonth:
      calendar_->set(UCAL_DATE, 1);
      clearTimeOfDay();
      stepField = UCAL_MONTH;
      break;
    case CalendarUnit::kWeekOfYear:
    case CalendarUnit::kWeekOfMonth:
    case CalendarUnit::kYearForWeekOfYear: {
      const int32_t back = (calendar_->get(UCAL_DAY_OF_WEEK, status) - firstWeekday() + 7) % 7;
      calendar_->set(UCAL_DATE, calendar_->get(UCAL_DATE, status) - back);
      clearTimeOfDay();
      step = 7;
      break;
    }
    case CalendarUnit::kDay:
    case CalendarUnit::kWeekday:
    case CalendarUnit::kWeekdayOrdinal:
      clearTimeOfDay();
      break;
    case CalendarUnit::kHour:
      calendar_->set(UCAL_MINUTE, 0);
      calendar_->set(UCAL_SECOND, 0);
      calendar_->set(UCAL_MILLISECOND, 0);
      fixedSeconds = 3600;
      break;
    case CalendarUnit::kMinute:
      calendar_->set(UCAL_SECOND, 0);
      calendar_->set(UCAL_MILLISECOND, 0);
      fixedSeconds = 60;
      break;
    case CalendarUnit::kSecond:
      calendar_->set(UCAL_MILLISECOND, 0);
      fixedSeconds = 1;
      break;
    default:
      return std::nullopt;
  }
  const UDate start = calendar_->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  if (fixedSeconds > 0) return DateInterval{fromUDate(start), fixedSeconds};
  calendar_->add(stepField, step, status);
  if (stepField != UCAL_ERA) clearTimeOfDay();
  const UDate end = calendar_->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return DateInterval{fromUDate(start), (end - start) / kMillisPerSecond};
}

Date Calendar::startOfDay(Date date) const {
  auto range = rangeOfUnit(CalendarUnit::kDay, date);
  return range ? range->start : date;
}

bool Calendar::isDateInSameDay(Date a, Date b) const {
  return components(kYearMonthDay | CalendarUnit::kEra, a) ==
         components(kYearMonthDay | CalendarUnit::kEra, b);
}

std::optional<UnitRange> Calendar::rangeOfUnit(CalendarUnit smaller, CalendarUnit larger, Date date) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(date), status);
  if (U_FAILURE(status)) return std::nullopt;
  auto actual = [&](UCalendarDateFields field, int32_t shift) -> std::optional<UnitRange> {
    const int32_t lo = calendar_->getActualMinimum(field, status);
    const int32_t hi = calendar_->getActualMaximum(field, status);
    if (U_FAILURE(status)) return std::nullopt;
    return UnitRange{lo + shift, hi - lo + 1};
  };
  if (smaller == CalendarUnit::kDay && larger == CalendarUnit::kMonth) return actual(UCAL_DATE, 0);
  if (smaller == CalendarUnit::kDay && larger == CalendarUnit::kYear) return actual(UCAL_DAY_OF_YEAR, 0);
  if (smaller == CalendarUnit::kMonth && larger == CalendarUnit::kYear) return actual(UCAL_MONTH, 1);
  if (smaller == CalendarUnit::kWeekOfMonth && larger == CalendarUnit::kMonth)
    return actual(UCAL_WEEK_OF_MONTH, 0);
  if (smaller == CalendarUnit::kWeekOfYear && larger == CalendarUnit::kYear)
    return actual(UCAL_WEEK_OF_YEAR, 0);
  if (smaller == CalendarUnit::kHour && larger == CalendarUnit::kDay) return UnitRange{0, 24};
  if (smaller == CalendarUnit::kWeekday && isWeekUnit(larger)) return UnitRange{1, 7};
  return std::nullopt;
}

std::optional<UnitRange> Calendar::maximumRangeOfUnit(CalendarUnit unit) const {
  auto range = [&](UCalendarDateFields field, int32_t shift) {
    const int32_t lo = calendar_->getMinimum(field);
    const int32_t hi = calendar_->getMaximum(field);
    return UnitRange{lo + shift, hi - lo + 1};
  };
  switch (unit) {
    case CalendarUnit::kEra:
      return range(UCAL_ERA, 0);
    case CalendarUnit::kYear:
      return range(UCAL_YEAR, 0);
    case CalendarUnit::kMonth:
      return range(UCAL_MONTH, 1);
    case CalendarUnit::kDay:
      return range(UCAL_DATE, 0);
    case CalendarUnit::kHour:
      return range(UCAL_HOUR_OF_DAY, 0);
    case CalendarUnit::kMinute:
      return range(UCAL_MINUTE, 0);
    case CalendarUnit::kSecond:
      return range(UCAL_SECOND, 0);
    case CalendarUnit::kWeekday:
      return range(UCAL_DAY_OF_WEEK, 0);
    case CalendarUnit::kWeekdayOrdinal:
      return range(UCAL_DAY_OF_WEEK_IN_MONTH, 0);
    case CalendarUnit::kQuarter:
      return UnitRange{1, 4};
    case CalendarUnit::kWeekOfMonth:
      return range(UCAL_WEEK_OF_MONTH, 0);
    case CalendarUnit::kWeekOfYear:
      return range(UCAL_WEEK_OF_YEAR, 0);
    default:
      return std::nullopt;
  }
}

std::vector<std::string> Calendar::weekdaySymbols() const {
  return symbols(*calendar_, locale_, true, icu::DateFormatSymbols::WIDE);
}
std::vector<std::string> Calendar::shortWeekdaySymbols() const {
  return symbols(*calendar_, locale_, true, icu::DateFormatSymbols::ABBREVIATED);
}
std::vector<std::string> Calendar::veryShortWeekdaySymbols() const {
  return symbols(*calendar_, locale_, true, icu::DateFormatSymbols::NARROW);
}
std::vector<std::string> Calendar::monthSymbols() const {
  return symbols(*calendar_, locale_, false, icu::DateFormatSymbols::WIDE);
}
std::vector<std::string> Calendar::shortMonthSymbols() const {
  return symbols(*calendar_, locale_, false, icu::DateFormatSymbols::ABBREVIATED);
}

}  // namespace lumeo
