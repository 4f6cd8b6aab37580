// The CSV export: the records of a date range as one spreadsheet table, the
// eight fixed columns (date, day of week, hour, minute, level, level text,
// location, comment) and then one column per tag that occurs in the range,
// marked "1" where a record holds the tag. docs/backup.md shows the format
// byte by byte, with its quirks (the empty first line, the trailing comma of
// record lines that have tag cells, doubled backslashes), which spreadsheet
// users' own scripts rely on.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/date.h"
#include "platform/error.h"

namespace lumeo {

struct JournalRows;

class MoodCSVExport {
 public:
  // Writes the CSV of the saved records dated in [from, to] atomically at
  // `url` (readable like any file the user makes). Does nothing when either
  // date is missing. The journal file is the application's store; the
  // result is the error of reading it or of writing the file.
  [[nodiscard]] static OptionalError createCSV(const std::filesystem::path& url, std::optional<Date> from,
                                               std::optional<Date> to);

  // The same table as text, from the journal file `storeFile`.
  static std::variant<std::string, Error> csvText(const std::filesystem::path& storeFile, Date from, Date to);
  // The table of rows already read.
  static std::string csvText(const JournalRows& rows);

  // A field as the export writes it: each double quote doubled, then each
  // backslash doubled, all in double quotes.
  static std::string stringReplaceChar(std::string_view text);
};

}  // namespace lumeo
