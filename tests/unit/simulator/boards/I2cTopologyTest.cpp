#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/boards/I2cTopology.h"

namespace orvane {
namespace {

/// "i2c-11 behind i2c-10: i2c-10-mux (chan_id 0)"
std::vector<std::string> Texts(const std::vector<I2cUser>& users) {
  std::vector<std::string> texts;
  for (const I2cAdapter& adapter : PlanI2cAdapters(users)) {
    std::string text = adapter.BusName();
    if (adapter.parent) {
      text += " behind i2c-" + std::to_string(*adapter.parent);
    }
    text += ": " + adapter.name;
    if (adapter.slot) {
      text += ", slot " + std::to_string(*adapter.slot);
    }
    if (adapter.channel) {
      text += ", channel " + std::to_string(*adapter.channel);
    }
    texts.push_back(text);
  }
  return texts;
}

TEST(I2cTopologyTest, ModuleHasTheAdapterOfItsSlot) {
  EXPECT_EQ(Texts({{.slot = 1, .hasMux = false}}),
            (std::vector<std::string>{
                "i2c-1: Orvane slot 1, slot 1",
                "i2c-0: Orvane chassis",
                "i2c-10: Orvane chassis",
                "i2c-11 behind i2c-10: i2c-10-mux (chan_id 0), channel 0",
                "i2c-12 behind i2c-10: i2c-10-mux (chan_id 1), channel 1",
            }));
}

TEST(I2cTopologyTest, MuxHasTwoChannelsOfItsOwn) {
  EXPECT_EQ(Texts({{.slot = 1, .hasMux = false}, {.slot = 2, .hasMux = true}}),
            (std::vector<std::string>{
                "i2c-1: Orvane slot 1, slot 1",
                "i2c-2: Orvane slot 2, slot 2",
                "i2c-0: Orvane chassis",
                "i2c-10: Orvane chassis",
                "i2c-11 behind i2c-2: i2c-2-mux (chan_id 0), slot 2, channel 0",
                "i2c-12 behind i2c-2: i2c-2-mux (chan_id 1), slot 2, channel 1",
                "i2c-13 behind i2c-10: i2c-10-mux (chan_id 0), channel 0",
                "i2c-14 behind i2c-10: i2c-10-mux (chan_id 1), channel 1",
            }));
}

TEST(I2cTopologyTest, SlotsTakePrecedenceOverTheChassis) {
  EXPECT_EQ(Texts({{.slot = 0, .hasMux = false},
                   {.slot = 10, .hasMux = true},
                   {.slot = 11, .hasMux = false}}),
            (std::vector<std::string>{
                "i2c-0: Orvane slot 0, slot 0",
                "i2c-10: Orvane slot 10, slot 10",
                "i2c-11: Orvane slot 11, slot 11",
                "i2c-12 behind i2c-10: i2c-10-mux (chan_id 0), slot 10, channel 0",
                "i2c-13 behind i2c-10: i2c-10-mux (chan_id 1), slot 10, channel 1",
            }));
}

TEST(I2cTopologyTest, EachBusWithChannelsHasAMultiplexer) {
  std::vector<std::string> texts;
  for (const I2cClient& client : PlanI2cClients(
           PlanI2cAdapters({{.slot = 1, .hasMux = false}, {.slot = 2, .hasMux = true}}))) {
    texts.push_back("i2c-" + std::to_string(client.bus) + "/" + client.busName + " " + client.name);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"i2c-2/2-0070 pca9540", "i2c-10/10-0070 pca9540"}));
}

TEST(I2cTopologyTest, BusesWithoutChannelsHaveNoMultiplexer) {
  EXPECT_TRUE(PlanI2cClients(PlanI2cAdapters({{.slot = 10, .hasMux = false}})).empty());
}

}  // namespace
}  // namespace orvane
