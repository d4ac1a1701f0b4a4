#include "companion/module/FlashReader.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

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

/// How far a second reading of a message begins before it.
constexpr std::size_t kShiftBytes = nor::kPageBytes;

constexpr std::size_t kWitnessBytes = 16;

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

std::size_t BlocksOf(std::size_t bytes) { return (bytes + kBlockBytes - 1) / kBlockBytes; }

std::string Hex(std::size_t address) {
  std::array<char, 16> text;
  static_cast<void>(std::snprintf(text.data(), text.size(), "0x%06zx", address));
  return text.data();
}

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
  const Result result = ReadAgain(contents, differs);
  if (!result.unsteadyAddress) {
    Witness(contents);
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
  throw StepFailed("cannot read the flash at address " + Hex(address));
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
  std::vector<std::uint8_t> buffer(messageBytes_ + kShiftBytes);
  for (const Range& message : messages) {
    const std::span<const std::uint8_t> first = contents.subspan(message.address, message.bytes);
    const auto firstBlock =
        differs.begin() + static_cast<std::ptrdiff_t>(message.address / kBlockBytes);
    const auto endBlock =
        differs.begin() + static_cast<std::ptrdiff_t>(BlocksOf(message.address + message.bytes));
    if (!IsUniform(first) || std::find(firstBlock, endBlock, false) == endBlock) {
      continue;  // what differs is read again in any case
    }
    const std::size_t shift = std::min(message.address, kShiftBytes);
    const auto second = std::span(buffer).first(shift + message.bytes);
    ReadRange(message.address - shift, second, true);
    if (std::memcmp(second.data() + shift, first.data(), first.size()) != 0) {
      std::fill(firstBlock, endBlock, true);
    }
  }
}

FlashReader::Result FlashReader::ReadAgain(std::span<std::uint8_t> contents,
                                           const std::vector<bool>& differs) {
  Result result;
  auto at = differs.begin();
  while ((at = std::find(at, differs.end(), true)) != differs.end()) {
    const auto end = std::find(at, differs.end(), false);
    const std::size_t begin = static_cast<std::size_t>(at - differs.begin()) * kBlockBytes;
    const std::size_t behind = static_cast<std::size_t>(end - differs.begin()) * kBlockBytes;
    SettleRun(contents, {begin, std::min(behind, contents.size()) - begin}, result);
    at = end;
  }
  return result;
}

/// Reads neighbouring blocks again twice.
void FlashReader::SettleRun(std::span<std::uint8_t> contents, Range run, Result& result) {
  const std::span<std::uint8_t> now = contents.subspan(run.address, run.bytes);
  ReadRange(run.address, now, false);
  std::vector<std::uint8_t> again(run.bytes);
  ReadRange(run.address, again, true);
  std::vector<bool> differs(BlocksOf(run.bytes));
  MarkDifferences(now, again, differs);
  const auto unsteady = std::find(differs.begin(), differs.end(), true);
  if (unsteady != differs.end() && !result.unsteadyAddress) {
    result.unsteadyAddress = static_cast<std::uint32_t>(
        run.address + static_cast<std::size_t>(unsteady - differs.begin()) * kBlockBytes);
  }
  result.blocksReadAgain += differs.size();
}

void FlashReader::Witness(std::span<const std::uint8_t> contents) {
  const auto change = std::adjacent_find(contents.begin(), contents.end(), std::not_equal_to<>());
  if (change == contents.end()) {
    // The identification afterwards shows that the line can be low; zeros need a proof of their own.
    if (contents.front() == 0 && !ReadsDifferentBytesElsewhere(contents.front())) {
      throw StepFailed("the whole flash reads as zeros, as a line does that nobody drives");
    }
    return;
  }
  const auto at = static_cast<std::size_t>(change - contents.begin());
  const std::size_t begin = at - std::min(at, kWitnessBytes / 2);
  const auto known = contents.subspan(begin, std::min(kWitnessBytes, contents.size() - begin));
  std::array<std::uint8_t, kWitnessBytes> buffer;
  const auto now = std::span(buffer).first(known.size());
  for (int attempt = 0; attempt < kTries; ++attempt) {
    Message(begin, now);
    if (std::equal(now.begin(), now.end(), known.begin())) {
      return;
    }
  }
  throw StepFailed("the flash no longer reads at address " + Hex(begin) + " as it did before");
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
