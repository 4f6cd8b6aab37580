// printf-style formats with "%@": every value kind the journal formats, the
// printf conversions its file names and messages use, and clear failures.
#include "platform/string_format.h"

#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {
namespace {

TEST(StringFormat, ObjectConversionTakesAnyValue) {
  EXPECT_EQ(stringWithFormat("%@_%@.backup%@", "Pixel", std::string("2024-03-01"), ""),
            "Pixel_2024-03-01.backup");
  EXPECT_EQ(stringWithFormat("%@ %@ %@", 8, 8.5, true), "8 8.5 true");
  EXPECT_EQ(stringWithFormat("%@", Error("SyncErrorDomain", 106, "Timed out")),
            "SyncErrorDomain 106: Timed out");
  EXPECT_EQ(stringWithFormat("%@", Date::fromTimeIntervalSince1970(1709281800.25)),
            "2024-03-01T08:30:00.250Z");
  EXPECT_EQ(stringWithFormat("%@", std::filesystem::path("/tmp/a b")), "/tmp/a b");
  EXPECT_EQ(stringWithFormat("%@", Value("sleep")), "sleep");
}

TEST(StringFormat, PrintfConversionsAsTheJournalUsesThem) {
  EXPECT_EQ(stringWithFormat("%08x%08x%08x.jpg", 0xabcu, 1u, 0xffffffffu), "00000abc00000001ffffffff.jpg");
  EXPECT_EQ(stringWithFormat("%ld records, %lu tags, %lld ms", 3L, 4UL, 5LL), "3 records, 4 tags, 5 ms");
  EXPECT_EQ(stringWithFormat("%.1f%%", 72.25), "72.2%");
  EXPECT_EQ(stringWithFormat("%2$@ before %1$@", "a", "b"), "b before a");
  EXPECT_EQ(stringWithFormat("[%-6@]", "ab"), "[ab    ]");
  EXPECT_EQ(stringWithFormat("no conversions, 100%%"), "no conversions, 100%");
}

TEST(StringFormat, FormatsThatDoNotFitTheirArgumentsThrow) {
  EXPECT_THROW(stringWithFormat("%@ and %@", "one"), FormatError);
  EXPECT_THROW(stringWithFormat("%d", "text"), FormatError);
  try {
    stringWithFormat("Restore %@ from %@", "backup");
    FAIL() << "a missing argument must throw";
  } catch (const FormatError& e) {
    EXPECT_NE(std::string(e.what()).find("Restore %@ from %@"), std::string::npos) << "names the format";
  }
}

}  // namespace
}  // namespace lumeo
