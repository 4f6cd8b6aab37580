// The suggestion word list: installed once, never over the user's copy, and
// trimmed when a tag is deleted.
#include "capture/emotions_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

TEST(EmotionsList, InstalledOnceThenTheUsersOwn) {
  testing::TempDir library;
  EXPECT_TRUE(readEmotionsList(library.path()).empty());
  ASSERT_FALSE(installEmotionsListIfMissing(library.path()));
  const auto shipped = readEmotionsList(library.path());
  ASSERT_GE(shipped.size(), 90u);
  EXPECT_NE(std::find(shipped.begin(), shipped.end(), "happy"), shipped.end());

  EXPECT_TRUE(removeTagFromEmotionsList(library.path(), "happy"));
  EXPECT_FALSE(removeTagFromEmotionsList(library.path(), "happy"));
  EXPECT_FALSE(removeTagFromEmotionsList(library.path(), "Calm"));  // exact spelling only
  const auto trimmed = readEmotionsList(library.path());
  EXPECT_EQ(trimmed.size(), shipped.size() - 1);
  EXPECT_EQ(std::find(trimmed.begin(), trimmed.end(), "happy"), trimmed.end());

  // A later launch leaves the user's list alone, even a damaged one.
  ASSERT_FALSE(installEmotionsListIfMissing(library.path()));
  EXPECT_EQ(readEmotionsList(library.path()), trimmed);
  testing::writeFile(library / "emotions.plist", "garbage");
  ASSERT_FALSE(installEmotionsListIfMissing(library.path()));
  EXPECT_TRUE(readEmotionsList(library.path()).empty());
  EXPECT_FALSE(removeTagFromEmotionsList(library.path(), "sad"));
  EXPECT_EQ(testing::readFile(library / "emotions.plist"), "garbage");
}

}  // namespace
}  // namespace lumeo
