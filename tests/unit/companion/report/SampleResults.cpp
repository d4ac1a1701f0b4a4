#include "tests/unit/companion/report/SampleResults.h"

#include <string>

namespace companion::test {

namespace {

using std::chrono::milliseconds;

/// A SHA-256 with one digit only.
std::string Sum(char digit) {
  constexpr std::size_t kDigits = 64;
  return std::string(kDigits, digit);
}

}  // namespace

ReadingFacts PlainReading() {
  return {.bytes = 1000,
          .took = milliseconds(12),
          .found = {.chip = {.id = {0x20, 0xBA, 0x18}},
                    .done = DoneLine::kHigh,
                    .doneAfter = DoneLine::kHigh}};
}

UpdateResult WrittenWend() {
  UpdateResult result;
  result.exit = ExitCode::kDone;
  result.verdict = "The flash holds the image, and it was taken into use.";
  result.target = "wend";
  result.slot = 1;
  result.names = {.populated = true, .i2cBus = "i2c-1", .spiDev = "spidev1.0"};
  result.image = ImageFacts{.path = "new.bin",
                            .fileBytes = 700,
                            .fileSha256 = Sum('a'),
                            .bytes = 1000,
                            .sha256 = Sum('b'),
                            .stamp = "2024-05-06 07:08:09"};
  ReadingFacts before = PlainReading();
  before.found.difference = Difference{.firstAddress = 76, .expected = 1, .found = 2, .pages = 4};
  before.found.blocksReadAgain = 1;
  result.readings = {before, PlainReading()};
  result.notes = {"tarnwick ended with 6"};
  result.took = milliseconds(3456);
  result.holds = FlashHolds::kImage;
  result.inUse = InUse::kTaken;
  result.provenSha256 = Sum('b');
  result.written = true;
  result.attempts = 2;
  result.stampBefore = "2023-01-02 03:04:05";
  result.causes = {"attempt 1: no answer"};
  result.runs = {
      {.attempt = 1,
       .run = {.exitCode = 6, .out = "Programming operation failed.\n", .took = milliseconds(5)}},
      {.attempt = 2, .run = {.exitCode = 0, .out = "done\xFF\n", .took = milliseconds(6)}}};
  result.intoUse = {
      {.took = milliseconds(40), .found = {.done = DoneLine::kHigh, .seenLow = true}}};
  return result;
}

}  // namespace companion::test
