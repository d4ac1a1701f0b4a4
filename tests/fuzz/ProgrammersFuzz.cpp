// The four programmers, with everything outside them decided by the fuzzer: flash, expander,
// control files, selector, scratch files and image.
//   input: type of module, slot, transfer size (an index), bits (1: no image, 2: in gzip), the
//          flash's identification (3 bytes), DONE (reads before it is high, text), head of the
//          flash (2 bytes of length, bytes), image (the same), one byte for each call
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "devices/I2CDev.h"
#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/ImageFile.h"
#include "tests/fuzz/ProgrammersWorld.h"
#include "tests/fuzz/Reference.h"

namespace {

using Status = FpgaProgrammerInterface::Status;

constexpr const char* kImage = "image";
constexpr unsigned kSpeedHz = 19'000'000;

enum class Kind { kWend, kDax, kPyx1, kPyx2 };
constexpr std::array kKinds = {Kind::kWend, Kind::kDax, Kind::kPyx1, Kind::kPyx2};

constexpr std::array kTransferSizes = {"4096", "", "0", "16", "256", "300", "65536", "-1"};

struct Input {
  Kind kind;
  ProgrammersWorld::Module module;
  bool hasImage;
  bool inGzip;
  std::string image;  // decompressed

  /// @return the image file, unless there is none
  [[nodiscard]] std::optional<std::string> File() const {
    return hasImage ? std::optional(inGzip ? InGzip(image) : image) : std::nullopt;
  }
  [[nodiscard]] bool IsPyx() const { return kind == Kind::kPyx1 || kind == Kind::kPyx2; }
  [[nodiscard]] bool ComparesHeaders() const { return kind == Kind::kWend || kind == Kind::kPyx2; }
  [[nodiscard]] const char* Dump() const {
    return kind == Kind::kWend ? "./FlashDevice.bin" : "dumpflash.bin";
  }
};

Input Read(HostileBytes& bytes) {
  Input input = {};
  input.kind = kKinds[bytes.Byte() % kKinds.size()];
  input.module.number = bytes.Byte();
  input.module.bufsiz = kTransferSizes[bytes.Byte() % kTransferSizes.size()];
  const unsigned bits = bytes.Byte();
  input.hasImage = (bits & 1U) == 0;
  input.inGzip = (bits & 2U) != 0;
  std::generate_n(input.module.id, sizeof input.module.id, [&] { return bytes.Byte(); });
  input.module.readsBeforeDone = bytes.Byte();
  input.module.doneText = bytes.Byte() == '0' ? '0' : '1';
  const std::uint16_t memoryBytes = bytes.Word();
  input.module.memory = bytes.Text(memoryBytes);
  const std::uint16_t imageBytes = bytes.Word();
  input.image = bytes.Text(imageBytes);
  return input;
}

/// The expander, the SPI device and the line map, as the program has them.
struct Devices {
  SPIDevOwner spi{ProgrammersWorld::kSpiNode, kSpeedHz, 0, 8};
  I2CDev i2c{ProgrammersWorld::kI2cNode};
  PCA9535 expander{&i2c, 1};
  std::unique_ptr<GpioProgrammingInterface> lines;
};

std::unique_ptr<FpgaProgrammerInterface> NewProgrammer(const Input& input, Devices& devices) {
  const unsigned module = input.module.number;
  PCA9535* const expander = &devices.expander;
  SPIDev* const spi = devices.spi.Get();
  switch (input.kind) {
    case Kind::kWend:
      return std::make_unique<ZynqFlashProgrammer>(spi, module);
    case Kind::kDax:
      devices.lines = std::make_unique<DaxGpioProgramming>();
      return std::make_unique<DaxFlashProgrammer>(expander, spi, devices.lines.get(), module);
    case Kind::kPyx1:
      devices.lines = std::make_unique<Pyx1GpioProgramming>();
      return std::make_unique<Pyx1FlashProgrammer>(expander, spi, devices.lines.get(), module);
    case Kind::kPyx2:
      devices.lines = std::make_unique<Pyx2GpioProgramming>();
      return std::make_unique<Pyx2FlashProgrammer>(expander, spi, devices.lines.get(), module);
  }
  return nullptr;
}

/// How a run ended: with a status or an exception.
struct UpdateResult {
  std::optional<Status> status;
  bool threw = false;
  bool connected = false;
};

UpdateResult Run(const Input& input) {
  UpdateResult outcome;
  Devices devices;
  try {
    const auto programmer = NewProgrammer(input, devices);
    outcome.status = programmer->Connect();
    outcome.connected = outcome.status == FpgaProgrammerInterface::Success;
    if (outcome.connected) {
      outcome.status = std::nullopt;
      outcome.status = programmer->ProgramDevice(kImage);
    }
  } catch (const std::logic_error&) {
    outcome.threw = true;
  }
  return outcome;
}

/// The decision, by the rules of Reference.h, from the files.
/// @return whether the flash is to be rewritten; none when a header cannot be read
std::optional<bool> IsUpgradeRequired(const Input& input, const ProgrammersWorld& world) {
  const auto contents = [&](const std::string& path) {
    const auto found = world.files.find(path);
    return found == world.files.end() ? std::string() : found->second;
  };
  const std::string dump = contents(input.Dump());
  const std::string image = contents(kImage);
  if (!input.ComparesHeaders()) {
    return reference::FindTimeStamp(dump).value_or(0) !=
           reference::FindTimeStamp(image).value_or(0);
  }
  const auto dumpHeader = reference::FindBootHeader(dump);
  const auto imageHeader = reference::FindBootHeader(image);
  if (!dumpHeader || !imageHeader) {
    return std::nullopt;
  }
  return reference::BuildDatesDiffer(*dumpHeader, *imageHeader);
}

void CheckStatus(const Input& input, const UpdateResult& outcome) {
  Require(!outcome.threw || input.ComparesHeaders(), "only boot headers throw");
  if (!outcome.status) {
    return;
  }
  switch (*outcome.status) {
    case FpgaProgrammerInterface::OpenFileFailed:
      Require(input.kind == Kind::kDax, "only dax reports an image that cannot be opened");
      break;
    case FpgaProgrammerInterface::ConfigDoneNotAsserted:
      Require(input.kind != Kind::kDax, "dax does not wait for DONE");
      break;
    case FpgaProgrammerInterface::Success:
    case FpgaProgrammerInterface::ConnectFailed:
    case FpgaProgrammerInterface::EraseFailed:
    case FpgaProgrammerInterface::ProgramFailed:
    case FpgaProgrammerInterface::UpToDate:
      break;
    default:
      Require(false, "the status is in the table");
  }
}

void CheckDecision(const Input& input, const UpdateResult& outcome, const ProgrammersWorld& world) {
  const bool upToDate = outcome.status == FpgaProgrammerInterface::UpToDate;
  if (upToDate || !outcome.connected) {
    Require(!world.HasChanged() && !world.HasUnlocked(), "nothing is written before the decision");
  }
  if (!outcome.connected || world.Disturbed()) {
    return;
  }
  const bool dumpFailed =
      outcome.status == FpgaProgrammerInterface::ConnectFailed && !world.HasChanged();
  const std::optional<bool> required = IsUpgradeRequired(input, world);
  Require(required || dumpFailed || outcome.threw, "a header that cannot be read throws");
  Require(!required || !outcome.threw, "headers that can be read do not throw");
  if (required && !dumpFailed) {
    Require(upToDate == !*required, "the decision is the reference's");
  }
}

/// @return whether zlib returns the image and the driver writes it page by page: it begins a page
///         at the start of each transfer, also inside a page of the chip
bool IsWritable(const Input& input) {
  const std::string& bufsiz = input.module.bufsiz;
  const bool looksLikeGzip = input.image.starts_with('\x1f');
  return input.hasImage && (input.inGzip || !looksLikeGzip) && bufsiz != "0" && bufsiz != "16" &&
         bufsiz != "300";
}

/// Nothing has disturbed this run.
bool Obeyed(const ProgrammersWorld& world) {
  return world.FlashObeyed() && world.ExpanderObeyed() && !world.Disturbed();
}

void CheckRewrite(const Input& input, const UpdateResult& outcome, const ProgrammersWorld& world) {
  if (outcome.status == FpgaProgrammerInterface::Success && world.FlashObeyed() &&
      IsWritable(input)) {
    Require(world.Memory().starts_with(input.image), "after a success the flash holds the image");
  }
  const bool hasChip = input.module.id[0] != 0;
  if (!hasChip || !Obeyed(world) || !IsWritable(input) || outcome.threw ||
      outcome.status == FpgaProgrammerInterface::UpToDate) {
    return;
  }
  const auto header = reference::FindBootHeader(input.image);
  const bool isVerified = input.kind != Kind::kWend ||
                          (!input.inGzip && !reference::BuildDatesDiffer(*header, *header));
  const bool getsDone = input.module.readsBeforeDone != ProgrammersWorld::kNeverDone &&
                        (input.kind != Kind::kWend || input.module.doneText != '0');
  Status expected = FpgaProgrammerInterface::Success;
  if (!isVerified) {
    expected = FpgaProgrammerInterface::ProgramFailed;
  } else if (!getsDone && input.kind != Kind::kDax) {
    expected = FpgaProgrammerInterface::ConfigDoneNotAsserted;
  }
  Require(outcome.status == expected || (!isVerified && input.inGzip),
          "a run that nothing disturbs comes to its end");
}

void CheckControlFiles(const UpdateResult& outcome, const ProgrammersWorld& world) {
  const std::string& owner = world.files.at(world.ControlFile("qspi_prg"));
  const std::string& reset = world.files.at(world.ControlFile("zynq_hw_reset_n"));
  if (!outcome.status) {
    return;  // an exception leaves both as they are
  }
  const bool restarted = *outcome.status == FpgaProgrammerInterface::Success ||
                         *outcome.status == FpgaProgrammerInterface::ConfigDoneNotAsserted;
  Require(owner == (restarted ? "0" : "1"), "the Zynq gets a good flash back, and no other");
  Require(reset == (restarted ? "1" : ""), "the Zynq is reset with a good flash, and released");
}

void CheckExpander(const Input& input, const ProgrammersWorld& world) {
  constexpr unsigned kBitstreamMask = 0xEDDF;
  constexpr unsigned kPyx2Mask = 0x0A17;
  const unsigned mask = input.kind == Kind::kPyx2 ? kPyx2Mask : kBitstreamMask;
  Require((world.Directions() & mask) == mask || world.ExpanderFailedLast(),
          "the lines are inputs in the end, unless the expander refused just then");
}

void CheckSelector(const Input& input, const ProgrammersWorld& world) {
  const auto& selections = world.Selections();
  Require(selections.size() == (input.IsPyx() ? 2U : 0U), "a pyx slot is selected twice");
  if (!input.IsPyx()) {
    return;
  }
  const std::string slot = input.module.number == 4 ? "slotA" : "slotB";
  constexpr std::array kTexts = {"SPIFIFO", "SPILVDS"};
  for (std::size_t i = 0; i < selections.size(); ++i) {
    const auto& [path, file] = selections[i];
    Require(path == "/sys/platform/module_selector/" + slot, "it is the slot's file");
    Require(file == nullptr || file->Contents() == kTexts[i],
            "the selector is back in the end, unless its file refused just then");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  HostileBytes bytes(data, size);
  Input input = Read(bytes);
  const Console console(nullptr, Console::Takes::kStreamsAndStdio);
  const FakeClock clock;
  const ImageFile image(kImage, input.File());
  input.module.onChange = [&] {
    Require(console.Out().find("Unlocking flash memory ... ") != std::string::npos,
            "nothing is erased or written before the decision");
  };
  ProgrammersWorld world(input.module, bytes);
  if (input.hasImage) {
    world.files[kImage] = *input.File();
  }

  const UpdateResult outcome = Run(input);

  CheckStatus(input, outcome);
  CheckDecision(input, outcome, world);
  CheckRewrite(input, outcome, world);
  CheckSelector(input, world);
  if (input.kind == Kind::kWend) {
    CheckControlFiles(outcome, world);
  } else {
    CheckExpander(input, world);
  }
  Require(world.OpenCount(ProgrammersWorld::kI2cNode) == 0, "the I2C node is closed in the end");
  Require(world.OpenCount(ProgrammersWorld::kSpiNode) <= 1,
          "the SPI node is closed but for the descriptor that programming replaced");
  return 0;
}
