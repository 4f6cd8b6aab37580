// The CSV export, built in one buffer. Dates are formatted once per local
// day, not once per record: the export of a long journal would otherwise
// spend most of its time in the date formatter.
#include "backup/mood_csv_export.h"

#include <unicode/coll.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <unordered_map>

#include "backup/backup_journal_reader.h"
#include "capture/mood_levels_presentation.h"
#include "platform/atomic_file.h"
#include "platform/date_formatter.h"
#include "platform/icu_support.h"
#include "platform/localization.h"
#include "platform/time_zone.h"
#include "platform/user_locale.h"
#include "shell/mood_app_delegate.h"

namespace lumeo {

namespace {

// Tag columns in the order of the user's language, case not counting; names
// that differ only in case stay apart (two columns) and keep a fixed order.
void sortTagNames(std::vector<std::string>& names) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(
      icu::Collator::createInstance(icu::Locale(icuLocaleFromPosix(userLocaleIdentifier()).c_str()), status));
  if (U_FAILURE(status) || !collator) {
    std::sort(names.begin(), names.end());
    return;
  }
  collator->setStrength(icu::Collator::SECONDARY);
  std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
    UErrorCode s = U_ZERO_ERROR;
    UCollationResult r = collator->compareUTF8(a, b, s);
    if (r != UCOL_EQUAL) return r == UCOL_LESS;
    return a < b;
  });
}

// Date, day of week, hour and minute of each record, in the user's locale
// and zone. The two day texts depend only on the local day; hour and minute
// come from the local time of day.
class DateColumns {
 public:
  DateColumns() : zone_(TimeZone::current()) {
    day_.setDateStyle(DateFormatter::Style::kMedium);
    day_.setTimeStyle(DateFormatter::Style::kNone);
    weekday_.setDateFormat("ccc");
  }

  void append(std::string& out, Date date) {
    const double seconds = date.timeIntervalSince1970();
    const double local = seconds + zone_.secondsFromGMT(date);
    const double dayNumber = std::floor(local / 86400);
    auto it = days_.find(static_cast<long long>(dayNumber));
    if (it == days_.end()) {
      std::string texts = MoodCSVExport::stringReplaceChar(day_.stringFromDate(date)) + "," +
                          MoodCSVExport::stringReplaceChar(weekday_.stringFromDate(date)) + ",";
      it = days_.emplace(static_cast<long long>(dayNumber), std::move(texts)).first;
    }
    out += it->second;
    const long secondOfDay = static_cast<long>(std::floor(local - dayNumber * 86400));
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "\"%02ld\",\"%02ld\",", secondOfDay / 3600, (secondOfDay / 60) % 60);
    out += buffer;
  }

 private:
  TimeZone zone_;
  DateFormatter day_;
  DateFormatter weekday_;
  std::unordered_map<long long, std::string> days_;
};

// stringReplaceChar appended in place, without the temporary strings.
void appendField(std::string& out, std::string_view text) {
  out += '"';
  for (char c : text) {
    if (c == '"') {
      out += "\"\"";
    } else if (c == '\\') {
      out += "\\\\";
    } else {
      out += c;
    }
  }
  out += '"';
}

}  // namespace

std::string MoodCSVExport::stringReplaceChar(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  appendField(out, text);
  return out;
}

std::string MoodCSVExport::csvText(const JournalRows& rows) {
  // The columns: every exact name once, in the user's order.
  std::vector<std::string> names = rows.tagNames;
  sortTagNames(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  // Two stored tags may share one exact name; both lead to its column.
  std::unordered_map<std::string, std::uint32_t> columnOfName;
  for (std::uint32_t i = 0; i < names.size(); ++i) columnOfName.emplace(names[i], i);
  std::vector<std::uint32_t> columnOfTag(rows.tagNames.size());
  for (std::size_t i = 0; i < rows.tagNames.size(); ++i) columnOfTag[i] = columnOfName.at(rows.tagNames[i]);

  std::string out = "\xEF\xBB\xBF\n";
  const char* labels[] = {"Date",  "Day of week", "Hour",     "Minute",
                          "Level", "LevelText",   "Location", "Comment"};
  for (std::size_t i = 0; i < std::size(labels); ++i) {
    if (i) out += ',';
    appendField(out, localized(labels[i]));
  }
  for (const auto& name : names) {
    out += ',';
    appendField(out, name);
  }
  out += '\n';

  const MoodLevelsPresentation levels = MoodLevelsPresentation::defaultMoodLevels();
  std::unordered_map<long, std::string> levelTexts;
  DateColumns dates;
  std::vector<char> marks(names.size());
  out.reserve(out.size() + rows.records.size() * (96 + 2 * names.size()));
  std::size_t link = 0;
  for (std::size_t index = 0; index < rows.records.size(); ++index) {
    const JournalRow& row = rows.records[index];
    dates.append(out, row.date);
    out += '"';
    out += std::to_string(row.moodLevel);
    out += "\",";
    auto level = levelTexts.find(row.moodLevel);
    if (level == levelTexts.end()) {
      auto presentation = levels.presentationForMoodLevel(row.moodLevel);
      level =
          levelTexts.emplace(row.moodLevel, stringReplaceChar(presentation ? presentation->text : "")).first;
    }
    out += level->second;
    out += ',';
    if (row.latitude == -1.0 && row.longitude == -1.0) {
      out += "\"\"";
    } else {
      // Single precision, then six decimals, as the phone app always wrote.
      char buffer[96];
      std::snprintf(buffer, sizeof buffer, "%f;%f", static_cast<double>(static_cast<float>(row.latitude)),
                    static_cast<double>(static_cast<float>(row.longitude)));
      appendField(out, buffer);
    }
    out += ',';
    if (row.comment) {
      std::string comment = *row.comment;
      std::replace(comment.begin(), comment.end(), '\n', ' ');
      appendField(out, comment);
    } else {
      out += "\"\"";
    }
    if (!names.empty()) {
      out += ',';
      std::fill(marks.begin(), marks.end(), 0);
      for (; link < rows.links.size() && rows.links[link].record == index; ++link) {
        marks[columnOfTag[rows.links[link].tag]] = 1;
      }
      for (char mark : marks) out += mark ? "1," : ",";
    }
    out += '\n';
  }
  return out;
}

std::variant<std::string, Error> MoodCSVExport::csvText(const std::filesystem::path& storeFile, Date from,
                                                        Date to) {
  auto rows = readJournalRows(storeFile, from, to);
  if (auto* error = std::get_if<Error>(&rows)) return *error;
  return csvText(std::get<JournalRows>(rows));
}

OptionalError MoodCSVExport::createCSV(const std::filesystem::path& url, std::optional<Date> from,
                                       std::optional<Date> to) {
  if (!from || !to) return std::nullopt;
  MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
  if (!app) return Error(kBackupErrorDomain, kBackupStoreUnreadable, "no journal is open");
  auto text = csvText(app->storeURL(), *from, *to);
  if (auto* error = std::get_if<Error>(&text)) return *error;
  return writeFileAtomically(url, std::get<std::string>(text), FileAccess::kUserDefault);
}

}  // namespace lumeo
