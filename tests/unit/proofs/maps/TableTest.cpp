#include <gtest/gtest.h>

#include "proofs/maps/Table.h"

namespace maps {
namespace {

Row Make(const char* event, const char* what, const char* exit) {
  return {
      .target = "dax", .step = "erase", .event = event, .what = what, .outcome = {exit, "line"}};
}

constexpr const char* kHeader =
    "| step | event | what goes wrong | exit | last line | chips | runs |\n"
    "|---|---|---|---|---|---|---|\n";

class TableTest : public testing::Test {
 protected:
  Table table_{{"exit", "last line"}};
};

TEST_F(TableTest, RunsThatAgreeAreOneRow) {
  table_.Add(Make("SE", "EIO", "3"), "micron");
  table_.Add(Make("SE", "lost", "3"), "micron");
  table_.Add(Make("SE", "EIO", "3"), "macronix");
  table_.Add(Make("SE", "lost", "3"), "macronix");
  EXPECT_EQ(table_.Markdown("dax"),
            std::string(kHeader) + "| erase | SE | EIO; lost | 3 | line | both | 4 |\n");
}

TEST_F(TableTest, ChipsThatDifferHaveRowsOfTheirOwn) {
  table_.Add(Make("SE", "EIO", "3"), "micron");
  table_.Add(Make("SE", "EIO", "6"), "macronix");
  EXPECT_EQ(table_.Markdown("dax"),
            std::string(kHeader) + "| erase | SE | EIO | 3 | line | micron | 1 |\n" +
                "| erase | SE | EIO | 6 | line | macronix | 1 |\n");
}

TEST_F(TableTest, RowsOfOneEventStandTogether) {
  table_.Add(Make("SE", "EIO", "3"), "micron");
  table_.Add(Make("RDSR", "EIO", "3"), "micron");
  table_.Add(Make("SE", "lost", "0"), "micron");
  EXPECT_EQ(table_.Markdown("dax"),
            std::string(kHeader) + "| erase | SE | EIO | 3 | line | micron | 1 |\n" +
                "| erase | SE | lost | 0 | line | micron | 1 |\n" +
                "| erase | RDSR | EIO | 3 | line | micron | 1 |\n");
}

TEST_F(TableTest, TargetWithoutRunsHasNoTable) { EXPECT_EQ(table_.Markdown("wend"), ""); }

TEST_F(TableTest, RunsAreReadBackFromMarkdown) {
  table_.Add(Make("SE", "EIO", "3"), "micron");
  table_.Add(Make("SE", "EIO", "3"), "macronix");
  table_.Add(Make("SE", "lost", "0"), "micron");
  const auto runs = table_.Runs();
  EXPECT_EQ(runs.size(), 3U);
  EXPECT_EQ(Table::RunsIn("## dax\n\n" + table_.Markdown("dax")), runs);
  EXPECT_NE(Table::RunsIn("## wend\n\n" + table_.Markdown("dax")), runs);
}

}  // namespace
}  // namespace maps
