// The CSV export on a real journal file: the exact bytes of its quirks, and
// the table as Python's csv module reads it back (quotes, commas, line
// breaks and backslashes in comments, tag columns of a range).
#include "backup/mood_csv_export.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "backup/backup_journal_reader.h"
#include "backup/backup_test_support.h"
#include "platform/atomic_file.h"
#include "platform/date_formatter.h"
#include "platform/user_defaults.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::addRecord;
using testing::RecordSpec;

Date at(int day, int hour, int minute = 0) {
  // 2026-03-02 00:00 UTC plus whole days and hours.
  return Date::fromTimeIntervalSince1970(1772409600.0 + day * 86400.0 + hour * 3600.0 + minute * 60.0);
}

class CsvExportTest : public ::testing::Test {
 protected:
  CsvExportTest()
      : env_({{"TZ", "UTC"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}}),
        store_(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
               std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {}

  std::string csv(Date from, Date to) {
    store_.saveContext();
    auto text = MoodCSVExport::csvText(store_.storeURL(), from, to);
    EXPECT_TRUE(std::holds_alternative<std::string>(text));
    return std::holds_alternative<std::string>(text) ? std::get<std::string>(text) : "";
  }

  // The rows as Python's csv module reads the file.
  nlohmann::json parsedByPython(const std::string& text) {
    auto file = dir_ / "export.csv";
    testing::writeFile(file, text);
    auto out = dir_ / "rows.json";
    std::string command =
        "python3 -c 'import csv, json, sys\n"
        "with open(sys.argv[1], newline=\"\", encoding=\"utf-8-sig\") as f:\n"
        "    rows = list(csv.reader(f))\n"
        "json.dump(rows, open(sys.argv[2], \"w\"))' " +
        file.string() + " " + out.string();
    EXPECT_EQ(testing::runCommand(command), 0);
    return nlohmann::json::parse(testing::readFile(out));
  }

  testing::TempDir dir_;
  testing::ScopedEnvironment env_;
  JournalStore store_;
};

TEST_F(CsvExportTest, AnEmptyRangeGivesTheByteOrderMarkAnEmptyLineAndTheEightLabels) {
  addRecord(store_, {.level = 7, .date = at(10, 9), .tags = {"sleep"}});
  const std::string text = csv(at(0, 0), at(1, 0));
  EXPECT_EQ(
      text,
      "\xEF\xBB\xBF\n\"Date\",\"Day of week\",\"Hour\",\"Minute\",\"Level\",\"Level text\",\"Location\","
      "\"Comment\"\n");
}

TEST_F(CsvExportTest, RecordFieldsKeepTheirQuirks) {
  addRecord(store_, {.level = 7, .date = at(1, 0, 5), .comment = "one \\ backslash"});
  addRecord(store_, {.level = 2, .date = at(1, 13, 0), .latitude = 55.755831, .longitude = 37.617673});
  addRecord(store_, {.level = 5, .date = at(1, 14, 0), .latitude = -1.0, .longitude = 30.0});
  const std::string text = csv(at(0, 0), at(5, 0));
  DateFormatter medium;
  medium.setDateStyle(DateFormatter::Style::kMedium);
  const std::string day = medium.stringFromDate(at(1, 0));
  // No tag in the range: a line ends after the quoted comment. The
  // backslash is doubled, the level quoted, the place single-precision.
  EXPECT_NE(text.find("\"" + day + "\",\"Tue\",\"00\",\"05\",\"7\",\"Fine\",\"\",\"one \\\\ backslash\"\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\"13\",\"00\",\"2\",\"Awful\",\"55.755833;37.617672\",\"\"\n"), std::string::npos)
      << text;
  // Only (-1, -1) means "nowhere".
  EXPECT_NE(text.find("\"-1.000000;30.000000\""), std::string::npos) << text;
}

TEST_F(CsvExportTest, PythonReadsBackCommentsAndOneColumnPerTagOfTheRange) {
  const std::string awkward = "she said \"no, thanks\"\r\nthen, \\n left\nüber 😀 שלום";
  addRecord(store_, {.level = 8, .date = at(2, 9), .comment = awkward, .tags = {"Work", "sleep"}});
  addRecord(store_, {.level = 3, .date = at(2, 10), .comment = "#work", .tags = {"work"}});
  addRecord(store_, {.level = 6, .date = at(3, 10)});
  // Only outside the range: no column.
  addRecord(store_, {.level = 4, .date = at(20, 10), .tags = {"outside"}});
  // "Work" and "work" are one stored tag (the store folds case), so this
  // makes one column under the first spelling.
  const std::string text = csv(at(0, 0), at(10, 0));
  auto rows = parsedByPython(text);
  ASSERT_EQ(rows.size(), 5u) << text;
  EXPECT_EQ(rows[0], nlohmann::json::array());
  const auto& header = rows[1];
  ASSERT_EQ(header.size(), 10u) << header.dump();
  EXPECT_EQ(header[8], "sleep");
  EXPECT_EQ(header[9], "Work");
  // A record line has one more (empty) field than the header.
  ASSERT_EQ(rows[2].size(), 11u);
  std::string expected = awkward;
  for (auto& c : expected) c = c == '\n' ? ' ' : c;
  std::string doubled;
  for (char c : expected) doubled += c == '\\' ? std::string("\\\\") : std::string(1, c);
  EXPECT_EQ(rows[2][7], doubled);
  EXPECT_EQ(rows[2][4], "8");
  EXPECT_EQ(rows[2][8], "1");
  EXPECT_EQ(rows[2][9], "1");
  EXPECT_EQ(rows[2][10], "");
  EXPECT_EQ(rows[3][8], "");
  EXPECT_EQ(rows[3][9], "1");
  EXPECT_EQ(rows[4][8], "");
  EXPECT_EQ(rows[4][9], "");
  EXPECT_EQ(text.find("outside"), std::string::npos);
}

TEST_F(CsvExportTest, TagsThatDifferOnlyInCaseInSeparateTagRowsMakeTwoColumns) {
  // Another device may have synced in a second spelling as its own tag.
  addRecord(store_, {.level = 8, .date = at(2, 9), .tags = {"Run"}});
  auto other = store_.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
  other->setTagName("run");
  auto record = addRecord(store_, {.level = 3, .date = at(2, 10)});
  record->addMoodTagsObject(other);
  auto rows = parsedByPython(csv(at(0, 0), at(10, 0)));
  ASSERT_EQ(rows.size(), 4u);
  ASSERT_EQ(rows[1].size(), 10u);
  EXPECT_EQ(rows[1][8], "Run");
  EXPECT_EQ(rows[1][9], "run");
  EXPECT_EQ(rows[2][8], "1");
  EXPECT_EQ(rows[2][9], "");
  EXPECT_EQ(rows[3][8], "");
  EXPECT_EQ(rows[3][9], "1");
}

TEST_F(CsvExportTest, AFileThatIsNoJournalIsAnErrorAndNothingIsWritten) {
  auto bogus = dir_ / "bogus.sqlite";
  testing::writeFile(bogus, "not a database at all, but long enough to be read as a header........");
  auto text = MoodCSVExport::csvText(bogus, Date::distantPast(), Date::distantFuture());
  ASSERT_TRUE(std::holds_alternative<Error>(text));
  EXPECT_TRUE(std::get<Error>(text).is(kBackupErrorDomain, kBackupStoreUnreadable));
  auto missing = MoodCSVExport::csvText(dir_ / "none.sqlite", Date::distantPast(), Date::distantFuture());
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
}

}  // namespace
}  // namespace lumeo
