#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/boards/ModuleFactory.h"

namespace orvane {
namespace {

std::unique_ptr<Module> Make(ModuleType type) {
  const ModuleSelectorModel selector;
  const std::vector<std::uint8_t> flash = {0x12, 0x34};
  return MakeModule({.type = type, .slot = 3}, flash, selector);
}

TEST(ModuleFactoryTest, WendHasControlFilesAndNoMux) {
  const auto module = Make(ModuleType::kWend);
  EXPECT_FALSE(module->HasMux());
  EXPECT_EQ(module->AttributePaths().at(0), "/sys/platform_m3/qspi_prg/value");
}

TEST(ModuleFactoryTest, DaxHasAMuxAndNoFiles) {
  const auto module = Make(ModuleType::kDax);
  EXPECT_TRUE(module->HasMux());
  EXPECT_TRUE(module->AttributePaths().empty());
}

TEST(ModuleFactoryTest, PyxHasAPcieEndpointAndNoMux) {
  for (const ModuleType type : {ModuleType::kPyx1, ModuleType::kPyx2}) {
    const auto module = Make(type);
    EXPECT_EQ(module->Options().type, type);
    EXPECT_FALSE(module->HasMux());
    EXPECT_EQ(module->AttributePaths().at(0), "/sys/bus/pci/slots/3/address");
  }
}

TEST(ModuleFactoryTest, FlashHoldsWhatItIsGiven) {
  const auto module = Make(ModuleType::kWend);
  EXPECT_EQ(module->Flash().Contents()[0], 0x12);
  EXPECT_EQ(module->Flash().Contents()[1], 0x34);
  EXPECT_EQ(module->Flash().Contents()[2], 0xFF);
}

}  // namespace
}  // namespace orvane
