// How the SPI driver's buffer size affects an update: the flash is read and written in pieces of
// it. Every test compares console, exit code, the whole log and the flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <string>
#include <tuple>

#include "tests/e2e/Judgement.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"

namespace {

using namespace program_test;
using namespace program_test::run_log;

const std::string kParameter = "/sys/module/spidev/parameters/bufsiz";
constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();

struct Limit {
  const char* name;
  const char* option;            // of --bufsiz
  Lines asked;                   // of the parameter
  std::size_t bytes;             // the longest transfer
  const char* alignment = "64";  // of --spi-alignment: ARM's
};

std::ostream& operator<<(std::ostream& out, const Limit& limit) { return out << limit.name; }

Limit Number(const char* name, const char* text, std::size_t bytes) {
  return {name, text, BufferSizeRead(text), bytes};
}

Limit Refused(const char* name, const char* text) {
  return {name,
          text,
          Join({BufferSizeRead(text), ErrorLine(std::string("Can't convert bufsiz: ") + text)}),
          4096};
}

/// A driver that does not round the lengths of transfers up.
Limit Unrounded(Limit limit) {
  limit.alignment = "1";
  return limit;
}

/// The limits with which an update succeeds.
const auto kSufficient =
    testing::Values(Limit{"Missing",
                          "none",
                          Join({{"open " + kParameter + " O_RDONLY = ENOENT"},
                                ErrorLine("Can't open: " + kParameter)}),
                          4096},
                    Refused("Letters", "abc"),
                    Refused("BeyondAllNumbers", "99999999999999999999"),
                    Number("EmptyLine", "", 4096),
                    Number("BlanksAndUnit", "  8192 kB", 8192),
                    Unrounded(Number("NoMultipleOfAPage", "300", 300)),
                    Number("RoundedCommandOfAPage", "320", 320),
                    Unrounded(Number("OneByteLessThanAnExpanderDump", "511", 511)),
                    Number("TwoPages", "512", 512),
                    Unrounded(Number("OneByteLessThanAZynqDump", "4095", 4095)),
                    Number("Default", "4096", 4096),
                    Number("OneSector", "65536", 65'536),
                    Number("OneTebibyte", "1099511627776", 1ULL << 40),
                    Number("Negative", "-1", kWhole));

/// The flash read from address 0 into a file, in transfers of the largest size.
Lines ReadInPieces(int slot, const std::string& file, int bytes, std::size_t limit) {
  Lines lines;
  for (int at = 0; at < bytes;) {
    const int size = static_cast<int>(std::min(limit, static_cast<std::size_t>(bytes - at)));
    char read[64];
    static_cast<void>(std::snprintf(
        read, sizeof read, "spi /dev/spidev%d.0 READ 0x%06x +%d", slot, unsigned(at), size));
    lines.emplace_back(read);
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

/// The flash after that: a page program wraps within its page and only clears bits.
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

class TransferLimit : public ProgramTest {
 protected:
  using ProgramTest::ProgramTest;

  void PlugInWith(const std::string& limit, const std::string& alignment = "64") {
    instrument_.Option({"--bufsiz", limit, "--spi-alignment", alignment});
    PlugIn();
  }

  /// A log of the default limit, changed to another limit.
  Lines Adapted(Lines log, const Limit& limit) const {
    log = Replaced(log, BufferSizeRead("4096"), limit.asked);
    log = Replaced(log, Program(kImageBytes, board_.slot), WriteInPieces(limit.bytes, board_.slot));
    for (const std::string& file : IsWend() ? Lines{"./FlashDevice.bin", "./FlashDevice_verif.bin"}
                                            : Lines{"dumpflash.bin"}) {
      const int bytes = IsWend() ? 4096 : 512;
      log = Replaced(log,
                     ReadInPieces(board_.slot, file, bytes, 4096),
                     ReadInPieces(board_.slot, file, bytes, limit.bytes));
    }
    return log;
  }

  void ExpectCutIntoPieces(const Limit& limit) {
    PlugInWith(limit.option, limit.alignment);
    ExpectUpdate(0, Adapted(Log("micron-rewritten"), limit));
    ExpectFlash(FlashedInPieces(image_, old_, limit.bytes));
  }

  /// The pages whose command does not fit into the driver's buffer; the last piece does.
  void ExpectLimitOfOnePage() {
    PlugInWith("256");
    ExpectUpdate(6, "limit-of-256");
    ExpectFlashRewrittenBut(0, 512);
  }

  /// No three bytes fit: the flash cannot be identified.
  void ExpectLimitOfOneByte() {
    PlugInWith("1", "1");
    ExpectUpdate(1, "limit-of-1");
    ExpectFlashUntouched();
  }
};

// --- wend

class WendTransferLimitTest : public TransferLimit {
 protected:
  WendTransferLimitTest() : TransferLimit(kWend) {}
};

class WendSufficientLimitTest : public WendTransferLimitTest,
                                public testing::WithParamInterface<Limit> {};

TEST_P(WendSufficientLimitTest, CutsReadsAndWritesIntoPieces) { ExpectCutIntoPieces(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Limits, WendSufficientLimitTest, kSufficient, [](const auto& row) {
  return std::string(row.param.name);
});

TEST_F(WendTransferLimitTest, LimitThatCannotBeReadCountsAs4096WithoutAWord) {
  Fault("read:" + kParameter + ":EIO");
  PlugIn();
  ExpectUpdate(0, "unreadable-limit");
  ExpectFlashRewritten();
}

TEST_F(WendTransferLimitTest, LimitOfOnePageRefusesEveryFullPage) { ExpectLimitOfOnePage(); }

TEST_F(WendTransferLimitTest, LimitOfOneByteRefusesTheIdentification) { ExpectLimitOfOneByte(); }

// A driver that rounds lengths up refuses every piece of the limit that is no multiple of 64.
TEST_F(WendTransferLimitTest, LimitThatIsNoMultipleOfTheAlignmentFailsTheDump) {
  PlugInWith("300");
  ExpectUpdate(1, "limit-of-300");
  ExpectFlashUntouched();
}

TEST_F(WendTransferLimitTest, OneByteLessThanTheDumpFailsIt) {
  PlugInWith("4095");
  ExpectUpdate(1, "limit-of-4095");
  ExpectFlashUntouched();
}

TEST_F(WendTransferLimitTest, LimitOfZeroFailsTheDump) {
  PlugInWith("0");
  ExpectUpdate(1, "limit-of-0");
  ExpectFlashUntouched();
}

// --- The modules behind an expander

class ExpanderSufficientLimitTest : public TransferLimit,
                                    public testing::WithParamInterface<std::tuple<Board, Limit>> {
 protected:
  ExpanderSufficientLimitTest() : TransferLimit(std::get<0>(GetParam())) {}
};

TEST_P(ExpanderSufficientLimitTest, CutsReadsAndWritesIntoPieces) {
  ExpectCutIntoPieces(std::get<1>(GetParam()));
}

const auto kBoards = testing::Values(kDax, kPyx1, kPyx2);

INSTANTIATE_TEST_SUITE_P(Limits,
                         ExpanderSufficientLimitTest,
                         testing::Combine(kBoards, kSufficient),
                         [](const auto& row) {
                           return std::get<0>(row.param).word + std::string("_") +
                                  std::get<1>(row.param).name;
                         });

class ExpanderTransferLimitTest : public TransferLimit, public testing::WithParamInterface<Board> {
 protected:
  ExpanderTransferLimitTest() : TransferLimit(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Boards, ExpanderTransferLimitTest, kBoards, WordOf);

TEST_P(ExpanderTransferLimitTest, LimitOfOnePageRefusesEveryFullPage) { ExpectLimitOfOnePage(); }

TEST_P(ExpanderTransferLimitTest, LimitOfOneByteRefusesTheIdentification) {
  ExpectLimitOfOneByte();
}

// Neither the pieces of the dump fit nor the pages of the image.
TEST_P(ExpanderTransferLimitTest, LimitThatIsNoMultipleOfTheAlignmentRefusesDumpAndPages) {
  PlugInWith("300");
  ExpectUpdate(HasBootHeader() ? 134 : 6, "limit-of-300");
  if (HasBootHeader()) {
    ExpectFlashUntouched();
  } else {
    ExpectFlashErased();
  }
}

// The dump is empty, but the pages fit: those of a bitstream are written from each piece on.
TEST_P(ExpanderTransferLimitTest, OneByteLessThanTheDumpFailsItAlone) {
  PlugInWith("511");
  ExpectUpdate(HasBootHeader() ? 134 : 0, "limit-of-511");
  ExpectFlash(HasBootHeader() ? old_ : FlashedInPieces(image_, old_, 511));
}

// There is no dump, and nothing of the image is read: the flash stays as it is.
TEST_P(ExpanderTransferLimitTest, LimitOfZeroWritesNothing) {
  PlugInWith("0");
  ExpectUpdate(HasBootHeader() ? 134 : 0, "limit-of-0");
  ExpectFlashUntouched();
}

}  // namespace
