#include "proofs/soak/Update.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <functional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulator/chips/NorFlashModel.h"
#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"

namespace soak {

namespace {

using orvane::NorFlashModel;

Bytes Image(const std::string& target, int year, std::size_t bytes, std::uint32_t seed) {
  if (target == "wend" || target == "pyx2") {
    return orvane::MakeZynqImage(
        {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes, .seed = seed});
  }
  return orvane::MakeBitstream(
      {.bytes = bytes, .userAccess = orvane::PackStamp({year, 5, 6, 7, 8, 9}), .seed = seed});
}

std::uint64_t Number(std::string_view text, int base) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
    throw std::runtime_error("not a number: '" + std::string(text) + "'");
  }
  return number;
}

std::uint8_t HexByte(const std::string& text) {
  return static_cast<std::uint8_t>(Number(text, 16) & 0xFFU);
}

std::vector<std::string> Words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

std::chrono::nanoseconds Duration(const std::string& number, const std::string& unit) {
  const auto count = static_cast<std::int64_t>(Number(number, 10));
  if (unit == "s") {
    return std::chrono::seconds(count);
  }
  if (unit == "ms") {
    return std::chrono::milliseconds(count);
  }
  return unit == "us" ? std::chrono::microseconds(count) : std::chrono::nanoseconds(count);
}

/// "0x001000"
std::size_t Address(const std::string& word) {
  return static_cast<std::size_t>(Number(std::string_view(word).substr(2), 16));
}

/// "+256"
std::size_t CountOf(const std::string& word) {
  return static_cast<std::size_t>(Number(std::string_view(word).substr(1), 10));
}

/// A chip that carries out the events of a log.
class Chip {
 public:
  explicit Chip(const Update& update)
      : update_(update),
        node_("/dev/spidev" + std::to_string(update.slot) + ".0"),
        model_(update.chip == "macronix" ? orvane::Chip::kMacronix : orvane::Chip::kMicron) {
    model_.Load(update.flashFile);
  }

  std::span<const std::uint8_t> Contents() const { return model_.Contents(); }

  /// @return whether it is a program or an erase
  bool CarryOut(const std::string& line) {
    const std::vector<std::string> words = Words(line);
    if (words.size() >= 3 && words[0] == "sleep") {
      model_.AdvanceTime(Duration(words[1], words[2]));
      return false;
    }
    if (words.size() < 3 || words[0] != "spi" || words[1] != node_ || HasFailed(words)) {
      return false;
    }
    const Bytes bytes = BytesOf(words);
    Bytes answer(bytes.size());
    model_.Transfer(bytes, answer);
    return words[2] == "PP" || words[2] == "SE" || words[2] == "SSE" || words[2] == "CE";
  }

 private:
  /// "... = EIO"
  static bool HasFailed(const std::vector<std::string>& words) {
    return words[words.size() - 2] == "=" && words.back().size() > 2;
  }

  /// What the controller sends.
  Bytes BytesOf(const std::vector<std::string>& words) const {
    const std::string& command = words[2];
    if (command == "WREN") {
      return {0x06};
    }
    if (command == "WRDI") {
      return {0x04};
    }
    if (command == "SE" || command == "SSE") {
      return WithAddress(command == "SE" ? 0xD8 : 0x20, words.at(3));
    }
    if (command == "CE") {
      return {0xC7};
    }
    if (command == "PP") {
      return Program(words.at(3), CountOf(words.at(4)));
    }
    if (command == "WRSR") {
      Bytes bytes = {0x01};
      std::transform(words.begin() + 3, words.end(), std::back_inserter(bytes), HexByte);
      return bytes;
    }
    if (command == "RDSR") {
      Bytes bytes(words.size() - 3);  // the command, and as many bytes as came back
      bytes[0] = 0x05;
      return bytes;
    }
    return {};  // changes nothing
  }

  static Bytes WithAddress(std::uint8_t opcode, const std::string& address) {
    const std::size_t at = Address(address);
    return {opcode,
            static_cast<std::uint8_t>(at >> 16U),
            static_cast<std::uint8_t>(at >> 8U & 0xFFU),
            static_cast<std::uint8_t>(at & 0xFFU)};
  }

  Bytes Program(const std::string& address, std::size_t count) const {
    const std::size_t at = Address(address);
    if (at + count > update_.image.size()) {
      throw std::runtime_error("more is programmed than the image has");
    }
    Bytes bytes = WithAddress(0x02, address);
    const auto begin = update_.image.begin() + static_cast<std::ptrdiff_t>(at);
    bytes.insert(bytes.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
    return bytes;
  }

  const Update& update_;
  std::string node_;
  NorFlashModel model_;
};

std::uint64_t Hash(std::span<const std::uint8_t> flash) {
  const auto bytes = flash.first(std::min(flash.size(), kUpdatedBytes));
  return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace

std::vector<Update> AllUpdates() {
  constexpr std::size_t kOldBytes = 30'000;
  constexpr std::uint32_t kOldSeed = 1;
  constexpr std::uint32_t kNewSeed = 2;
  std::vector<Update> all;
  // Less than a page of data, less than a sector, and a little more than one.
  std::size_t bytes = 1'000;
  for (const auto& [target, slot] :
       {std::pair<std::string, unsigned>{"wend", 1}, {"dax", 2}, {"pyx1", 4}, {"pyx2", 5}}) {
    for (const char* const chip : {"micron", "macronix"}) {
      Update update{.target = target,
                    .slot = slot,
                    .chip = chip,
                    .image = Image(target, 2024, bytes, kNewSeed),
                    .flashFile = Image(target, 2023, kOldBytes, kOldSeed)};
      if (update.chip == "macronix") {
        update.flashFile.resize(NorFlashModel::kBytes, 0xFF);
      }
      all.push_back(update);
      bytes = bytes == 1'000 ? 20'000 : bytes == 20'000 ? 66'000 : 1'000;
    }
  }
  return all;
}

Bytes Replay(const Update& update, const std::string& log) {
  Chip chip(update);
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    chip.CarryOut(line);
  }
  return {chip.Contents().begin(), chip.Contents().end()};
}

std::uint64_t HashOf(const Bytes& flash) { return Hash(flash); }

std::vector<std::uint64_t> HashesAlong(const Update& update, const std::string& log) {
  Chip chip(update);
  std::vector<std::uint64_t> hashes = {Hash(chip.Contents())};
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    if (chip.CarryOut(line)) {
      hashes.push_back(Hash(chip.Contents()));
    }
  }
  return hashes;
}

bool IsUntouchedAbove(const Update& update, const Bytes& flash) {
  Bytes before = update.flashFile;
  before.resize(NorFlashModel::kBytes, 0xFF);
  constexpr auto kBegin = static_cast<std::ptrdiff_t>(kUpdatedBytes);
  return flash.size() == before.size() &&
         std::equal(flash.begin() + kBegin, flash.end(), before.begin() + kBegin);
}

}  // namespace soak
