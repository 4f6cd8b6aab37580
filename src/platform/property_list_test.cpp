// The property-list codec: every kind of value survives a round trip
// exactly (dates to the last bit, in every year the text form has), damaged
// or hostile files give a named error, and what cannot come back as it went
// is refused before anything is written.
#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

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
      {"old", Value(Date::fromTimeIntervalSince1970(-3e9))},
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
  EXPECT_EQ(back["old"], value["old"]);
  EXPECT_EQ(back["nested"]["text"], Value("сон & <tags>"));
  const Value::Array& numbers = *back["array"].asArray();
  EXPECT_EQ(numbers[1].toInt(), -42);
  EXPECT_EQ(numbers[3].toDouble(), 178.5);
  EXPECT_EQ(numbers[4].toDouble(), 1.0 / 3);
  EXPECT_EQ(numbers[0].type(), Value::Type::kInteger);
  EXPECT_EQ(numbers[2].type(), Value::Type::kReal);
  EXPECT_TRUE(back["empty"].asArray()->empty());
}

TEST(PropertyListFile, ErrorsNameTheirKind) {
  testing::TempDir dir;
  auto missing = readPropertyListFile(dir / "none.plist");
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kFileErrorDomain, kFileNotFound));
  for (const char* bad :
       {"", "just text", "<plist><array>", "\x00\x01\x02", "bplist00\xd1\x01\x02",
        "<plist><dict><string>no key</string></dict></plist>", "<plist><integer>12x</integer></plist>",
        "<plist><date>2026-02-30T00:00:00Z</date></plist>", "<plist><string>&bogus;</string></plist>",
        "<plist><string>\xff</string></plist>", "<plist><integer>99999999999999999999</integer></plist>",
        "<plist><array/></plist><array/>", "<plist><data>!!!</data></plist>"}) {
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

Date dateOf(int year, int month, int day, int hour, int minute, double second) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", year, month, day, hour, minute,
                static_cast<int>(second));
  return parsePropertyListDate(text).value().dateByAddingTimeInterval(second - static_cast<int>(second));
}

Value throughText(const Value& value) {
  auto xml = xmlPropertyList(value);
  EXPECT_TRUE(std::holds_alternative<std::string>(xml)) << std::get<Error>(xml).toString();
  auto back = parsePropertyList(std::get<std::string>(xml));
  EXPECT_TRUE(std::holds_alternative<Value>(back)) << std::get<Error>(back).toString();
  return std::get<Value>(back);
}

// Dates are written as text, so every year from 0000 to 9999 is kept, also
// the years before 1932 and after 2069 that 32-bit seconds from 2001 miss.
TEST(PropertyListDates, KeepEveryYearOfTheTextForm) {
  EXPECT_EQ(propertyListDateText(Date::fromTimeIntervalSince1970(0)), "1970-01-01T00:00:00Z");
  EXPECT_EQ(propertyListDateText(Date::fromTimeIntervalSinceReferenceDate(0.75)), "2001-01-01T00:00:00Z");
  EXPECT_EQ(propertyListDateText(Date::fromTimeIntervalSince1970(-0.5)), "1969-12-31T23:59:59Z")
      << "cut towards the past";
  EXPECT_EQ(propertyListDateText(dateOf(2100, 2, 28, 23, 59, 59)), "2100-02-28T23:59:59Z");
  EXPECT_EQ(propertyListDateText(dateOf(2000, 2, 29, 12, 0, 0)), "2000-02-29T12:00:00Z");
  EXPECT_EQ(parsePropertyListDate("2001-01-01T00:00:00.25Z"), Date::fromTimeIntervalSinceReferenceDate(0.25));

  const Date ends[] = {
      dateOf(0, 1, 1, 0, 0, 0),      dateOf(1900, 1, 1, 0, 0, 0),  dateOf(1932, 12, 13, 20, 45, 51),
      dateOf(2069, 1, 19, 3, 14, 8), dateOf(2100, 6, 1, 8, 30, 0), dateOf(9999, 12, 31, 23, 59, 59),
      Date::distantPast(),           Date::distantFuture()};
  for (const Date& date : ends) {
    SCOPED_TRACE(propertyListDateText(date).value_or("none"));
    EXPECT_EQ(throughText(Value(date)), Value(date));
  }
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> seconds(-6e10, 2.5e11);
  for (int i = 0; i < 2000; ++i) {
    const Date date = Date::fromTimeIntervalSince1970(seconds(random));
    ASSERT_EQ(parsePropertyListDate(propertyListDateText(date).value()),
              Date::fromTimeIntervalSince1970(std::floor(date.timeIntervalSince1970())))
        << propertyListDateText(date).value();
  }

  // Outside the four-digit years nothing is written.
  for (const Date& date : {Date::fromTimeIntervalSince1970(-62167219201.0),
                           dateOf(9999, 12, 31, 23, 59, 59).dateByAddingTimeInterval(1)}) {
    EXPECT_FALSE(propertyListDateText(date));
    auto error = checkPropertyListValue(Value(Value::Dictionary{{"d", Value(date)}}));
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(kPropertyListErrorDomain, kPropertyListUnsupported));
  }
  for (const char* bad :
       {"2026-11-23T10:00:00", "2026-11-23 10:00:00Z", "2026-13-01T00:00:00Z", "2026-11-23T24:00:00Z",
        "2025-02-29T00:00:00Z", "2026-11-23T10:00:00.Z", "+2026-11-23T10:00:00Z"}) {
    EXPECT_FALSE(parsePropertyListDate(bad)) << bad;
  }
}

TEST(PropertyListText, ReadsWhatOtherWritersProduce) {
  // Written by earlier versions of Lumeo and by other tools:
  // comments, a document type, entities, CDATA, wrapped data, negative
  // integers as their unsigned pattern, whole-second dates.
  const std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<!-- kept by hand -->
<plist version="1.0">
<dict>
	<key>negative</key>
	<integer>18446744073709551574</integer>
	<key>minus</key>
	<integer>-7</integer>
	<key>text</key>
	<string>a &amp; b &lt;c&gt; &#233;&#x263A; <![CDATA[<raw>]]></string>
	<key>data</key>
	<data>
	AAEC
	/w==
	</data>
	<key>when</key>
	<date>2069-01-19T03:14:08Z</date>
	<key>real</key>
	<real>-1.5e3</real>
	<key>empty</key>
	<string/>
	<key>no</key>
	<false/>
</dict>
</plist>
)";
  auto read = parsePropertyList(xml);
  ASSERT_TRUE(std::holds_alternative<Value>(read)) << std::get<Error>(read).toString();
  const Value& v = std::get<Value>(read);
  EXPECT_EQ(v["negative"].toInt(), -42);
  EXPECT_EQ(v["minus"].toInt(), -7);
  EXPECT_EQ(v["text"], Value("a & b <c> \u00e9\u263a <raw>"));
  EXPECT_EQ(v["data"], Value(Value::Data{0, 1, 2, 255}));
  EXPECT_EQ(v["when"], Value(dateOf(2069, 1, 19, 3, 14, 8)));
  EXPECT_EQ(v["real"].toDouble(), -1500);
  EXPECT_EQ(v["empty"], Value(""));
  EXPECT_EQ(v["no"], Value(false));
  // And what is read is written back so that it reads the same.
  EXPECT_EQ(throughText(v), v);
}

TEST(PropertyListText, KeepsTextThatXMLWouldChange) {
  const Value text(Value::Array{Value("line\r\nbreak\ttab"), Value("]]> & </string>"), Value("  spaces  ")});
  EXPECT_EQ(throughText(text), text);
  auto control = checkPropertyListValue(Value(Value::Array{Value(std::string("bell\x07"))}));
  ASSERT_TRUE(control);
  EXPECT_TRUE(control->is(kPropertyListErrorDomain, kPropertyListUnsupported));
  auto badKey = checkPropertyListValue(Value(Value::Dictionary{{"\xc3", Value(1)}}));
  ASSERT_TRUE(badKey);
  auto nan = checkPropertyListValue(Value(std::nan("")));
  ASSERT_TRUE(nan);
  EXPECT_TRUE(nan->is(kPropertyListErrorDomain, kPropertyListUnsupported));
}

// A damaged file may nest a million containers; reading it must fail, not
// overflow the stack. Writing refuses the same depth.
TEST(PropertyListText, RefusesNestingDeeperThanTheLimit) {
  auto nested = [](int depth) {
    std::string xml = "<plist>";
    for (int i = 0; i < depth; ++i) xml += "<array>";
    for (int i = 0; i < depth; ++i) xml += "</array>";
    return xml + "</plist>";
  };
  EXPECT_TRUE(std::holds_alternative<Value>(parsePropertyList(nested(kPropertyListMaxNesting))));
  auto deep = parsePropertyList(nested(kPropertyListMaxNesting + 1));
  ASSERT_TRUE(std::holds_alternative<Error>(deep));
  EXPECT_TRUE(std::get<Error>(deep).is(kPropertyListErrorDomain, kPropertyListUnreadable));
  EXPECT_TRUE(std::holds_alternative<Error>(parsePropertyList(std::string(1000000, '<'))));
  EXPECT_TRUE(std::holds_alternative<Error>(parsePropertyList(nested(1000000))));

  Value value{Value::Array{}};
  for (int i = 0; i < kPropertyListMaxNesting; ++i) value = Value(Value::Array{value});
  auto error = checkPropertyListValue(value);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kPropertyListErrorDomain, kPropertyListUnsupported));
}

}  // namespace
}  // namespace lumeo
