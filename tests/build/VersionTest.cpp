#include <gtest/gtest.h>

#include "base/Version.h"

namespace {

TEST(VersionTest, IsTheOneOfTheProject) { EXPECT_STREQ(orvane::kVersion, TARNWICK_VERSION); }

}  // namespace
