// What the SPI driver's buffer size makes of an update: how the flash is read and written in
// pieces. Every test compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>

#include "tests/e2e/ExpanderProgram.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/WendProgram.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

const std::string kParameter = "/sys/module/spidev/parameters/bufsiz";
constexpr int kImageBytes = 600;  // two pages and 88 bytes
constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();

Lines ParameterRead(const std::string& text) {
  return {"open " + kParameter + " O_RDONLY",
          "read " + kParameter + " \"" + text + "\\n\"",
          "close " + kParameter};
}

/// The same log with one run of lines replaced, wherever it occurs.
Lines Replaced(const Lines& log, const Lines& old, const Lines& replacement) {
  Lines result;
  auto from = log.begin();
  for (;;) {
    const auto found = std::search(from, log.end(), old.begin(), old.end());
    result.insert(result.end(), from, found);
    if (found == log.end()) {
      break;
    }
    result.insert(result.end(), replacement.begin(), replacement.end());
    from = found + static_cast<std::ptrdiff_t>(old.size());
  }
  if (result == log && old != replacement) {
    throw std::logic_error("nothing to replace: " + old.front());
  }
  return result;
}

struct Limit {
  const char* name;
  const char* option;  // of --bufsiz
  Lines asked;         // of the parameter
  std::size_t bytes;   // the longest transfer
};

std::ostream& operator<<(std::ostream& out, const Limit& limit) { return out << limit.name; }

Limit Number(const char* name, const char* text, std::size_t bytes) {
  return {name, text, ParameterRead(text), bytes};
}

Limit Refused(const char* name, const char* text) {
  return {name,
          text,
          Join({ParameterRead(text), ErrorLine(std::string("Can't convert bufsiz: ") + text)}),
          4096};
}

/// The limits with which an update succeeds.
const auto kSufficient = testing::Values(Limit{"Missing",
                                               "none",
                                               Join({{"open " + kParameter + " O_RDONLY = ENOENT"},
                                                     ErrorLine("Can't open: " + kParameter)}),
                                               4096},
                                         Refused("Letters", "abc"),
                                         Refused("BeyondAllNumbers", "99999999999999999999"),
                                         Number("EmptyLine", "", 4096),
                                         Number("BlanksAndUnit", "  8192 kB", 8192),
                                         Number("NoMultipleOfAPage", "300", 300),
                                         Number("OneByteLessThanAnExpanderDump", "511", 511),
                                         Number("TwoPages", "512", 512),
                                         Number("OneByteLessThanAZynqDump", "4095", 4095),
                                         Number("Default", "4096", 4096),
                                         Number("OneSector", "65536", 65'536),
                                         Number("OneTebibyte", "1099511627776", 1ULL << 40),
                                         Number("Negative", "-1", kWhole));

/// The flash read from address 0 into a file, in transfers of the largest size.
Lines ReadInPieces(const std::string& spi, const std::string& file, int bytes, std::size_t limit) {
  Lines lines;
  for (int at = 0; at < bytes;) {
    const int size = static_cast<int>(std::min(limit, static_cast<std::size_t>(bytes - at)));
    char address[16];
    static_cast<void>(std::snprintf(address, sizeof address, "0x%06x", static_cast<unsigned>(at)));
    lines.push_back(spi + "READ " + address + " +" + std::to_string(size));
    lines.push_back("write " + file + " +" + std::to_string(size));
    at += size;
  }
  return lines;
}

/// The image in pieces of the largest size, each in pages from where it starts.
Lines WriteInPieces(std::size_t limit, int slot) {
  Lines lines;
  for (int at = 0; at < kImageBytes;) {
    const int size = static_cast<int>(std::min(limit, static_cast<std::size_t>(kImageBytes - at)));
    lines = Join({lines, Program(size, slot, at)});
    at += size;
  }
  return lines;
}

/// What that leaves in the flash: a page program wraps within its page and only clears bits.
Bytes FlashedInPieces(const Bytes& image, const Bytes& before, std::size_t limit) {
  Bytes flash = Flashed(image, before);
  std::fill_n(flash.begin(), image.size(), 0xFF);
  for (std::size_t piece = 0; piece < image.size();) {
    const std::size_t end = image.size() - piece > limit ? piece + limit : image.size();
    for (std::size_t at = piece; at < end; ++at) {
      const std::size_t start = piece + (at - piece) / 256 * 256;
      flash[start / 256 * 256 + at % 256] &= image[at];
    }
    piece = end;
  }
  return flash;
}

/// Pages whose command does not fit into the driver's buffer; the last piece does.
Lines RefusedPages(int slot) {
  const std::string node = "/dev/spidev" + std::to_string(slot) + ".0";
  Lines lines;
  for (const char* page : {"0x000000", "0x000100"}) {
    lines =
        Join({lines,
              {"spi " + node + " WREN", "spi " + node + " PP " + page + " +256 = EMSGSIZE"},
              ErrorLine("SpiDev::Write() SPI_IOC_MESSAGE error, errno = Message too long file: " +
                        node)});
  }
  return Join({lines, Program(88, slot, 512)});
}

/// What is left of the image when its first two pages are refused.
Bytes LastPage(const Bytes& image) {
  Bytes contents = image;
  std::fill_n(contents.begin(), 512, 0xFF);
  return contents;
}

/// No three bytes fit: the flash cannot be identified.
Lines RefusedIdentification(const Lines& log, int slot) {
  const std::string spi = "spi /dev/spidev" + std::to_string(slot) + ".0 ";
  return Replaced(log,
                  {spi + "RDID = 20 ba 18",
                   R"(stdout "Flash Manufacturer ID   : 0x20\n")",
                   R"(stdout "Flash Memory Type       : 0xba\n")",
                   R"(stdout "Flash Memory Capacity   : 0x18\n")"},
                  Join({{spi + "RDID = EMSGSIZE"},
                        ErrorLine("SpiDev::Read() SPI_IOC_MESSAGE error, errno = 90")}));
}

// --- wend

class WendTransferLimitTest : public wend::WendProgram {
 protected:
  void PlugInWith(const std::string& limit) {
    instrument_.Option({"--bufsiz", limit});
    PlugIn();
  }

  static Lines Adapted(const Lines& log, const Lines& asked, std::size_t limit) {
    Lines lines = Replaced(log, ParameterRead("4096"), asked);
    for (const char* scratch : {"./FlashDevice.bin", "./FlashDevice_verif.bin"}) {
      const std::string spi = "spi /dev/spidev1.0 ";
      const Lines whole = ReadInPieces(spi, scratch, 4096, 4096);
      if (std::search(lines.begin(), lines.end(), whole.begin(), whole.end()) != lines.end()) {
        lines = Replaced(lines, whole, ReadInPieces(spi, scratch, 4096, limit));
      }
    }
    return lines;
  }
};

class WendSufficientLimitTest : public WendTransferLimitTest,
                                public testing::WithParamInterface<Limit> {};

TEST_P(WendSufficientLimitTest, CutsReadsAndWritesIntoPieces) {
  const Limit& limit = GetParam();
  PlugInWith(limit.option);
  const Lines log = Join({wend::Decide(),
                          wend::UpdateSteps(),
                          wend::FinalSteps(20),
                          wend::kDone,
                          wend::End(kSuccess, 0)});
  ExpectUpdate(0,
               Replaced(Adapted(log, limit.asked, limit.bytes),
                        Program(kImageBytes),
                        WriteInPieces(limit.bytes, 1)));
  ExpectFlash(FlashedInPieces(image_, old_, limit.bytes));
}

INSTANTIATE_TEST_SUITE_P(Limits, WendSufficientLimitTest, kSufficient, [](const auto& row) {
  return std::string(row.param.name);
});

TEST_F(WendTransferLimitTest, LimitThatCannotBeReadCountsAs4096WithoutAWord) {
  Fault("read:" + kParameter + ":EIO");
  PlugIn();
  ExpectUpdate(0,
               Replaced(Join({wend::Decide(),
                              wend::UpdateSteps(),
                              wend::FinalSteps(20),
                              wend::kDone,
                              wend::End(kSuccess, 0)}),
                        {"read " + kParameter + " \"4096\\n\""},
                        {"read " + kParameter + " = EIO"}));
  ExpectFlash(Flashed(image_, old_));
}

TEST_F(WendTransferLimitTest, LimitOfOnePageRefusesEveryFullPage) {
  PlugInWith("256");
  const Lines log =
      Join({wend::Decide(), wend::EraseStep(), wend::ProgramStep(), wend::End(kProgramFailed, 6)});
  ExpectUpdate(
      6,
      Replaced(
          Replaced(Adapted(log, ParameterRead("256"), 256), Program(kImageBytes), RefusedPages(1)),
          Join({{"close image.bin"}, wend::kDone}),
          {"close image.bin"}));
  ExpectFlash(Flashed(LastPage(image_), old_));
}

TEST_F(WendTransferLimitTest, LimitOfOneByteRefusesTheIdentification) {
  PlugInWith("1");
  ExpectUpdate(1,
               RefusedIdentification(Replaced(Join({wend::Connect(), wend::End(kConnectFailed, 1)}),
                                              ParameterRead("4096"),
                                              ParameterRead("1")),
                                     1));
  ExpectFlashUntouched();
}

TEST_F(WendTransferLimitTest, LimitOfZeroFailsTheDump) {
  PlugInWith("0");
  ExpectUpdate(1,
               Join({Replaced(wend::Connect(), ParameterRead("4096"), ParameterRead("0")),
                     {"open ./FlashDevice.bin O_WRONLY|O_CREAT 0600",
                      R"(stdout "Reading flash...")",
                      "close ./FlashDevice.bin"},
                     ErrorLine("ERROR: Can't read Flash device !"),
                     wend::End(kConnectFailed, 1)}));
  ExpectFlashUntouched();
}

// --- The modules behind an expander

class ExpanderTransferLimit : public expander::ExpanderProgram {
 protected:
  using ExpanderProgram::ExpanderProgram;

  void PlugInWith(const std::string& limit) {
    instrument_.Option({"--bufsiz", limit});
    PlugIn();
  }

  Lines Adapted(const Lines& log, const Lines& asked, std::size_t limit) const {
    const std::string spi = "spi /dev/spidev" + Slot() + ".0 ";
    return Replaced(Replaced(log, ParameterRead("4096"), asked),
                    ReadInPieces(spi, "dumpflash.bin", 512, 4096),
                    ReadInPieces(spi, "dumpflash.bin", 512, limit));
  }
};

class ExpanderSufficientLimitTest
    : public ExpanderTransferLimit,
      public testing::WithParamInterface<std::tuple<expander::Board, Limit>> {
 protected:
  ExpanderSufficientLimitTest() : ExpanderTransferLimit(std::get<0>(GetParam())) {}
};

TEST_P(ExpanderSufficientLimitTest, CutsReadsAndWritesIntoPieces) {
  const Limit& limit = std::get<1>(GetParam());
  PlugInWith(limit.option);
  const Lines log = Join({Decide(), Rewrite(), Restart(), End(FinalDirections(), kSuccess, 0)});
  ExpectUpdate(0,
               Replaced(Adapted(log, limit.asked, limit.bytes),
                        Program(kImageBytes, board_.slot),
                        WriteInPieces(limit.bytes, board_.slot)));
  ExpectFlash(FlashedInPieces(image_, old_, limit.bytes));
}

const auto kBoards = testing::Values(expander::kDax, expander::kPyx1, expander::kPyx2);

INSTANTIATE_TEST_SUITE_P(Limits,
                         ExpanderSufficientLimitTest,
                         testing::Combine(kBoards, kSufficient),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

class ExpanderTransferLimitTest : public ExpanderTransferLimit,
                                  public testing::WithParamInterface<expander::Board> {
 protected:
  ExpanderTransferLimitTest() : ExpanderTransferLimit(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Boards, ExpanderTransferLimitTest, kBoards, [](const auto& row) {
  return std::string(row.param.word);
});

TEST_P(ExpanderTransferLimitTest, LimitOfOnePageRefusesEveryFullPage) {
  PlugInWith("256");
  const Lines log = Join({Decide(),
                          Rewrite(),
                          IsPyx() ? Pcie() : CloseCheck(),
                          End(board_.directions, kProgramFailed, 6)});
  ExpectUpdate(6,
               Replaced(Replaced(Adapted(log, ParameterRead("256"), 256),
                                 Program(kImageBytes, board_.slot),
                                 RefusedPages(board_.slot)),
                        Join({{"close image.bin"}, Console("done.")}),
                        {"close image.bin"}));
  ExpectFlash(Flashed(LastPage(image_), old_));
}

TEST_P(ExpanderTransferLimitTest, LimitOfOneByteRefusesTheIdentification) {
  PlugInWith("1");
  const Lines log = Join({Connect(),
                          Drive(board_.routed, board_.released),
                          Pcie(),
                          End(board_.directions, kConnectFailed, 1)});
  ExpectUpdate(
      1,
      RefusedIdentification(Replaced(log, ParameterRead("4096"), ParameterRead("1")), board_.slot));
  ExpectFlashUntouched();
}

// The dump is missing and nothing of the image is read: the flash stays as it is.
TEST_P(ExpanderTransferLimitTest, LimitOfZeroWritesNothing) {
  PlugInWith("0");
  const Outcome outcome = Update();
  ExpectExitCode(outcome, IsPyx2() ? 134 : 0);
  ExpectTrafficContains(outcome, " SE ", false);
  ExpectTrafficContains(outcome, " PP ", false);
  ExpectFlashUntouched();
}

}  // namespace
