// What is in the file of --vcd, as sigrok-cli reads it, a logic analyser's decoder that nobody of this
// project wrote: every byte on SPI and I2C is compared with the log of the same run, and with the image
// where the log shows the number of bytes only.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/simulator/ModuleImage.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::HasSubstr;

constexpr const char* kSigrok = "/usr/bin/sigrok-cli";
// Stacked on the decoder of SPI. It says nothing of the erase of 64 KiB, 0xD8.
constexpr const char* kFlashDecoder = ",spiflash:chip=macronix_mx25l6405d";
constexpr std::size_t kFlashBytes = 16U << 20;
constexpr std::size_t kImageBytes = 700;  // two pages and a part of the third

// --- Both sides as text -------------------------------------------------------------------------

/// What passes on the buses, as the decoders show it, by the name of the node: "spidev1_0"; commands of
/// flash chips by "spidev1_0 flash".
using Buses = std::map<std::string, std::string>;

/// "9F 00" for two bytes.
std::string Hex(std::string_view bytes) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (const char letter : bytes) {
    const auto byte = static_cast<std::uint8_t>(letter);
    text += text.empty() ? "" : " ";
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

/// The bytes of "9f 00".
std::string FromHex(const std::string& text) {
  std::istringstream words(text);
  std::string bytes;
  for (std::string word; words >> word;) {
    bytes += static_cast<char>(std::stoul(word, nullptr, 16));
  }
  return bytes;
}

/// "spidev1_0" for "/dev/spidev1.0".
std::string SignalsOf(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  for (char& letter : name) {
    letter = letter == '.' || letter == '-' ? '_' : letter;
  }
  return name;
}

/// The bytes on SPI by the log of an update: each line names a command and what the log shows of its
/// bytes; the rest is known from the image and from what the flash held.
class WireByLog {
 public:
  WireByLog(std::string flash, std::string image)
      : flash_(std::move(flash)), image_(std::move(image)) {
    flash_ += std::string(kFlashBytes - flash_.size(), '\xFF');
  }

  /// @param command  "PP 0x001000 +256"
  /// @param answer   "20 ba 18"; empty: none
  /// @return two lines of bytes, MISO before MOSI, and one of the command or none
  /// @throw std::invalid_argument when the command is none of those that an update sends
  std::pair<std::string, std::string> Lines(const std::string& command, const std::string& answer) {
    std::istringstream words(command);
    std::string name;
    std::string addressWord;
    std::string countWord;
    words >> name >> addressWord >> countWord;
    const std::size_t address = addressWord.empty() ? 0 : std::stoul(addressWord, nullptr, 16);
    const std::size_t count = countWord.empty() ? 0 : std::stoul(countWord);
    std::string mosi(1, OpcodeOf(name));
    if (!addressWord.empty()) {
      mosi += {static_cast<char>(address >> 16U),
               static_cast<char>(address >> 8U),
               static_cast<char>(address)};
    }
    std::string miso(mosi.size(), '\0');
    miso += name == "READ" ? flash_.substr(address, count) : FromHex(answer);
    if (name == "PP") {
      mosi += image_.substr(address, count);
      flash_.replace(address, count, image_.substr(address, count));
    } else if (name == "SE") {
      constexpr std::size_t kSectorBytes = 64U << 10;
      flash_.replace(address, kSectorBytes, kSectorBytes, '\xFF');
    }
    const std::size_t length = std::max(mosi.size(), miso.size());
    mosi.resize(length, '\0');
    miso.resize(length, '\0');
    const std::string& data = name == "PP" ? mosi : miso;
    return {Hex(miso) + "\n" + Hex(mosi) + "\n",
            CommandLine(name, addressWord, data.substr(length - count))};
  }

 private:
  /// What the decoder of flash chips says.
  /// @param data  of a page or of what is read
  static std::string CommandLine(const std::string& name,
                                 const std::string& address,
                                 const std::string& data) {
    const std::map<std::string, std::string> lines = {
        {"RDSR", "Command: Read status register (RDSR)\n"},
        {"WREN", "Command: Write enable (WREN)\n"},
        {"RDID", "Read identification (RDID): Device = Macronix Unknown\n"},
        {"SE", ""}};
    if (name != "PP" && name != "READ") {
      return lines.at(name);
    }
    std::string digits = Hex(data);
    std::ranges::transform(digits, digits.begin(), [](unsigned char letter) {
      return static_cast<char>(std::tolower(letter));
    });
    return std::string(name == "PP" ? "Page program" : "Read data") + " (addr " + address + ", " +
           std::to_string(data.size()) + " bytes): " + digits + "\n";
  }
  static char OpcodeOf(const std::string& name) {
    constexpr std::pair<const char*, std::uint8_t> kOpcodes[] = {
        {"PP", 0x02}, {"READ", 0x03}, {"RDSR", 0x05}, {"WREN", 0x06}, {"RDID", 0x9F}, {"SE", 0xD8}};
    for (const auto& [known, opcode] : kOpcodes) {
      if (name == known) {
        return static_cast<char>(opcode);
      }
    }
    throw std::invalid_argument("unexpected command " + name);
  }

  std::string flash_;
  std::string image_;
};

struct Message {
  bool reads = false;
  std::string bytes;
};

/// An I2C transfer as the decoder shows it.
/// @param text         of the log: "0x21 w 02 r ff ff"
/// @param isAnswered   whether the chip acknowledges its address
std::string I2cLines(const std::string& text, bool isAnswered) {
  std::istringstream words(text);
  std::string word;
  words >> word;
  const std::string address = Hex(FromHex(word));
  std::vector<Message> messages;
  while (words >> word) {
    if (word == "w" || word == "r") {
      messages.push_back({.reads = word == "r", .bytes = {}});
    } else {
      messages.back().bytes += FromHex(word);
    }
  }
  std::string lines;
  for (const Message& message : messages) {
    const std::string kind = message.reads ? "Read" : "Write";
    const std::string does = message.reads ? " read: " : " write: ";
    lines += std::string(lines.empty() ? "Start\n" : "Start repeat\n") + kind + "\nAddress" + does +
             address + "\n";
    if (!isAnswered) {
      return lines + "NACK\nStop\n";
    }
    lines += "ACK\n";
    for (std::size_t i = 0; i < message.bytes.size(); ++i) {
      // Whoever reads acknowledges each byte but the last one.
      const bool isLast = message.reads && i + 1 == message.bytes.size();
      lines += "Data" + does + Hex(message.bytes.substr(i, 1)) + (isLast ? "\nNACK\n" : "\nACK\n");
    }
  }
  return lines + "Stop\n";
}

/// What has to be on each bus by the log of an update.
/// @param wire  of the module that is updated
Buses BusesByLog(const std::string& log, WireByLog wire) {
  Buses buses;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find(" = ");
    const std::string answer = equals == std::string::npos ? "" : line.substr(equals + 3);
    std::istringstream words(line.substr(0, equals));
    std::string kind;
    std::string path;
    std::string rest;
    words >> kind >> path >> std::ws;
    std::getline(words, rest);
    if (kind == "spi" && !rest.starts_with("speed ")) {
      const auto [bytes, command] = wire.Lines(rest, answer);
      buses[SignalsOf(path)] += bytes;
      buses[SignalsOf(path) + " flash"] += command;
    } else if (kind == "i2c") {
      buses[SignalsOf(path)] += I2cLines(rest, answer.empty());
    }
  }
  return buses;
}

// --- The runs -----------------------------------------------------------------------------------

std::string Image(const std::string& type, int year) {
  return ModuleImage(type, year, kImageBytes);
}

/// A run with the file "levels".
class VcdTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::access(kSigrok, X_OK), 0) << kSigrok << " is not installed";
    run_.Option("--timing typical --vcd levels");
  }

  /// What sigrok-cli prints about the file.
  /// @param compress  idle times are shortened to so many samples, of 1 ns
  std::string Decoded(const std::vector<std::string>& words, int compress = 10'000) {
    std::vector<std::string> all = {
        kSigrok, "-i", "levels", "-I", "vcd:compress=" + std::to_string(compress)};
    all.insert(all.end(), words.begin(), words.end());
    ChildProcess::Start start{.words = all, .directory = run_.File("").string()};
    start.out = run_.File("decoded");
    start.err = run_.File("complaints");
    EXPECT_EQ(ChildProcess(start).Wait().ExitCode(), 0);
    EXPECT_EQ(run_.ReadFile("complaints"), "");
    return run_.ReadFile("decoded");
  }
  static std::string Spi(const std::string& node) {
    return "spi:clk=" + node + "_CLK:mosi=" + node + "_MOSI:miso=" + node + "_MISO:cs=" + node +
           "_CS";
  }
  static std::string I2c(const std::string& node) {
    return "i2c:scl=" + node + "_SCL:sda=" + node + "_SDA";
  }

  /// The names of the nodes with a signal of this ending, in the order of the file.
  std::vector<std::string> NodesWith(const std::string& ending) const {
    std::vector<std::string> nodes;
    const std::string levels = run_.ReadFile("levels");
    std::istringstream header(levels.substr(0, levels.find("$enddefinitions")));
    for (std::string word; header >> word;) {
      if (word.ends_with(ending)) {
        nodes.push_back(word.substr(0, word.size() - ending.size()));
      }
    }
    return nodes;
  }

  /// All that the decoders find on all buses.
  /// @param onSpi  stacked on each decoder of SPI
  Buses DecodedBuses(const std::string& onSpi = "") {
    const std::vector<std::string> spi = NodesWith("_CS");
    const std::vector<std::string> i2c = NodesWith("_SCL");
    std::vector<std::string> words;
    std::map<std::string, std::string> nodes;  // by the decoder: "spi-1"
    for (std::size_t i = 0; i < spi.size(); ++i) {
      words.insert(words.end(), {"-P", Spi(spi[i]) + onSpi});
      nodes["spi-" + std::to_string(i + 1)] = spi[i];
      nodes["spiflash-" + std::to_string(i + 1)] = spi[i] + " flash";
    }
    for (std::size_t i = 0; i < i2c.size(); ++i) {
      words.insert(words.end(), {"-P", I2c(i2c[i])});
      nodes["i2c-" + std::to_string(i + 1)] = i2c[i];
    }
    words.insert(words.end(),
                 {"-A",
                  std::string("spi=miso-transfer:mosi-transfer:warnings,i2c=addr-data:warnings") +
                      (onSpi.empty() ? "" : ",spiflash=commands:warnings")});
    Buses buses;
    std::istringstream lines(Decoded(words));
    for (std::string line; std::getline(lines, line);) {
      const std::size_t colon = line.find(": ");
      buses[nodes.at(line.substr(0, colon))] += line.substr(colon + 2) + "\n";
    }
    return buses;
  }

  SimulatorRun run_;
};

struct ModuleRow {
  const char* type;
  const char* slot;
  const char* i2cNode;  // of its expander; empty: it has none
};
std::ostream& operator<<(std::ostream& out, const ModuleRow& row) { return out << row.type; }

class VcdOfUpdateTest : public VcdTest, public testing::WithParamInterface<ModuleRow> {};

INSTANTIATE_TEST_SUITE_P(Types,
                         VcdOfUpdateTest,
                         testing::Values(ModuleRow{"wend", "1", ""},
                                         ModuleRow{"dax", "2", "i2c_11"},
                                         ModuleRow{"pyx1", "4", "i2c_4"},
                                         ModuleRow{"pyx2", "5", "i2c_5"}),
                         [](const auto& row) { return std::string(row.param.type); });

// The other modules are plugged in too: nothing is on their buses. A high cost of messages makes it
// fewer of them that ask whether the chip is ready.
TEST_P(VcdOfUpdateTest, HasEveryByteOfTheLogAndNoOther) {
  const std::string type = GetParam().type;
  const std::string slot = GetParam().slot;
  const std::string old = Image(type, 2023);
  const std::string image = Image(type, 2024);
  run_.WriteFile("flash.bin", old);
  run_.WriteFile("image.bin", image);
  run_.Option("--message-cost 2000");
  for (const std::string module : {"wend@1", "dax@2", "pyx1@4", "pyx2@5"}) {
    run_.Option("--module " + module + (module.starts_with(type) ? ",flash=flash.bin" : ""));
  }
  const SimulatorOutcome outcome =
      run_.Shell("exec " TARNWICK_BINARY " " + type + " -sf " + slot + " image.bin");
  ASSERT_EQ(outcome.status, 0);

  const Buses expected = BusesByLog(outcome.log, WireByLog(old, image));
  const std::string spiNode = "spidev" + slot + "_0";
  if (const std::string i2cNode = GetParam().i2cNode; !i2cNode.empty()) {
    EXPECT_THAT(expected.at(i2cNode), HasSubstr("\nStart repeat\nRead\n"));
  }
  EXPECT_THAT(expected.at(spiNode), HasSubstr("00 20 BA 18\n9F 00 00 00\n"));
  EXPECT_THAT(expected.at(spiNode), HasSubstr("\nD8 00 00 00\n"));
  EXPECT_THAT(expected.at(spiNode), HasSubstr("\n02 00 02 00 " + Hex(image.substr(0x200)) + "\n"));
  EXPECT_THAT(expected.at(spiNode), HasSubstr("\n00 00 00 00 " + Hex(old.substr(0, 256)) + " "));
  const Buses decoded = DecodedBuses(kFlashDecoder);
  EXPECT_EQ(decoded.size(), expected.size());
  for (const auto& [node, lines] : expected) {
    EXPECT_EQ(decoded.count(node) == 0 ? "" : decoded.at(node), lines) << node;
  }
}

// --- Probes -------------------------------------------------------------------------------------

constexpr const char* kOwnFlash = "ofstream /sys/platform_m1/qspi_prg/value 1";
constexpr const char* kOpenSpi = "open /dev/spidev1.0 +";

TEST_F(VcdTest, DecoderOfFlashChipsKnowsTheCommandsOfTheLog) {
  run_.Option("--module wend@1,chip=macronix");
  const SimulatorOutcome outcome =
      run_.Probe({kOwnFlash,       kOpenSpi,           "spi 0 9f 3", "spi 0 06 0",
                  "spi 0 05 1",    "spi 0 04 0",       "spi 0 06 0", "spi 0 0140 0",
                  "usleep 100000", "spi 0 05 1",       "spi 0 06 0", "spi 0 02123456616263 0",
                  "usleep 10000",  "spi 0 03123455 5", "spi 0 06 0", "spi 0 20fed000 0",
                  "sleep 1",       "spi 0 06 0",       "spi 0 c7 0", "sleep 60",
                  "spi 0 06 0",    "spi 0 60 0",       "spi 0 05 1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.log, HasSubstr(" RDID = c2 20 18\n"));
  EXPECT_THAT(outcome.log, HasSubstr(" WRSR 40\n"));
  EXPECT_THAT(outcome.log, HasSubstr(" PP 0x123456 +3\n"));
  EXPECT_THAT(outcome.log, HasSubstr(" READ 0x123455 +5\n"));
  EXPECT_THAT(outcome.log, HasSubstr(" SSE 0xfed000\n"));
  EXPECT_THAT(outcome.log, HasSubstr(" CE\n"));
  EXPECT_EQ(
      Decoded({"-P", Spi("spidev1_0") + kFlashDecoder, "-A", "spiflash=commands:fields:warnings"}),
      "spiflash-1: Command: Read identification (RDID)\n"
      "spiflash-1: Manufacturer ID: 0xc2\n"
      "spiflash-1: Memory type: 0x20\n"
      "spiflash-1: Device ID: 0x18\n"
      "spiflash-1: Read identification (RDID): Device = Macronix Unknown\n"
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Read status register (RDSR)\n"
      "spiflash-1: Status register\n"
      "spiflash-1: Command: Read status register (RDSR)\n"
      "spiflash-1: Command: Write disable (WRDI)\n"
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Write status register (WRSR)\n"
      "spiflash-1: Status register 1\n"
      "spiflash-1: Command: Read status register (RDSR)\n"
      "spiflash-1: Status register\n"
      "spiflash-1: Command: Read status register (RDSR)\n"
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Page program (PP)\n"
      "spiflash-1: Address: 0x123456\n"
      "spiflash-1: Data (3 bytes)\n"
      "spiflash-1: Page program (addr 0x123456, 3 bytes): 61 62 63\n"
      "spiflash-1: Command: Read data (READ)\n"
      "spiflash-1: Address: 0x123455\n"
      "spiflash-1: Data (5 bytes)\n"
      "spiflash-1: Read data (addr 0x123455, 5 bytes): ff 61 62 63 ff\n"
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Sector erase (SE)\n"
      "spiflash-1: Address: 0xfed000\n"
      "spiflash-1: Erase sector 16699392 (0xfed000)\n"
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Chip erase (CE2)\n"  // 0xc7
      "spiflash-1: Command: Write enable (WREN)\n"
      "spiflash-1: Command: Chip erase (CE)\n"  // 0x60
      "spiflash-1: Command: Read status register (RDSR)\n"
      "spiflash-1: Status register\n"
      "spiflash-1: Command: Read status register (RDSR)\n");
}

// Nothing is shortened: a sample is a nanosecond.
TEST_F(VcdTest, TimesAreThoseOfTheInstrument) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers look at the clock";
  }
  constexpr int kLongerThanAnyPause = 1'000'000;
  run_.Option("--module pyx2@5");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/spidev5.0 +",
                                               "open /dev/i2c-5 +",
                                               "spi 0 9f 3",
                                               "spi 0 06 0",
                                               "i2c 1 33 00 1",
                                               "usleep 50"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(Decoded({"-P",
                     Spi("spidev5_0"),
                     "-P",
                     I2c("i2c_5"),
                     "-A",
                     "spi=mosi-transfer,i2c=addr-data",
                     "--protocol-decoder-samplenum"},
                    kLongerThanAnyPause),
            "20000-21686 spi-1: 9F 00 00 00\n"
            "41686-42108 spi-1: 06\n"
            "49608-49608 i2c-1: Start\n"
            "127108-137108 i2c-1: Write\n"
            "57108-127108 i2c-1: Address write: 21\n"
            "137108-147108 i2c-1: ACK\n"
            "147108-227108 i2c-1: Data write: 00\n"
            "227108-237108 i2c-1: ACK\n"
            "239608-239608 i2c-1: Start repeat\n"
            "317108-327108 i2c-1: Read\n"
            "247108-317108 i2c-1: Address read: 21\n"
            "327108-337108 i2c-1: ACK\n"
            "337108-417108 i2c-1: Data read: 12\n"
            "417108-427108 i2c-1: NACK\n"
            "429608-429608 i2c-1: Stop\n");
}

TEST_F(VcdTest, MessagesThatFollowEachOtherAtOnceHaveAChipSelectEach) {
  run_.Option("--message-cost 0 --module wend@1");
  EXPECT_EQ(run_.Probe({kOwnFlash, kOpenSpi, "spi 0 06 0", "spi 0 05 1", "spi 0 04 0"}).status, 0);
  EXPECT_EQ(DecodedBuses(), (Buses{{"spidev1_0", "00\n06\n00 02\n05 00\n00\n04\n"}}));
}

TEST_F(VcdTest, LostMessagesAndTransfersAreOnNoBus) {
  run_.Option("--module pyx2@5 --fault spi:WREN#2:lost --fault i2c#2:lost");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/spidev5.0 +",
                                               "open /dev/i2c-5 +",
                                               "spi 0 06 0",
                                               "spi 0 06 0",
                                               "spi 0 04 0",
                                               "i2c 1 33 00 2",
                                               "i2c 1 33 00 2",
                                               "i2c 1 33 06 2"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(DecodedBuses(),
            (Buses{{"spidev5_0", "00\n06\n00\n04\n"},
                   {"i2c_5",
                    "Start\nWrite\nAddress write: 21\nACK\nData write: 00\nACK\n"
                    "Start repeat\nRead\nAddress read: 21\nACK\n"
                    "Data read: 12\nACK\nData read: 02\nNACK\nStop\n"
                    "Start\nWrite\nAddress write: 21\nACK\nData write: 06\nACK\n"
                    "Start repeat\nRead\nAddress read: 21\nACK\n"
                    "Data read: FF\nACK\nData read: FF\nNACK\nStop\n"}}));
}

TEST_F(VcdTest, AddressThatIsNotAcknowledgedIsOnTheBus) {
  run_.Option("--module dax@2");
  const SimulatorOutcome outcome = run_.Probe({"open /dev/i2c-2 +", "i2c 0 34 06ff 2"});
  EXPECT_THAT(outcome.log, HasSubstr("i2c /dev/i2c-2 0x22 w 06 ff r +2 = ENXIO\n"));
  EXPECT_EQ(DecodedBuses(), (Buses{{"i2c_2", "Start\nWrite\nAddress write: 22\nNACK\nStop\n"}}));
}

}  // namespace
}  // namespace orvane
