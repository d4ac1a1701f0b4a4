#include <fcntl.h>
#include <gtest/gtest.h>

#include "simulator/host/OpenFlags.h"

namespace orvane {
namespace {

TEST(OpenFlagsTest, AccessIsNamed) {
  EXPECT_EQ(OpenFlagsText(O_RDONLY, 0), "O_RDONLY");
  EXPECT_EQ(OpenFlagsText(O_WRONLY, 0), "O_WRONLY");
  EXPECT_EQ(OpenFlagsText(O_RDWR, 0), "O_RDWR");
  EXPECT_EQ(OpenFlagsText(O_ACCMODE, 0), "O_ACCMODE");
}

TEST(OpenFlagsTest, ModeCountsOnlyWithCreate) {
  EXPECT_EQ(OpenFlagsText(O_WRONLY | O_CREAT, 0600), "O_WRONLY|O_CREAT 0600");
  EXPECT_EQ(OpenFlagsText(O_WRONLY, 0600), "O_WRONLY");
}

TEST(OpenFlagsTest, SyncAndItsPartAreApart) {
  EXPECT_EQ(OpenFlagsText(O_RDONLY | O_SYNC, 0), "O_RDONLY|O_SYNC");
  EXPECT_EQ(OpenFlagsText(O_RDONLY | O_DSYNC, 0), "O_RDONLY|O_DSYNC");
}

TEST(OpenFlagsTest, SeveralFlagsStandInAFixedOrder) {
  EXPECT_EQ(OpenFlagsText(O_CLOEXEC | O_TRUNC | O_EXCL | O_CREAT | O_RDWR, 0666),
            "O_RDWR|O_CREAT|O_EXCL|O_TRUNC|O_CLOEXEC 0666");
}

TEST(OpenFlagsTest, LargeFileSaysNothing) { EXPECT_EQ(OpenFlagsText(0100000, 0), "O_RDONLY"); }

TEST(OpenFlagsTest, UnknownFlagsAreANumber) {
  EXPECT_EQ(OpenFlagsText(O_RDONLY | O_ASYNC, 0), "O_RDONLY|0x2000");
}

}  // namespace
}  // namespace orvane
