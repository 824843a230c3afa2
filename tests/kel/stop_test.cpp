#include "kel/stop.h"

#include <gtest/gtest.h>

#include "kel/dirs.h"
#include "kel/filecopy.h"
#include "kel/filepolicy.h"
#include "kel/gzip.h"
#include "kel/textcipher.h"
#include "kel/wildcard.h"
#include "tempdir.h"

namespace kel {
namespace {

class StopTest : public TempDirTest {};

TEST_F(StopTest, EndsLongWorkAndLeavesNothingHalfDone) {
  const std::string large(200'000, 'a');
  Put("file", large);
  const FilePolicy policy;
  const Place from = policy.Find("file", Access::Read);
  const Place to = policy.Find("new", Access::Write);
  std::string text;
  uint64_t count = 0;
  const std::atomic<uint32_t> asked{1};
  const StopWord stops(&asked);
  EXPECT_EQ(Md5OfFile(from, text), FileStatus::Ok) << "what may not be left is not";
  const Interruptible interruptible(true);
  EXPECT_THROW(Md5OfFile(from, text), Interrupted);
  EXPECT_THROW(CopyFile(from, to, false), Interrupted);
  EXPECT_THROW(CompressFile(from, to, count), Interrupted);
  EXPECT_THROW(TreeSize(policy, policy.Find(".", Access::Read), count), Interrupted);
  EXPECT_THROW(DesSeal(large, "password"), Interrupted);
  EXPECT_THROW(WildcardMatch(large, "*b", true), Interrupted);
  namespace fs = std::filesystem;
  EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace kel
