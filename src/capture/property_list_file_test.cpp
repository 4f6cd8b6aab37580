// Property-list files as capture reads and writes them: every kind of value
// survives a round trip, damaged files give a named error, and writes are
// whole or nothing.
#include "capture/property_list_file.h"

#include <gtest/gtest.h>

#include "platform/atomic_file.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

TEST(PropertyListFile, RoundTripsEveryKindOfValue) {
  testing::TempDir dir;
  const Value value(Value::Dictionary{
      {"array", Value(Value::Array{Value(1), Value(-42), Value(2.5), Value(178.5), Value(1.0 / 3)})},
      {"bool", Value(true)},
      {"data", Value(Value::Data{0, 1, 2, 255})},
      {"date", Value(Date::fromTimeIntervalSince1970(1700000000))},
      {"nested", Value(Value::Dictionary{{"text", Value("сон & <tags>")}})},
      {"empty", Value(Value::Array{})},
  });
  ASSERT_FALSE(writePropertyListFile(dir / "all.plist", value));
  auto read = readPropertyListFile(dir / "all.plist");
  ASSERT_TRUE(std::holds_alternative<Value>(read)) << std::get<Error>(read).toString();
  const Value& back = std::get<Value>(read);
  EXPECT_EQ(back["bool"], Value(true));
  EXPECT_EQ(back["data"], value["data"]);
  EXPECT_EQ(back["date"], value["date"]);
  EXPECT_EQ(back["nested"]["text"], Value("сон & <tags>"));
  const Value::Array& numbers = *back["array"].asArray();
  EXPECT_EQ(numbers[1].toInt(), -42);
  EXPECT_EQ(numbers[3].toDouble(), 178.5);
  EXPECT_NEAR(numbers[4].toDouble(), 1.0 / 3, 1e-12);
  EXPECT_TRUE(back["empty"].asArray()->empty());
}

TEST(PropertyListFile, ErrorsNameTheirKind) {
  testing::TempDir dir;
  auto missing = readPropertyListFile(dir / "none.plist");
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kFileErrorDomain, kFileNotFound));
  for (const char* bad : {"", "just text", "<plist><array>", "\x00\x01\x02"}) {
    testing::writeFile(dir / "bad.plist", bad);
    auto result = readPropertyListFile(dir / "bad.plist");
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << bad;
    EXPECT_TRUE(std::get<Error>(result).is(kPropertyListErrorDomain, kPropertyListUnreadable)) << bad;
  }
  // A null cannot be written, and the old file stays as it was.
  ASSERT_FALSE(writePropertyListFile(dir / "keep.plist", Value(Value::Array{Value("old")})));
  auto error = writePropertyListFile(dir / "keep.plist", Value(Value::Array{Value("new"), Value()}));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kPropertyListErrorDomain, kPropertyListUnsupported));
  EXPECT_EQ(std::get<Value>(readPropertyListFile(dir / "keep.plist")), Value(Value::Array{Value("old")}));
}

}  // namespace
}  // namespace lumeo
