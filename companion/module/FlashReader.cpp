#include "companion/module/FlashReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "companion/image/Hex.h"
#include "companion/image/ImageFile.h"
#include "devices/SPIDev.h"
#include "flash/NorCommands.h"

namespace companion {

namespace {

constexpr std::size_t kBlockBytes = nor::kSubsectorBytes;

// Kernels compare the driver's buffer size with what a message sends and receives, each by itself or
// both together, and round each transfer's length up before, to 64 or 128 bytes. So this much is
// left for the command.
constexpr std::size_t kCommandRoom = 256;
constexpr std::size_t kLeastTransferLimit = 512;
/// At the slowest usual clock of 1 MHz such a message takes half a second: a stop is seen soon.
constexpr std::size_t kLongestMessage = std::size_t{64} * 1024;

/// How far a second reading of uniform messages begins before them and ends behind them. What is
/// known to be there shows that its messages were not lost.
constexpr std::size_t kContextBytes = nor::kPageBytes;
/// What a message that is lost on its way reads as.
constexpr std::uint8_t kLost = 0x00;

constexpr std::size_t kWitnessBytes = 16;

/// How many readings of a block in a row must agree, the first of all included, and how often it is
/// read again at most. One reading that goes wrong leaves three that agree.
constexpr int kAgreeingReadings = 3;
constexpr int kMostReadingsAgain = 5;

std::size_t MessageBytes(std::size_t transferLimit) {
  if (transferLimit < kLeastTransferLimit) {
    throw StepFailed("the SPI driver's buffer of " + std::to_string(transferLimit) +
                     " bytes is too small");
  }
  const std::size_t bytes = std::min(transferLimit - kCommandRoom, kLongestMessage);
  return bytes < kBlockBytes ? bytes : bytes / kBlockBytes * kBlockBytes;
}

bool IsUniform(std::span<const std::uint8_t> bytes) {
  return std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

std::ptrdiff_t Offset(std::size_t bytes) { return static_cast<std::ptrdiff_t>(bytes); }

std::size_t BlocksOf(std::size_t bytes) { return (bytes + kBlockBytes - 1) / kBlockBytes; }

/// Marks the blocks in which two contents differ.
void MarkDifferences(std::span<const std::uint8_t> contents,
                     std::span<const std::uint8_t> expected,
                     std::vector<bool>& differs) {
  for (std::size_t block = 0; block < differs.size(); ++block) {
    const std::size_t at = block * kBlockBytes;
    const std::size_t bytes = std::min(kBlockBytes, contents.size() - at);
    if (std::memcmp(contents.data() + at, expected.data() + at, bytes) != 0) {
      differs[block] = true;
    }
  }
}

}  // namespace

FlashReader::FlashReader(SPIDev& spi, const Interruption& interruption, Advance advance)
    : spi_(spi),
      interruption_(interruption),
      advance_(std::move(advance)),
      messageBytes_(MessageBytes(spi.GetMaxTransferSize())) {}

FlashReader::Result FlashReader::Read(std::span<std::uint8_t> contents,
                                      std::span<const std::uint8_t> expected) {
  if (contents.empty()) {
    return {};
  }
  std::vector<bool> differs(BlocksOf(contents.size()));
  const std::vector<Range> messages = ReadRange(0, contents, false);
  if (expected.empty()) {
    std::vector<std::uint8_t> second(contents.size());
    ReadRange(0, second, true);
    MarkDifferences(contents, second, differs);
  } else {
    MarkDifferences(contents, expected, differs);
    ReadUniformAgain(messages, contents, differs);
  }
  Result result = ReadAgain(contents, expected, differs);
  if (!result.unsteadyAddress) {
    result.looksSilent = !Witness(contents);
  }
  return result;
}

void FlashReader::Message(std::size_t address, std::span<std::uint8_t> bytes) {
  std::array<std::uint8_t, nor::kHeaderBytes> command = {nor::kRead,
                                                         static_cast<std::uint8_t>(address >> 16),
                                                         static_cast<std::uint8_t>(address >> 8),
                                                         static_cast<std::uint8_t>(address)};
  for (int attempt = 0; attempt < kTries; ++attempt) {
    interruption_.Check();
    if (spi_.read(bytes.data(), bytes.size(), command.data(), command.size()) ==
        static_cast<int>(bytes.size())) {
      advance_(bytes.size());
      return;
    }
  }
  throw StepFailed("cannot read the flash at address " + HexAddress(address));
}

std::vector<FlashReader::Range> FlashReader::ReadRange(std::size_t address,
                                                       std::span<std::uint8_t> bytes,
                                                       bool shifted) {
  std::vector<Range> messages;
  std::size_t longest = shifted ? messageBytes_ / 2 : messageBytes_;
  for (std::size_t done = 0; done < bytes.size(); done += messages.back().bytes) {
    messages.push_back({address + done, std::min(longest, bytes.size() - done)});
    Message(messages.back().address, bytes.subspan(done, messages.back().bytes));
    longest = messageBytes_;
  }
  return messages;
}

void FlashReader::ReadUniformAgain(const std::vector<Range>& messages,
                                   std::span<const std::uint8_t> contents,
                                   std::vector<bool>& differs) {
  for (auto message = messages.begin(); message != messages.end();) {
    const auto end = EndOfUniform(message, messages.end(), contents);
    if (end == message) {
      ++message;
      continue;
    }
    const std::size_t begin = message->address - std::min(message->address, kContextBytes);
    const std::size_t behind =
        std::min((end - 1)->address + (end - 1)->bytes + kContextBytes, contents.size());
    const Range run = {begin, behind - begin};
    Confirm(run, true, contents, differs);
    if (end - message > 1 && contents[message->address] == kLost) {
      Confirm(run, false, contents, differs);
    }
    message = end;
  }
}

/// @return behind the messages from this one on that all read as the same byte; this one when it
///         does not
std::vector<FlashReader::Range>::const_iterator FlashReader::EndOfUniform(
    std::vector<Range>::const_iterator message,
    std::vector<Range>::const_iterator end,
    std::span<const std::uint8_t> contents) {
  const std::uint8_t value = contents[message->address];
  return std::find_if_not(message, end, [&](const Range& next) {
    const auto bytes = contents.subspan(next.address, next.bytes);
    return bytes.front() == value && IsUniform(bytes);
  });
}

/// Reads a range again and marks the blocks that read differently now.
void FlashReader::Confirm(Range run,
                          bool shifted,
                          std::span<const std::uint8_t> contents,
                          std::vector<bool>& differs) {
  std::vector<std::uint8_t> again(run.bytes);
  ReadRange(run.address, again, shifted);
  for (std::size_t at = 0; at < run.bytes;) {
    const std::size_t block = (run.address + at) / kBlockBytes;
    const std::size_t bytes =
        std::min((block + 1) * kBlockBytes - run.address - at, run.bytes - at);
    if (std::memcmp(again.data() + at, contents.data() + run.address + at, bytes) != 0) {
      differs[block] = true;
    }
    at += bytes;
  }
}

FlashReader::Result FlashReader::ReadAgain(std::span<std::uint8_t> contents,
                                           std::span<const std::uint8_t> expected,
                                           const std::vector<bool>& differs) {
  Result result;
  for (std::size_t block = 0; block < differs.size(); ++block) {
    if (!differs[block]) {
      continue;
    }
    const std::size_t at = block * kBlockBytes;
    const std::span<std::uint8_t> bytes =
        contents.subspan(at, std::min(kBlockBytes, contents.size() - at));
    ++result.blocksReadAgain;
    if (!Settle(at, bytes)) {
      result.unsteadyAddress = static_cast<std::uint32_t>(at);
      return result;
    }
    if (!expected.empty() &&
        !std::equal(bytes.begin(), bytes.end(), expected.begin() + Offset(at))) {
      return result;  // one block is proof enough that the contents differ
    }
  }
  return result;
}

bool FlashReader::Settle(std::size_t address, std::span<std::uint8_t> bytes) {
  std::vector<std::uint8_t> now(bytes.size());
  int agreeing = 1;
  for (int again = 0; again < kMostReadingsAgain; ++again) {
    ReadRange(address, now, again % 2 != 0);
    agreeing = std::equal(now.begin(), now.end(), bytes.begin()) ? agreeing + 1 : 1;
    std::copy(now.begin(), now.end(), bytes.begin());
    if (agreeing == kAgreeingReadings) {
      return true;
    }
  }
  return false;
}

bool FlashReader::Witness(std::span<const std::uint8_t> contents) {
  const auto change = std::adjacent_find(contents.begin(), contents.end(), std::not_equal_to<>());
  if (change == contents.end()) {
    // The identification afterwards shows that the line can be low; zeros need a proof of their own.
    return contents.front() != 0 || ReadsDifferentBytesElsewhere(contents.front());
  }
  const auto at = static_cast<std::size_t>(change - contents.begin());
  const std::size_t begin = at - std::min(at, kWitnessBytes / 2);
  const auto known = contents.subspan(begin, std::min(kWitnessBytes, contents.size() - begin));
  std::array<std::uint8_t, kWitnessBytes> buffer;
  const auto now = std::span(buffer).first(known.size());
  for (int attempt = 0; attempt < kTries; ++attempt) {
    Message(begin, now);
    if (std::equal(now.begin(), now.end(), known.begin())) {
      return true;
    }
  }
  throw StepFailed("the flash no longer reads at address " + HexAddress(begin) +
                   " as it did before");
}

bool FlashReader::ReadsDifferentBytesElsewhere(std::uint8_t value) {
  std::array<std::uint8_t, kWitnessBytes> buffer;
  for (std::size_t at = 0; at < kFlashBytes; at += nor::kSectorBytes) {
    Message(at, buffer);
    if (std::any_of(
            buffer.begin(), buffer.end(), [&](std::uint8_t byte) { return byte != value; })) {
      return true;
    }
  }
  return false;
}

}  // namespace companion
