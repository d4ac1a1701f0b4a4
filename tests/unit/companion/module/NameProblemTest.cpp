#include <gtest/gtest.h>

#include <string>

#include "companion/module/NameProblem.h"

namespace companion {
namespace {

TEST(NameProblemTest, NamesOfNodesHaveNone) {
  EXPECT_EQ(NameProblem("i2c-4"), "");
  EXPECT_EQ(NameProblem("spidev4.0"), "");
  EXPECT_EQ(NameProblem(" ...\x80\xff"), "");
}

TEST(NameProblemTest, EmptyName) { EXPECT_EQ(NameProblem(""), "is empty"); }

TEST(NameProblemTest, NameOf255BytesIsTheLongest) {
  EXPECT_EQ(NameProblem(std::string(255, 'a')), "");
  EXPECT_EQ(NameProblem(std::string(256, 'a')), "is longer than 255 bytes");
}

TEST(NameProblemTest, SlashAtAnyPlace) {
  EXPECT_EQ(NameProblem("/etc"), "has a '/'");
  EXPECT_EQ(NameProblem("../mem"), "has a '/'");
  EXPECT_EQ(NameProblem("a/"), "has a '/'");
}

TEST(NameProblemTest, ControlCharacters) {
  EXPECT_EQ(NameProblem("i2c\n4"), "has a control character");
  EXPECT_EQ(NameProblem("\x1b[2J"), "has a control character");
  EXPECT_EQ(NameProblem(std::string("a\0b", 3)), "has a control character");
  EXPECT_EQ(NameProblem("a\x7f"), "has a control character");
  EXPECT_EQ(NameProblem("a\x1f"), "has a control character");
}

TEST(NameProblemTest, FoldersOfTheirOwn) {
  EXPECT_EQ(NameProblem("."), "is a folder");
  EXPECT_EQ(NameProblem(".."), "is a folder");
}

}  // namespace
}  // namespace companion
