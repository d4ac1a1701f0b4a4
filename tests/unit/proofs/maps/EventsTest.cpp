#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "proofs/maps/Events.h"

namespace maps {
namespace {

/// "step: label" of each event.
std::vector<std::string> Labels(const std::vector<std::string>& log) {
  std::vector<std::string> labels;
  for (const Event& event : EventsOf(log)) {
    labels.push_back(event.step + ": " + event.label);
  }
  return labels;
}

/// A page program with two status reads.
void AppendPage(std::vector<std::string>& log, int page) {
  const std::string node = "spi /dev/spidev1.0 ";
  log.insert(log.end(),
             {node + "WREN",
              node + "PP 0x" + std::to_string(page) + " +256",
              node + "RDSR = 03",
              node + "RDSR = 00"});
}

TEST(EventsTest, ConsoleLinesOpenTheSteps) {
  EXPECT_EQ(Labels({"dbus GetModuleLocations = 1",
                    R"(stdout "SPI clock rate =19MHz\n")",
                    "open /sys/module/spidev/parameters/bufsiz O_RDONLY",
                    R"(stdout "Connecting ...\n")",
                    "sleep 5 s",
                    R"(stdout "Toggling reset ... ")",
                    "sleep 10 ms",
                    R"(stdout "done.\n")",
                    "close -1",
                    "exit 0"}),
            (std::vector<std::string>{"discovery: GetModuleLocations",
                                      "set-up: open bufsiz",
                                      "connect: sleep 5 s",
                                      "reset: sleep 10 ms",
                                      "end: close descriptor -1"}));
}

TEST(EventsTest, ExpanderTransfersAreNamedByTheirRegister) {
  EXPECT_EQ(Labels({"i2c /dev/i2c-11 0x21 w 02 r ff ff",
                    "i2c /dev/i2c-11 0x21 w 02 a0 3e",
                    "i2c /dev/i2c-11 0x21 w 06 ff ff",
                    "i2c /dev/i2c-11 0x21 w 00 r c0 2d"}),
            (std::vector<std::string>{"discovery: read the outputs",
                                      "discovery: write the outputs a0 3e",
                                      "discovery: write the directions ff ff",
                                      "discovery: read the inputs"}));
}

TEST(EventsTest, EventsAreCountedByKind) {
  const std::vector<Event> events = EventsOf({"open a O_RDONLY",
                                              "spi /dev/spidev1.0 speed 19000000 bits 8",
                                              "spi /dev/spidev1.0 RDID = 20 ba 18",
                                              "close a",
                                              "spi /dev/spidev1.0 RDSR = 00",
                                              "open b O_RDONLY"});
  ASSERT_EQ(events.size(), 5U);
  EXPECT_EQ(events[0].ordinal, 1U);
  EXPECT_EQ(events[1].ordinal, 1U);
  EXPECT_EQ(events[1].result, "20 ba 18");
  EXPECT_EQ(events[3].ordinal, 2U);
  EXPECT_EQ(events[3].statusRead, 1U);
  EXPECT_EQ(events[4].ordinal, 2U);
}

TEST(EventsTest, EventsWithTheSameTextAreCounted) {
  const std::vector<Event> events = EventsOf({"dbus GetI2CBus 1 = \"i2c-1\"",
                                              "dbus GetSPIDev 1 = \"spidev1.0\"",
                                              "open GetI2CBus 1",
                                              "dbus GetI2CBus 1 = \"i2c-1\""});
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0].sameText, 1U);
  EXPECT_EQ(events[1].sameText, 1U);
  EXPECT_EQ(events[2].sameText, 1U);
  EXPECT_EQ(events[3].sameText, 2U);
}

TEST(EventsTest, FiveOfThePagesAreKept) {
  std::vector<std::string> log = {
      "spi /dev/spidev1.0 WREN", "spi /dev/spidev1.0 SE 0x000000", "spi /dev/spidev1.0 RDSR = 00"};
  for (int page = 0; page < 9; ++page) {
    AppendPage(log, page);
  }
  std::vector<std::string> expected = {"discovery: WREN for SE, sector 1",
                                       "discovery: SE, sector 1",
                                       "discovery: RDSR ready, sector 1"};
  for (const std::string page :
       {"first page", "second page", "middle page", "last page but one", "last page"}) {
    expected.insert(expected.end(),
                    {"discovery: WREN for PP, " + page,
                     "discovery: PP, " + page,
                     "discovery: RDSR busy, " + page,
                     "discovery: RDSR ready, " + page});
  }
  EXPECT_EQ(Labels(log), expected);
}

TEST(EventsTest, ProgramsAndErasesAreCountedApartAndTogether) {
  std::vector<std::string> log = {"spi /dev/spidev1.0 SE 0x000000"};
  AppendPage(log, 0);
  const std::vector<Event> events = EventsOf(log);
  EXPECT_EQ(events[0].erase, 1U);
  EXPECT_EQ(events[0].operation, 1U);
  EXPECT_EQ(events[2].program, 1U);
  EXPECT_EQ(events[2].operation, 2U);
}

/// A step for what is below /sys, none for anything else.
std::string SysStep(const std::string& line, const std::string& /*step*/) {
  return line.find("/sys/") != std::string::npos ? "sys" : "";
}

TEST(EventsTest, EventsWithoutAStepAreLeftOutButCounted) {
  const std::vector<Event> events = EventsOf(
      {"open a O_RDONLY", R"(stdout "x\n")", "open /sys/b O_RDONLY", "close a", "exit 0"}, SysStep);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].step, "sys");
  EXPECT_EQ(events[0].ordinal, 2U);
}

TEST(EventsTest, PagesAndSectorsBeforeTheStepsAreNotNamed) {
  std::vector<std::string> log = {"spi /dev/spidev1.0 SE 0x000000"};
  AppendPage(log, 0);
  log.emplace_back(R"(stdout "go\n")");
  log.emplace_back("spi /dev/spidev1.0 WREN");
  log.emplace_back("spi /dev/spidev1.0 SE 0x010000");
  AppendPage(log, 1);
  const auto stepOf = [](const std::string& line, const std::string& step) {
    return line.starts_with("stdout") ? std::string("again") : step;
  };
  std::vector<std::string> labels;
  for (const Event& event : EventsOf(log, stepOf)) {
    labels.push_back(event.label);
  }
  EXPECT_EQ(labels,
            (std::vector<std::string>{"WREN for SE, sector 1",
                                      "SE, sector 1",
                                      "WREN for PP, first page",
                                      "PP, first page",
                                      "RDSR busy, first page",
                                      "RDSR ready, first page"}));
}

TEST(EventsTest, FiveOfManyEventsWithOneLabelInOneStepAreKept) {
  const std::vector<std::string> log(20, "sleep 1 ms");
  const auto oneStep = [](const std::string&, const std::string&) { return std::string("wait"); };
  std::vector<std::size_t> ordinals;
  for (const Event& event : EventsOf(log, oneStep)) {
    ordinals.push_back(event.ordinal);
  }
  EXPECT_EQ(ordinals, (std::vector<std::size_t>{1, 2, 10, 19, 20}));
}

}  // namespace
}  // namespace maps
