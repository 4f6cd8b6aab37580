// All-or-nothing writes: the old contents stand after a failed write and no
// temporary file is ever left beside the target.
#include "platform/atomic_file.h"

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

std::size_t filesIn(const std::filesystem::path& folder) {
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++n;
  return n;
}

TEST(AtomicFile, WritesReplacesAndReadsBack) {
  testing::TempDir dir;
  const auto path = dir / "table.plist";
  ASSERT_FALSE(writeFileAtomically(path, std::string_view("first")));
  ASSERT_FALSE(writeFileAtomically(path, std::string_view("second, longer")));
  auto bytes = readFileBytes(path);
  ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(bytes));
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  EXPECT_EQ(std::string(data.begin(), data.end()), "second, longer");
  EXPECT_EQ(filesIn(dir.path()), 1u);
  // Empty files are files too.
  ASSERT_FALSE(writeFileAtomically(path, std::vector<std::uint8_t>{}));
  EXPECT_TRUE(std::get<std::vector<std::uint8_t>>(readFileBytes(path)).empty());
}

TEST(AtomicFile, FailuresNameTheirKindAndLeaveNothingBehind) {
  testing::TempDir dir;
  auto missing = readFileBytes(dir / "nothing-here");
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kFileErrorDomain, kFileNotFound));

  auto folder = readFileBytes(dir.path());
  ASSERT_TRUE(std::holds_alternative<Error>(folder));
  EXPECT_TRUE(std::get<Error>(folder).is(kFileErrorDomain, kFileReadFailed));

  auto noFolder = writeFileAtomically(dir / "no" / "such" / "file", std::string_view("x"));
  ASSERT_TRUE(noFolder);
  EXPECT_TRUE(noFolder->is(kFileErrorDomain, kFileWriteFailed));

  // A folder in the way: the rename fails after the data was written, and
  // the temporary copy must go.
  std::filesystem::create_directory(dir / "occupied");
  testing::writeFile(dir / "occupied" / "keep", "kept");
  auto blocked = writeFileAtomically(dir / "occupied", std::string_view("data"));
  ASSERT_TRUE(blocked);
  EXPECT_TRUE(blocked->is(kFileErrorDomain, kFileWriteFailed));
  EXPECT_EQ(filesIn(dir.path()), 1u);
  EXPECT_EQ(testing::readFile(dir / "occupied" / "keep"), "kept");
}

}  // namespace
}  // namespace lumeo
