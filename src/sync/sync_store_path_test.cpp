// Store path matching: the same file through other spellings and links,
// and a remembered answer that does not go stale within one path.
#include "sync/sync_store_path.h"

#include <gtest/gtest.h>

#include <fstream>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

namespace fs = std::filesystem;

TEST(SyncStorePathTest, MatchesTheSameFileHoweverItIsNamedAndNothingElse) {
  testing::TempDir dir;
  fs::create_directories(dir / "Library");
  std::ofstream(dir / "Library/Model.sqlite") << "x";
  fs::create_directory_symlink(dir / "Library", dir / "linked");
  SyncStorePathMatch journal(dir / "Library/Model.sqlite");

  EXPECT_TRUE(journal.matches(dir / "Library/Model.sqlite"));
  EXPECT_TRUE(journal.matches(dir / "Library/../Library/./Model.sqlite"));
  EXPECT_TRUE(journal.matches(dir / "linked/Model.sqlite"));
  EXPECT_FALSE(journal.matches(dir / "Library/Other.sqlite"));
  EXPECT_FALSE(journal.matches(dir / "Library"));
  // Asked again, the same answers, now from memory.
  EXPECT_TRUE(journal.matches(dir / "linked/Model.sqlite"));
  EXPECT_FALSE(journal.matches(dir / "Library/Other.sqlite"));
  // More paths than it remembers: it starts over and stays right.
  for (int i = 0; i < 200; ++i)
    EXPECT_FALSE(journal.matches(dir / ("other" + std::to_string(i) + ".sqlite")));
  EXPECT_TRUE(journal.matches(dir / "linked/Model.sqlite"));

  // A store that does not exist yet resolves as far as its folders exist.
  SyncStorePathMatch fresh(dir / "linked/New.sqlite");
  EXPECT_TRUE(fresh.matches(dir / "Library/New.sqlite"));
  EXPECT_EQ(fresh.path(), fs::weakly_canonical(dir / "Library/New.sqlite"));
}

}  // namespace
}  // namespace lumeo
