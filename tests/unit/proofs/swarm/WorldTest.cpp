#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "proofs/swarm/Images.h"
#include "proofs/swarm/World.h"

namespace swarm {
namespace {

constexpr std::uint64_t kManyWorlds = 3'000;

std::string ProblemWith(const char* text) {
  try {
    static_cast<void>(Parse(text));
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "none";
}

TEST(WorldTest, EverySettingIsPrintedAndRead) {
  constexpr const char* kText =
      "pyx1 macronix a=gzip:3000 b=plain:900 flash=half:3000 registers=24:08 start=reset "
      "start=driven "
      "steps=u,v@120[t,U]@7i,U@40k,T@1s end=here key=worn-page=0 stay=done=low "
      "fault=spi:PP#3:EIO fault=any#7:kill-all";
  const World world = Parse(kText);
  EXPECT_EQ(world.type, "pyx1");
  EXPECT_EQ(world.chip, "macronix");
  EXPECT_EQ(world.a, (Contents{"gzip", 3000}));
  EXPECT_EQ(world.b, (Contents{"plain", 900}));
  EXPECT_EQ(world.flash, (Contents{"half", 3000}));
  EXPECT_EQ(world.registers, "24:08");
  EXPECT_EQ(world.starts, (std::vector<std::string>{"reset", "driven"}));
  ASSERT_EQ(world.steps.size(), 4U);
  EXPECT_EQ(world.steps[0], (Step{.what = 'u', .holds = {}}));
  const std::vector<Step> inside = {{.what = 't', .holds = {}}, {.what = 'U', .holds = {}}};
  const std::vector<Hold> holds = {{.call = 120, .action = '[', .inside = inside},
                                   {.call = 7, .action = 'i', .inside = {}}};
  EXPECT_EQ(world.steps[1].holds, holds);
  EXPECT_TRUE(world.endsHere);
  EXPECT_EQ(world.keys, std::vector<std::string>{"worn-page=0"});
  EXPECT_EQ(world.stays, std::vector<std::string>{"done=low"});
  EXPECT_EQ(world.faults, (std::vector<std::string>{"spi:PP#3:EIO", "any#7:kill-all"}));
  EXPECT_EQ(Print(world), kText);
}

TEST(WorldTest, WrongTextIsRefused) {
  EXPECT_EQ(ProblemWith("wend"), "a world begins with a type of module and a chip");
  EXPECT_EQ(ProblemWith("pyx3 micron"), "not a type of module: 'pyx3'");
  EXPECT_EQ(ProblemWith("wend micron x=1"), "not a setting of a world: 'x=1'");
  EXPECT_EQ(ProblemWith("wend micron x"), "not a setting of a world: 'x'");
  EXPECT_EQ(ProblemWith("wend micron a=plain"), "not KIND:BYTES: 'plain'");
  EXPECT_EQ(ProblemWith("wend micron a=plain:1x"), "not KIND:BYTES: 'plain:1x'");
  EXPECT_EQ(ProblemWith("wend micron steps=x"), "not a step: 'x'");
  EXPECT_EQ(ProblemWith("wend micron steps=u,"), "not a step: ''");
  EXPECT_EQ(ProblemWith("wend micron steps=u@k"), "a number is missing before 'k'");
  EXPECT_EQ(ProblemWith("wend micron steps=u@0k"), "not an action: 'k'");
  EXPECT_EQ(ProblemWith("wend micron steps=u@1x"), "not an action: 'x'");
  EXPECT_EQ(ProblemWith("wend micron steps=u@1[t"), "']' is missing before ''");
  EXPECT_EQ(ProblemWith("wend micron steps=ut"), "not part of a step: 't'");
  EXPECT_EQ(ProblemWith("wend micron end=never"), "not a setting of a world: 'end=never'");
}

TEST(WorldTest, SameNumbersDrawTheSameWorld) {
  EXPECT_EQ(Draw(7, 12), Draw(7, 12));
  EXPECT_NE(Draw(7, 12), Draw(7, 13));
  EXPECT_NE(Draw(7, 12), Draw(8, 12));
}

TEST(WorldTest, DrawnWorldIsThatOfItsText) {
  for (std::uint64_t index = 0; index < kManyWorlds; ++index) {
    const World world = Draw(1, index);
    ASSERT_EQ(Parse(Print(world)), world) << Print(world);
  }
}

TEST(WorldTest, DrawnWorldsHaveOneToFiveFaultsAndOneToSixSteps) {
  std::set<std::size_t> faults;
  std::set<std::size_t> steps;
  for (std::uint64_t index = 0; index < kManyWorlds; ++index) {
    const World world = Draw(1, index);
    faults.insert(world.faults.size() + world.keys.size());
    steps.insert(world.steps.size());
    EXPECT_TRUE(IsFit(world.b));
  }
  EXPECT_EQ(faults, (std::set<std::size_t>{0, 1, 2, 3, 4, 5}));  // 0: the line DONE stays as it is
  EXPECT_EQ(steps, (std::set<std::size_t>{1, 2, 3, 4, 5, 6}));
}

TEST(WorldTest, DrawnWorldEndsOnItsInstrumentOnlyWithoutKeys) {
  for (std::uint64_t index = 0; index < kManyWorlds; ++index) {
    const World world = Draw(1, index);
    EXPECT_TRUE(!world.endsHere || world.keys.empty()) << Print(world);
  }
}

TEST(WorldTest, LastUpdateIsMadeWithAFitImage) {
  World world;
  EXPECT_EQ(LastUpdate(world), 'u');
  world.a.kind = "cut";
  EXPECT_EQ(LastUpdate(world), 'U');
}

TEST(WorldTest, LastUpdateAfterABareRunRestartsTheFpga) {
  World world = Parse("wend micron steps=u,v@3[T]");
  EXPECT_EQ(LastUpdate(world), 'r');
  world.a.kind = "cut";
  EXPECT_EQ(LastUpdate(world), 'R');
}

TEST(WorldTest, StepContainsWhatIsMadeInsideIt) {
  const World world = Parse("wend micron steps=u@5[T],U");
  EXPECT_TRUE(Contains(world.steps[0], 'u'));
  EXPECT_TRUE(Contains(world.steps[0], 't'));
  EXPECT_FALSE(Contains(world.steps[0], 'v'));
  EXPECT_TRUE(Contains(world.steps[1], 'u'));
  EXPECT_FALSE(Contains(world.steps[1], 't'));
}

TEST(ImagesTest, FlashHoldsACompressedImageDecompressed) {
  const World packed = Parse("dax micron a=gzip:1000");
  const World plain = Parse("dax micron a=plain:1000");
  EXPECT_EQ(ImageInFlash(packed, 'a'), ImageFile(plain, 'a'));
  EXPECT_NE(ImageFile(packed, 'a'), ImageFile(plain, 'a'));
}

TEST(ImagesTest, ImagesOfAWorldDiffer) {
  const World world = Parse("wend micron a=plain:1000 b=plain:1000 flash=old:1000");
  EXPECT_NE(ImageFile(world, 'a'), ImageFile(world, 'b'));
  EXPECT_NE(ImageFile(world, 'a'), StartOfFlash(world));
}

TEST(ImagesTest, FlashStartsAsItsKindSays) {
  const Bytes image = ImageFile(Parse("wend micron a=plain:1000"), 'a');
  const auto start = [](const std::string& kind) {
    return StartOfFlash(Parse("wend micron a=plain:1000 flash=" + kind + ":1000"));
  };
  EXPECT_EQ(start("blank"), Bytes());
  EXPECT_EQ(start("a"), image);
  EXPECT_EQ(start("half"), Bytes(image.begin(), image.begin() + 500));
  EXPECT_EQ(start("head"), Bytes(image.begin(), image.begin() + 512));
  Bytes flipped = image;
  flipped[999] ^= 1U;
  EXPECT_EQ(start("flipped"), flipped);
}

}  // namespace
}  // namespace swarm
