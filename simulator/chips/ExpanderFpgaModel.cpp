#include "simulator/chips/ExpanderFpgaModel.h"

#include <cstddef>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/timing/ClockedPart.h"

namespace orvane {

struct ExpanderFpgaModel::Wiring {
  std::uint8_t address;
  std::uint16_t pulls;
  std::uint16_t reset;     // in reset while low
  std::uint16_t programB;  // shows the reset to the expander
  std::uint16_t initB;
  std::uint16_t done;
  std::uint16_t routing;  // the lines that route the SPI, and their levels:
  std::uint16_t flashToFpga;
  std::uint16_t controllerToFlash;
  std::uint16_t controllerToFpga;  // connected to the flash too
  bool (*plausible)(std::span<const std::uint8_t> flash);
};

namespace {

using Wiring = ExpanderFpgaModel::Wiring;

constexpr std::chrono::nanoseconds kClearTime = std::chrono::milliseconds(5);
constexpr unsigned kOffsetSlot = 5;  // its expander answers at the next address

/// A dax's or pyx1's; they differ in the address alone.
constexpr Wiring BitstreamWiring(std::uint8_t address) {
  return {.address = address,
          .pulls = 0x2C80,
          .reset = 0x0080,
          .programB = 0x0080,
          .initB = 0x0040,
          .done = 0x0100,
          .routing = 0xEC9F,
          .flashToFpga = 0x2C80,
          .controllerToFlash = 0x2C9D,
          .controllerToFpga = 0xEC9D,
          .plausible = HasPlausibleBitstream};
}
constexpr Wiring kDax = BitstreamWiring(0x21);
constexpr Wiring kPyx1 = BitstreamWiring(0x20);
constexpr Wiring kPyx2 = {.address = 0x20,
                          .pulls = 0x0200,
                          .reset = 0x0200,
                          .programB = 0x0010,
                          .initB = 0x0002,
                          .done = 0x0001,
                          .routing = 0x0204,
                          .flashToFpga = 0x0200,
                          .controllerToFlash = 0x0204,
                          .controllerToFpga = 0x0204,  // there is no such path
                          .plausible = HasPlausibleBootHeader};

const Wiring& WiringOf(ExpanderModule module) {
  switch (module) {
    case ExpanderModule::kDax:
      return kDax;
    case ExpanderModule::kPyx1:
      return kPyx1;
    case ExpanderModule::kPyx2:
      return kPyx2;
  }
  return kDax;
}

}  // namespace

ExpanderFpgaModel::ExpanderFpgaModel(ExpanderModule module,
                                     unsigned slot,
                                     NorFlashModel& flash,
                                     DonePolicy policy)
    : wiring_(WiringOf(module)),
      flash_(flash),
      address_(static_cast<std::uint8_t>(wiring_.address + (slot == kOffsetSlot ? 1 : 0))),
      expander_(wiring_.pulls),
      boot_(policy, kClearTime, flash.Bootable() && wiring_.plausible(flash.FirstSector())),
      configuration_(flash) {
  Settle();
}

void ExpanderFpgaModel::WriteExpander(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) {
    return;
  }
  // Byte by byte: a register takes its value with its own byte, so the FPGA sees a pulse within one
  // transaction.
  for (std::size_t i = 1; i < bytes.size(); ++i) {
    const std::uint8_t single[] = {static_cast<std::uint8_t>(bytes[0] ^ ((i - 1) % 2)), bytes[i]};
    expander_.Write(single);
    Settle();
  }
  expander_.Write(bytes.first(1));
}

bool ExpanderFpgaModel::FlashAnswersController() const {
  const unsigned route = expander_.Lines() & wiring_.routing;
  return route == wiring_.controllerToFlash || route == wiring_.controllerToFpga;
}

bool ExpanderFpgaModel::FlashBootable() const {
  return (expander_.Lines() & wiring_.routing) == wiring_.flashToFpga && flash_.Bootable() &&
         wiring_.plausible(flash_.FirstSector());
}

void ExpanderFpgaModel::AdvanceTime(std::chrono::nanoseconds by) {
  if (boot_.NextChange() == kNever) {  // looking at the flash may take long
    boot_.AdvanceTime(by);
    return;
  }
  boot_.AdvanceTime(by);
  Settle();
}

void ExpanderFpgaModel::HoldLines(std::uint16_t mask, std::uint16_t levels) {
  expander_.HoldLines(mask, levels);
  Settle();
}

/// First the FPGA reads the lines, then the lines take the levels that it drives. It drives none of
/// the lines that it reads.
void ExpanderFpgaModel::Settle() {
  boot_.Update((expander_.Lines() & wiring_.reset) == 0, FlashBootable());
  configuration_.Follow(boot_.Configured());
  unsigned outside = wiring_.pulls;
  const auto drive = [&outside](unsigned line, bool high) {
    outside = high ? outside | line : outside & ~line;
  };
  if (wiring_.programB != wiring_.reset) {
    drive(wiring_.programB, !boot_.InReset());
  }
  drive(wiring_.initB, boot_.Cleared());
  drive(wiring_.done, boot_.Done());
  expander_.SetOutside(static_cast<std::uint16_t>(outside));
}

}  // namespace orvane
