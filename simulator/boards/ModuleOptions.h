#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/chips/DonePolicy.h"
#include "simulator/chips/NorFlashModel.h"
#include "simulator/timing/Timing.h"

namespace orvane {

enum class ModuleType { kWend, kDax, kPyx1, kPyx2 };

inline constexpr std::pair<ModuleType, std::string_view> kModuleTypes[] = {
    {ModuleType::kWend, "wend"},
    {ModuleType::kDax, "dax"},
    {ModuleType::kPyx1, "pyx1"},
    {ModuleType::kPyx2, "pyx2"},
};

/// Defects of a flash chip, see NorFlashModel. 0: without this defect.
struct FlashDefects {
  bool absent = false;
  std::uint64_t lostProgram = 0;
  std::uint64_t lostErase = 0;
  std::uint64_t lostRegisterWrite = 0;
  std::uint64_t busyAfter = 0;
  std::vector<std::uint32_t> wornPages;
  std::vector<std::uint32_t> wornSectors;
};

/// The registers of a flash chip that keep their values without power.
struct ChipRegisters {
  std::uint8_t status = 0;
  std::uint8_t configuration = 0;
};

/// One module of the instrument, as its user describes it.
struct ModuleOptions {
  ModuleType type = ModuleType::kWend;
  unsigned slot = 1;
  std::string flashFile;   // empty: a blank chip, which is not saved
  std::string loadedFile;  // where what the FPGA has loaded is saved; empty: nowhere
  Chip chip = Chip::kMicron;
  Timing timing = Timing::kPolls;          // the same for all modules of an instrument
  std::optional<ChipRegisters> registers;  // at power-on; none: as delivered
  DonePolicy done;
  std::optional<std::string> i2cName;  // what the resource service answers; none: the real name
  std::optional<std::string> spiName;
  bool i2cNode = true;  // whether the nodes under /dev exist
  bool spiNode = true;
  bool expander = true;         // whether a GPIO expander acknowledges its address
  bool controlFiles = true;     // whether a Zynq's control files exist
  std::uint16_t heldLines = 0;  // of the expander: stuck, whoever drives them
  std::uint16_t heldLevels = 0;
  FlashDefects defects;
};

}  // namespace orvane
