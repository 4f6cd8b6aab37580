// Checksums must match the MD5 that other tools compute, also for files
// read in several pieces, and a missing file has the empty checksum.
#include "platform/md5.h"

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

TEST(Md5, KnownVectorsAndFiles) {
  EXPECT_EQ(md5Hash(std::string_view("")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5Hash(std::string_view("abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5Hash(std::string_view("The quick brown fox jumps over the lazy dog")),
            "9e107d9d372bb6826bd81d3542a419d6");

  testing::TempDir dir;
  // Larger than one read buffer, with a tail, so the pieces must add up.
  std::string big;
  for (int i = 0; big.size() < 200000; ++i) big += std::to_string(i) + ",";
  testing::writeFile(dir / "big.bin", big);
  EXPECT_EQ(md5HashOfPath(dir / "big.bin"), md5Hash(big));
  testing::writeFile(dir / "empty.bin", "");
  EXPECT_EQ(md5HashOfPath(dir / "empty.bin"), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5HashOfPath(dir / "missing.jpg"), "");
  EXPECT_EQ(md5HashOfPath(dir.path()), "");
}

}  // namespace
}  // namespace lumeo
