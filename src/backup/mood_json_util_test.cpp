// The backup documents' text: the record layout with its optional keys and
// its 12-hour dates, the escaping that makes every byte of a comment come
// back, and the parser's leniency towards documents written without it.
#include "backup/mood_json_util.h"

#include <gtest/gtest.h>

#include "backup/backup_journal_reader.h"
#include "backup/backup_test_support.h"
#include "platform/user_defaults.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::addRecord;

class JsonDocumentTest : public ::testing::Test {
 protected:
  JsonDocumentTest()
      : env_({{"TZ", "UTC"}}),
        store_(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
               std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())) {}
  testing::TempDir dir_;
  testing::ScopedEnvironment env_;
  JournalStore store_;
};

TEST_F(JsonDocumentTest, RecordsKeepThePhoneLayoutWithTheirOptionalKeys) {
  EXPECT_EQ(MoodJSONUtil::jsonCreateFile(store_), "[]");
  // 2026-03-02 00:05:09 UTC and 13:00:00.
  auto early = addRecord(store_, {.level = 7, .date = Date::fromTimeIntervalSince1970(1772409909.0)});
  auto late = addRecord(store_, {.level = 3,
                                 .date = Date::fromTimeIntervalSince1970(1772456400.25),
                                 .comment = "line\nquote\" back\\ tab\t",
                                 .tags = {"sleep"},
                                 .latitude = 55.755831,
                                 .longitude = -1,
                                 .tagUnit = "h"});
  EXPECT_EQ(MoodJSONUtil::jsonRecord(*early),
            "{\"date\":\"2026-03-02 12:05:09 AM\",\"moodLevel\":7,\"moodDescription\":{\"wasEdited\":0},"
            "\"timestamp\":1772409909}");
  EXPECT_EQ(
      MoodJSONUtil::jsonRecord(*late),
      "{\"date\":\"2026-03-02 01:00:00 "
      "PM\",\"moodLevel\":3,\"moodDescription\":{\"comment\":\"line\\nquote\\\" "
      "back\\\\ tab\\t\",\"latitude\":\"55.755831\",\"wasEdited\":0},\"moodTags\":[{\"tagName\":\"sleep\","
      "\"frequency\":0,\"cachedLevelSum\":3,\"tagUnit\":\"h\"}],\"timestamp\":1772456400.25}");
  EXPECT_EQ(MoodJSONUtil::jsonDescription(nullptr), "");
}

TEST(JsonTextTest, EveryByteOfAStringComesBackThroughTheParser) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  all += "😀 \\n \\u0041 \"";
  const std::string document = "[\"" + escapeJSONString(all) + "\"]";
  for (unsigned char c : escapeJSONString(all)) EXPECT_GE(c, 0x20) << "raw control character in the text";
  auto parsed = parseLenientJSON(document);
  ASSERT_TRUE(std::holds_alternative<Value>(parsed));
  EXPECT_EQ(std::get<Value>(parsed), Value(Value::Array{Value(all)}));
}

TEST(JsonTextTest, TheParserTakesLooseStringsButNotLooseStructure) {
  auto parse = [](const std::string& text) { return parseLenientJSON(text); };
  // Raw control characters and unknown escapes, as written by a writer that
  // escaped nothing; a UTF-16 pair; a byte-order mark in front.
  auto loose = parse("\xEF\xBB\xBF{\"a\":\"tab\there\nnext \\q \\u00e9 \\ud83d\\ude00 \\uzzzz\"}");
  ASSERT_TRUE(std::holds_alternative<Value>(loose));
  EXPECT_EQ(std::get<Value>(loose)["a"], Value("tab\there\nnext \\q \xC3\xA9 \xF0\x9F\x98\x80 \\uzzzz"));
  // Numbers keep integer and real apart.
  auto numbers = parse("[1, -2, 3.5, 1e3]");
  ASSERT_TRUE(std::holds_alternative<Value>(numbers));
  const auto& array = *std::get<Value>(numbers).asArray();
  EXPECT_EQ(array[0].type(), Value::Type::kInteger);
  EXPECT_EQ(array[2].type(), Value::Type::kReal);
  EXPECT_DOUBLE_EQ(array[3].toDouble(), 1000);
  for (const std::string bad :
       {"", "[", "[1,]", "{\"a\" 1}", "[1] x", "\"open", "[01x]", "{'a':1}", "[nul]"}) {
    auto result = parse(bad);
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << bad;
    EXPECT_TRUE(std::get<Error>(result).is(kBackupErrorDomain, kBackupDocumentUnreadable)) << bad;
  }
  // Nesting is bounded, so a hostile document cannot exhaust the stack.
  EXPECT_TRUE(std::holds_alternative<Error>(parse(std::string(100000, '['))));
  EXPECT_TRUE(std::holds_alternative<Value>(parse(std::string(200, '[') + std::string(200, ']'))));
}

TEST(JsonTextTest, SettingsDocumentsReadBackAndRefuseWrongShapes) {
  auto colors = MoodJSONUtil::jsonColorsFile(Color(0.1, 0.2, 0.3), Color(1, 0.5, 0), Color(0, 0, 1));
  ASSERT_TRUE(std::holds_alternative<std::string>(colors));
  auto back = MoodJSONUtil::restoreColorsFromJSON(std::get<std::string>(colors));
  ASSERT_TRUE((std::holds_alternative<std::array<Color, 3>>(back)));
  EXPECT_FLOAT_EQ(static_cast<float>(std::get<std::array<Color, 3>>(back)[0].green), 0.2f);
  auto table = MoodJSONUtil::restoreBackupMoodsFromJSON(
      MoodJSONUtil::jsonMoodsFile({Value(Value::Dictionary{{"text", Value("Top")}, {"alpha", Value(0.5)}})}));
  ASSERT_TRUE(std::holds_alternative<Value::Array>(table));
  EXPECT_EQ(std::get<Value::Array>(table)[0]["alpha"].type(), Value::Type::kReal);
  EXPECT_TRUE(std::holds_alternative<Error>(MoodJSONUtil::restoreBackupMoodsFromJSON("{\"text\":1}")));
  EXPECT_TRUE(std::holds_alternative<Error>(MoodJSONUtil::restoreColorsFromJSON("<plist><array/></plist>")));
  EXPECT_TRUE(std::holds_alternative<Error>(MoodJSONUtil::restoreRemindersFile("[]")));
}

}  // namespace
}  // namespace lumeo
