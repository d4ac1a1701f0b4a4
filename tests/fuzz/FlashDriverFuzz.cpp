// The flash driver on a chip. All answers of the chip come from the fuzzer, and so do the sequence
// of operations, their arguments, and the image.
//   input: transfer size (an index), clock rate (an index), end of the answers (odd: busy for
//          ever), image (an index: none, plain, in gzip, what zlib shall return), answers (2 bytes
//          of length, bytes), image (2 bytes of length, bytes), operations
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "flash/MT25QL128.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/RedirectedFile.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/Disturbances.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/HostileChip.h"
#include "tests/fuzz/ImageFile.h"

namespace {

constexpr const char* kImage = "image";
constexpr int kMaxOperations = 24;
constexpr int kMaxLength = 0x1800;
constexpr int kMaxLongLength = 0x30000;
constexpr std::chrono::seconds kBusyTimeout{5};

constexpr std::array kTransferSizes = {
    "4096", "0", "1", "3", "100", "255", "256", "257", "512", "65536", "65537", "-1"};
constexpr std::array kSpeeds = {19'000'000U, 19'999'999U, 20'000'000U, 0U};

constexpr std::array kEnds = {
    HostileChip::End::kObedient, HostileChip::End::kBusy, HostileChip::End::kGone};

enum class Image { kNone, kPlain, kInGzip, kAsItIs };
constexpr std::array kImages = {Image::kPlain, Image::kNone, Image::kInGzip, Image::kAsItIs};

template <typename Table>
auto Pick(const Table& table, std::uint8_t index) {
  return table[index % table.size()];
}

std::optional<std::string> FileContents(Image image, const std::string& contents) {
  switch (image) {
    case Image::kNone:
      return std::nullopt;
    case Image::kInGzip:
      return InGzip(contents);
    case Image::kPlain:
    case Image::kAsItIs:
      return contents;
  }
  return std::nullopt;
}

/// @return what zlib returns for the file, if that is known without zlib
std::optional<std::string> Decompressed(Image image, const std::string& contents) {
  const bool looksLikeGzip = contents.starts_with('\x1f');
  const bool known = image == Image::kInGzip || (image != Image::kNone && !looksLikeGzip);
  return known ? std::optional(contents) : std::nullopt;
}

/// The driver, its chip and its files; and the operations, each with what must hold after it.
class Bench {
 public:
  Bench(HostileBytes& input, HostileBytes answers, Image image, const std::string& contents)
      : input_(input),
        answers_(answers),
        decompressed_(Decompressed(image, contents)),
        image_(kImage, FileContents(image, contents)),
        kernel_(nullptr, DisturbedBy(answers_)) {}
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench() {
    driver_.reset();
    if (!destroyed_) {
      Require(!chip_->is_open(), "the driver leaves its device closed");
      delete chip_;
    }
  }

  void Build(unsigned speedHz, HostileChip::End end) {
    chip_ = new HostileChip(speedHz, answers_, end, destroyed_);
    endsGone_ = end == HostileChip::End::kGone;
    driver_ = std::make_unique<MT25QL128>(chip_);
  }

  void Operate() {
    using Operation = void (Bench::*)();
    constexpr std::array<Operation, 18> kOperations = {&Bench::Connect,
                                                       &Bench::ReadDevice,
                                                       &Bench::UnlockMemory,
                                                       &Bench::EraseForImage,
                                                       &Bench::ProgramDevice,
                                                       &Bench::Disconnect,
                                                       &Bench::EraseDevice,
                                                       &Bench::Lock,
                                                       &Bench::ProtectedLevel,
                                                       &Bench::ProtectedSize,
                                                       &Bench::SendCommand,
                                                       &Bench::GetStatus,
                                                       &Bench::Identify,
                                                       &Bench::WriteCommand,
                                                       &Bench::Write,
                                                       &Bench::Erase,
                                                       &Bench::ReadBlock,
                                                       &Bench::Read};
    const Operation operation = Pick(kOperations, input_.Byte());
    if (!destroyed_) {
      chip_->frames.clear();
    }
    start_ = FakeClock::Passed();
    (this->*operation)();
    CheckWriteEnables();
  }

 private:
  using Frame = HostileChip::Frame;

  // --- What the operations are called with -------------------------------------------------------

  /// Any address, or one within the chip.
  int Address() {
    const std::uint32_t address = input_.Long();
    return static_cast<int>((address & 0x80U) != 0 ? address : address & 0xFFFFFFU);
  }

  int PageAddress() { return static_cast<int>(static_cast<unsigned>(Address()) & ~0xFFU); }

  /// Any negative length, or one that is short enough for a fuzzer.
  int Length() {
    constexpr int kLong = 0x40000000;
    const int length = static_cast<int>(input_.Long());
    const bool largeTransfers = destroyed_ || chip_->GetMaxTransferSize() >= 256;
    if (length < 0) {
      return length;
    }
    return length % (largeTransfers && (length & kLong) != 0 ? kMaxLongLength : kMaxLength);
  }

  /// Any length, if the chip stops answering, which ends the operation.
  int LengthOfMany() {
    const bool usualTransfers = !destroyed_ && chip_->GetMaxTransferSize() <= 0x10000;
    return endsGone_ && usualTransfers ? static_cast<int>(input_.Long()) : Length();
  }

  /// @return `length` bytes in memory of their own; the last ones are repeated from the first
  std::vector<std::uint8_t> Data(int length) {
    const auto bytes = input_.Take(input_.Byte());
    std::vector<std::uint8_t> data(static_cast<std::size_t>(std::max(length, 0)));
    for (std::size_t i = 0; i < data.size() && !bytes.empty(); ++i) {
      data[i] = bytes[i % bytes.size()];
    }
    return data;
  }

  // --- What has happened on the bus --------------------------------------------------------------

  const std::vector<Frame>& Frames() { return destroyed_ ? noFrames_ : chip_->frames; }

  static bool ChangesSomething(int opcode) {
    return opcode == 0x01 || opcode == 0x02 || opcode == 0x20 || opcode == 0xD8;
  }

  void CheckWriteEnables() {
    const std::vector<Frame>& frames = Frames();
    for (std::size_t i = 0; i < frames.size(); ++i) {
      if (ChangesSomething(frames[i].Opcode()) && frames[i].sent.size() > 1) {
        Require(i > 0 && frames[i - 1].Opcode() == 0x06,
                "a write enable stands before each change");
      }
    }
  }

  int Count(int opcode) {
    const auto& frames = Frames();
    return static_cast<int>(std::count_if(frames.begin(), frames.end(), [&](const Frame& frame) {
      return frame.Opcode() == opcode && (opcode != 0x02 || frame.sent.size() >= 4);
    }));
  }

  int CountChanges() { return Count(0x01) + Count(0x02) + Count(0x20) + Count(0xD8); }

  /// @return whether the last command has been acknowledged in time
  bool LastCommandIsDone() {
    const auto& frames = Frames();
    return !frames.empty() && frames.back().carriedOut && frames.back().Opcode() == 0x05 &&
           (frames.back().answer & 1U) == 0;
  }

  /// @return whether there is a reason for a write-type command to have failed
  bool HasReasonToFail() {
    const auto& frames = Frames();
    const bool refused = std::any_of(
        frames.begin(), frames.end(), [](const Frame& frame) { return !frame.carriedOut; });
    return destroyed_ || refused || FakeClock::Passed() - start_ > kBusyTimeout;
  }

  /// The pages programmed are `data` at consecutive addresses, or a part from its start.
  void CheckPages(int address, const std::string& data, bool whole) {
    std::string programmed;
    auto next = static_cast<std::uint32_t>(address);
    for (const Frame& frame : Frames()) {
      if (frame.Opcode() != 0x02) {
        continue;
      }
      Require(frame.sent.size() >= 4 && frame.sent.size() <= 260, "a page has up to 256 bytes");
      Require(frame.Address() == (next & 0xFFFFFFU), "each page follows the one before");
      programmed.append(frame.sent.begin() + 4, frame.sent.end());
      next += static_cast<std::uint32_t>(frame.sent.size()) - 4;
    }
    Require(whole ? programmed == data : data.starts_with(programmed),
            "what is programmed is the image");
  }

  void CheckErases(int address, int opcode, int step, int count, bool whole) {
    auto next = static_cast<std::uint32_t>(address);
    int erased = 0;
    for (const Frame& frame : Frames()) {
      if (frame.Opcode() == 0x20 || frame.Opcode() == 0xD8) {
        Require(frame.Opcode() == opcode, "the unit goes by the length");
        Require(frame.sent.size() == 4 && frame.Address() == (next & 0xFFFFFFU),
                "each unit follows the one before");
        next += static_cast<std::uint32_t>(step);
        ++erased;
      }
    }
    Require(whole ? erased == count : erased <= count, "no unit more or less than asked for");
  }

  void CheckErases(int address, int length, bool whole) {
    const bool sectors = length >= 0x10000;
    const int step = sectors ? 0x10000 : 0x1000;
    CheckErases(address, sectors ? 0xD8 : 0x20, step, std::max(length, 0) / step, whole);
  }

  // --- The operations ----------------------------------------------------------------------------

  void Connect() {
    const bool hadDevice = !destroyed_;
    const int result = driver_->Connect((input_.Byte() & 1U) != 0);
    if (!hadDevice || destroyed_) {
      Require(result == 1, "no device is a failure");
      return;
    }
    Require(chip_->lastOpenResult >= 0, "a device that cannot be opened is destroyed");
    const auto& frames = Frames();
    Require(frames.size() >= 2 && frames[1].Opcode() == 0x9F, "the chip is identified");
    const bool answered = frames[1].carriedOut && frames[1].answer != 0;
    Require(result == (answered ? 0 : 1), "the maker byte decides");
    lockable_ = lockable_ || (answered && frames[1].answer == 0xC2);
    CheckLock(9, answered && lockable_);
  }

  /// The level is set as asked for, or there is a reason why not.
  void CheckLock(unsigned level, bool expected) {
    Require(CountChanges() <= (expected ? 1 : 0), "no other register and no memory is changed");
    if (expected && Count(0x01) == 1) {
      const Frame& frame = Frames().back();
      Require(frame.sent.size() == 3 && (frame.sent[1] >> 2U & 0x0FU) == level &&
                  (frame.sent[1] & 0x80U) == 0 && (frame.sent[2] & 0x08U) != 0,
              "the level is the one asked for, counted from address 0");
    } else if (expected) {
      Require(HasReasonToFail(), "the level is set unless the chip refuses");
    }
  }

  void UnlockMemory() {
    driver_->UnlockMemory();
    CheckLock(0, lockable_ && !destroyed_);
  }

  void Disconnect() {
    driver_->Disconnect();
    CheckLock(9, lockable_ && !destroyed_);
  }

  void Lock() {
    const unsigned sectors = input_.Byte();
    driver_->LockMemorySectors(sectors);
    CheckLock(std::min(sectors, 15U), !destroyed_);
  }

  void ProtectedLevel() {
    const int level = driver_->GetProtectLevel();
    Require(level >= 0 && level <= 15, "a level has four bits");
    Require(level == 0 || lockable_, "only a lockable chip has a level");
    Require(CountChanges() == 0, "asking changes nothing");
  }

  void ProtectedSize() {
    const int size = driver_->GetProtectedSize();
    Require(size == 0 || (size >= 0x8000 && size <= 0x8000 << 15 && (size & (size - 1)) == 0),
            "the protected size is half a sector, doubled for each level");
    Require(size == 0 || lockable_, "only a lockable chip is protected");
  }

  void SendCommand() {
    const std::uint8_t command = input_.Byte();
    const bool result = driver_->SendCommand(command);
    Require(result == (!destroyed_ && Frames().size() == 1 && Frames()[0].carriedOut),
            "a command is one frame");
  }

  void GetStatus() {
    const std::uint8_t command = input_.Byte();
    const std::uint8_t before = input_.Byte();
    std::uint8_t value = before;
    const bool result = driver_->GetStatus(command, value);
    Require(result == (!destroyed_ && Frames().size() == 1 && Frames()[0].carriedOut),
            "a register is read in one frame");
    Require(value == (result ? Frames()[0].answer : before), "a failure leaves the value alone");
  }

  void Identify() {
    const bool result = driver_->ReadManufIDReg((input_.Byte() & 1U) != 0);
    const bool answered = !destroyed_ && Frames()[0].carriedOut && Frames()[0].answer != 0;
    Require(result == answered, "the maker byte decides");
    lockable_ = lockable_ || (answered && Frames()[0].answer == 0xC2);
  }

  void WriteCommand() {
    const std::uint8_t command = input_.Byte();
    const int address = Address();
    const int length = Length();
    std::vector<std::uint8_t> data = Data(length);
    const bool withData = (input_.Byte() & 1U) == 0;
    const bool result =
        driver_->WriteCommand(command, address, length, withData ? data.data() : nullptr);
    if (result) {
      Require(LastCommandIsDone(), "a command that succeeds has been acknowledged");
      Require(Frames()[0].Opcode() == 0x06, "a write enable stands before each change");
      Require(std::int64_t{length} + 4 == static_cast<std::int64_t>(Frames()[1].sent.size()),
              "the command is sent whole");
      const auto& sent = Frames()[1].sent;
      Require(!withData || length <= 0 || std::equal(data.begin(), data.end(), sent.begin() + 4),
              "the data follows the address");
    } else {
      Require(length < -4 || HasReasonToFail(), "a command fails for a reason");
    }
  }

  void Write() {
    const int address = Address();
    const int length = Length();
    std::vector<std::uint8_t> data = Data(length);
    const bool result = driver_->Write(address, length, data.data());
    if (length >= 0) {
      CheckPages(address, {data.begin(), data.end()}, result);
    }
    Require(result || HasReasonToFail() || length < -4, "a write fails for a reason");
    Require(!result || Frames().empty() || LastCommandIsDone(),
            "a write that succeeds has been acknowledged");
  }

  void Erase() {
    const int address = Address();
    const int length = LengthOfMany();
    const bool result = driver_->Erase(address, length);
    CheckErases(address, length, result);
    Require(result || HasReasonToFail(), "an erase fails for a reason");
  }

  void EraseDevice() {
    const int address = Address();
    const int length = LengthOfMany();
    const int result = driver_->EraseDevice(address, length);
    CheckRefusal(result, address, {0, 2, 3, 4});
    if (result == 0 || result == 3) {
      CheckErases(address, length, result == 0);
    }
  }

  /// The result is one of the table, and correct if it means "nothing done".
  void CheckRefusal(int result, int address, const std::vector<int>& allowed) {
    Require(std::find(allowed.begin(), allowed.end(), result) != allowed.end(),
            "the result is in the table");
    Require(result != 2 || destroyed_ || chip_->lastOpenResult == 0, "2 is a missing device");
    if (result == 1 || result == 2) {
      Require(CountChanges() == 0, "without image or device nothing is changed");
    }
    Require(result != 4 || address < 0 || lockable_ || Count(0x02) != 0 || image_.HasFailed(),
            "only a lockable chip refuses an address");
  }

  void EraseForImage() {
    const int address = PageAddress();
    const int result = driver_->EraseDevice(address, std::string(kImage));
    CheckRefusal(result, address, {0, 1, 2, 3, 4});
    if (decompressed_ && (result == 0 || result == 3) && chip_->GetMaxTransferSize() != 0) {
      const auto sectors = static_cast<int>((decompressed_->size() + 0xFFFF) / 0x10000);
      CheckErases(address, 0xD8, 0x10000, sectors, result == 0);
    }
  }

  void ProgramDevice() {
    const std::size_t openBefore = image_.OpenCount();
    const int address = PageAddress();
    const int result = driver_->ProgramDevice(address, kImage);
    CheckRefusal(result, address, {0, 1, 2, 4});
    Require(image_.OpenCount() == openBefore, "the image is closed again");
    if (result == 0 && decompressed_ && chip_->GetMaxTransferSize() != 0) {
      CheckPages(address, *decompressed_, true);
    }
    if (result == 4 && address >= 0 && !lockable_ && !image_.HasFailed()) {
      Require(HasReasonToFail(), "programming fails for a reason");
    }
  }

  void ReadDevice() {
    const int address = Address();
    const int length = LengthOfMany();
    const int fd = OpenDump();
    const int result = driver_->ReadDevice(address, length, fd);
    Require(result == 0 || (result == 2) == destroyed_, "2 is a missing device");
    Require(result == 0 || result == 2 || result == 5, "the result is in the table");
    CheckDump(fd, address, length, result == 0);
  }

  void Read() {
    const int address = Address();
    const int length = LengthOfMany();
    const int fd = OpenDump();
    CheckDump(fd, address, length, driver_->Read(fd, address, length));
  }

  void ReadBlock() {
    const int address = Address();
    const int length = Length();
    const int fd = OpenDump();
    const bool result = driver_->ReadBlock(fd, address, length);
    Require(!result || (Frames().size() == 1 && length >= 0), "a block is read in one frame");
    CheckDump(fd, address, length, result);
  }

  /// @return a new file, or -1
  int OpenDump() {
    kernel_.files.erase("dump");
    return (input_.Byte() & 1U) != 0 ? -1 : kernel_.Open("dump", O_WRONLY | O_CREAT, 0600);
  }

  void CheckDump(int fd, int address, int length, bool whole) {
    Require(CountChanges() == 0, "reading changes nothing");
    constexpr int kRegionsEnd = 0x6000000;
    const bool ordinary = address >= 0 && length >= 0 && address <= kRegionsEnd - length;
    if (ordinary && fd >= 0) {
      const std::string& dump = kernel_.files.at("dump");
      const auto expected = static_cast<std::size_t>(length);
      Require(whole ? dump.size() == expected : dump.size() <= expected,
              "a dump has the length asked for");
      // Addresses are sent with 24 bits; beyond the chip they start again at each transfer.
      for (std::size_t i = 0; i < dump.size() && address <= 0x1000000 - length; ++i) {
        const std::uint8_t expectedByte = HostileChip::Memory(static_cast<std::uint32_t>(address) +
                                                              static_cast<std::uint32_t>(i));
        Require(static_cast<std::uint8_t>(dump[i]) == expectedByte, "a dump holds the memory");
      }
    }
    if (fd >= 0) {
      static_cast<void>(kernel_.Close(fd));
    }
  }

  HostileBytes& input_;
  HostileBytes answers_;
  std::optional<std::string> decompressed_;
  ImageFile image_;
  FileKernel kernel_;
  Console console_;
  FakeClock clock_;
  bool destroyed_ = false;
  bool lockable_ = false;
  bool endsGone_ = false;
  HostileChip* chip_ = nullptr;
  std::unique_ptr<MT25QL128> driver_;
  const std::vector<Frame> noFrames_;
  std::chrono::nanoseconds start_{0};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  HostileBytes input(data, size);
  const RedirectedFile bufsiz("/sys/module/spidev/parameters/bufsiz",
                              Pick(kTransferSizes, input.Byte()));
  const unsigned speedHz = Pick(kSpeeds, input.Byte());
  const HostileChip::End end = Pick(kEnds, input.Byte());
  const Image image = Pick(kImages, input.Byte());
  const HostileBytes answers = input.LongPart();
  const std::uint16_t imageBytes = input.Word();
  Bench bench(input, answers, image, input.Text(imageBytes));
  bench.Build(speedHz, end);
  for (int i = 0; i < kMaxOperations && !input.IsEmpty(); ++i) {
    bench.Operate();
  }
  return 0;
}
