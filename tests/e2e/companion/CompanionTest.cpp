#include "tests/e2e/companion/CompanionTest.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "companion/image/ImageFile.h"

namespace companion_test {

using program_test::Outcome;

CompanionTest::CompanionTest() {
  instrument_.Environment("TARNWICKCTL", TARNWICKCTL_PATH);
  instrument_.Option({"--state", "instrument.state"});
}

Outcome CompanionTest::BareUpdate() {
  program_test::VirtualInstrument other;
  other.WriteFile("flash.bin", old_);
  other.WriteFile("image.bin", image_);
  other.Option(
      {"--module",
       std::string(board_.word) + "@" + Slot() + ",flash=" + other.File("flash.bin").string()});
  return other.RunWords(std::string(board_.word) + " -sf " + Slot() + " image.bin");
}

Outcome CompanionTest::Companion(const std::string& command,
                                 const std::string& file,
                                 const std::string& options) {
  return instrument_.RunShell("exec \"$TARNWICKCTL\" " + command + " " + board_.word + " " +
                              Slot() + " " + file + " --state state " + options);
}

std::string CompanionTest::Stamp(int year) const {
  return HasBootHeader() ? std::to_string(year) + "-05-06 07:08:09"
                         : "06/05/" + std::to_string(year) + " 07:08:09";
}

std::string CompanionTest::ModuleLine() const {
  // The expander of a dax is behind the first channel of a multiplexer.
  const std::string bus = IsDax() ? "i2c-11" : "i2c-" + Slot();
  return "module: " + std::string(board_.word) + " in slot " + Slot() + ", \"" + bus +
         "\", \"spidev" + Slot() + ".0\"\n";
}

std::string CompanionTest::ImageLines() const {
  return "image: \"image.bin\", " + std::to_string(image_.size()) + " bytes, \"" + Stamp(2024) +
         "\"\nSHA-256 of the image: " + companion::Sha256(image_.data(), image_.size()) + "\n";
}

std::string CompanionTest::StateLines() const {
  return std::string("chip: 20ba18, not protected\nDONE: high\n") +
         (IsPyx() ? "PCIe endpoint: enabled\n" : "");
}

std::string CompanionTest::Text(const std::string& file) const {
  const program_test::Bytes bytes = instrument_.ReadFile(file);
  return {bytes.begin(), bytes.end()};
}

std::string CompanionTest::State() const {
  std::istringstream lines(Text("instrument.state"));
  const std::string slot = Slot() + " ";
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(slot)) {
      return line.substr(slot.size());
    }
  }
  return "";
}

std::string CompanionTest::InUse() const {
  return std::string("done=1 ") + (IsWend() ? "qspi_prg=0" : "driven=0x0000") +
         (IsPyx() ? " pcie=enabled selector=SPILVDS" : "") + " loaded=current";
}

std::vector<std::string> CompanionTest::NamesInState() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(instrument_.File("state"))) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string CompanionTest::Hex(unsigned char byte) {
  std::array<char, 8> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "0x%02x", byte));
  return text.data();
}

}  // namespace companion_test
