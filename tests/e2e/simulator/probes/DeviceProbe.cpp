// A program for the instrument that does what its arguments say, one step each:
//
//   open PATH FLAGS        FLAGS: any of r w + c t (O_RDONLY, O_WRONLY, O_RDWR, O_CREAT 0600, O_TRUNC)
//   close N                N: the Nth file opened, counted from 0; -1 for descriptor -1
//   dup N                  becomes the next file
//   mode N VALUE           SPI_IOC_WR_MODE
//   speed N                SPI_IOC_RD_MAX_SPEED_HZ and the same back with SPI_IOC_WR_MAX_SPEED_HZ
//   request N NUMBER       any other request, with a zero word for an argument
//   spi N HEX COUNT        sends the bytes, then receives COUNT, under one chip select
//   fill N HEX COUNT       sends the bytes, then COUNT bytes 00 01 02 ...
//   i2c N ADDRESS HEX COUNT
//   read N COUNT / write N TEXT
//   ifstream PATH / ofstream PATH TEXT
//   stdio PATH TEXT        written inside the C library; the file stays open
//   sleep S / usleep US / nanosleep NS / until NS (clock_nanosleep to the time in so many ns)
//   clocks                 difference of two readings of a clock, monotonic and real time, in s
//   out TEXT / err TEXT    to standard output or error, flushed
//   inventory / i2cbus SLOT / spidev SLOT
//   udev SUBSYSTEM         lists the devices
//   repeat COUNT           repeats the steps after it that often
//   crash                  by SIGSEGV
//   exit STATUS
//
// Each step that has a result prints it on standard output. A failure is printed as its errno's
// name.

#include <fcntl.h>
#include <libudev.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kSpeedHz = 19'000'000;
constexpr std::uint8_t kBits = 8;
constexpr long kNanosecondsPerSecond = 1'000'000'000;
constexpr std::size_t kMostShown = 16;

Bytes FromHex(const std::string& digits) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string ToHex(const Bytes& bytes) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  for (std::size_t i = 0; i < bytes.size() && i < kMostShown; ++i) {
    text << (i == 0 ? "" : " ") << std::setw(2) << unsigned{bytes[i]};
  }
  return text.str();
}

std::uint64_t Address(const Bytes& bytes) { return reinterpret_cast<std::uintptr_t>(bytes.data()); }

class Probe {
 public:
  explicit Probe(std::vector<std::string> words) : words_(std::move(words)) {}

  void Run() {
    while (next_ < words_.size()) {
      Step(Word());
    }
  }

 private:
  std::string Word() { return words_.at(next_++); }
  long Number() { return std::stol(Word(), nullptr, 0); }
  int File() {
    const long index = Number();
    return index < 0 ? -1 : files_.at(static_cast<std::size_t>(index));
  }

  static void Show(const std::string& what) { std::cout << what << std::endl; }
  /// Shows the value, or the errno when `result` is negative.
  static void ShowResult(long result, const std::string& value) {
    const int error = errno;
    Show(result < 0 ? ::strerrorname_np(error) : value);
  }
  static void ShowResult(long result) { ShowResult(result, std::to_string(result)); }

  void Open() {
    const std::string path = Word();
    int flags = O_RDONLY;
    for (const char letter : Word()) {
      flags |= letter == 'w' ? O_WRONLY : 0;
      flags |= letter == '+' ? O_RDWR : 0;
      flags |= letter == 'c' ? O_CREAT : 0;
      flags |= letter == 't' ? O_TRUNC : 0;
    }
    const int descriptor = ::open(path.c_str(), flags, 0600);
    files_.push_back(descriptor);
    ShowResult(descriptor);
  }

  void Speed() {
    const int descriptor = File();
    std::uint32_t speed = 0;
    const int result = ::ioctl(descriptor, SPI_IOC_RD_MAX_SPEED_HZ, &speed);
    ShowResult(result, std::to_string(speed));
    ShowResult(::ioctl(descriptor, SPI_IOC_WR_MAX_SPEED_HZ, &speed));
  }

  void Spi() {
    const int descriptor = File();
    const Bytes sent = FromHex(Word());
    Bytes received(static_cast<std::size_t>(Number()), 0xEE);
    spi_ioc_transfer transfers[] = {{.tx_buf = Address(sent),
                                     .len = static_cast<std::uint32_t>(sent.size()),
                                     .speed_hz = kSpeedHz,
                                     .bits_per_word = kBits},
                                    {.rx_buf = Address(received),
                                     .len = static_cast<std::uint32_t>(received.size()),
                                     .speed_hz = kSpeedHz,
                                     .bits_per_word = kBits}};
    if (received.empty()) {
      ShowResult(::ioctl(descriptor, SPI_IOC_MESSAGE(1), transfers));
    } else if (sent.empty()) {
      const int result = ::ioctl(descriptor, SPI_IOC_MESSAGE(1), transfers + 1);
      ShowResult(result, std::to_string(result) + ": " + ToHex(received));
    } else {
      const int result = ::ioctl(descriptor, SPI_IOC_MESSAGE(2), transfers);
      ShowResult(result, std::to_string(result) + ": " + ToHex(received));
    }
  }

  void Fill() {
    const int descriptor = File();
    Bytes sent = FromHex(Word());
    const long count = Number();
    for (long i = 0; i < count; ++i) {
      sent.push_back(static_cast<std::uint8_t>(i));
    }
    spi_ioc_transfer transfer = {.tx_buf = Address(sent),
                                 .len = static_cast<std::uint32_t>(sent.size()),
                                 .speed_hz = kSpeedHz,
                                 .bits_per_word = kBits};
    ShowResult(::ioctl(descriptor, SPI_IOC_MESSAGE(1), &transfer));
  }

  void I2c() {
    const int descriptor = File();
    const auto address = static_cast<std::uint16_t>(Number());
    Bytes sent = FromHex(Word());
    Bytes received(static_cast<std::size_t>(Number()), 0xEE);
    i2c_msg messages[] = {{.addr = address,
                           .flags = 0,
                           .len = static_cast<std::uint16_t>(sent.size()),
                           .buf = sent.data()},
                          {.addr = address,
                           .flags = I2C_M_RD,
                           .len = static_cast<std::uint16_t>(received.size()),
                           .buf = received.data()}};
    i2c_rdwr_ioctl_data data = {.msgs = messages, .nmsgs = received.empty() ? 1U : 2U};
    const int result = ::ioctl(descriptor, I2C_RDWR, &data);
    ShowResult(result, std::to_string(result) + ": " + ToHex(received));
  }

  void Read() {
    const int descriptor = File();
    std::string buffer(static_cast<std::size_t>(Number()), '?');
    const ssize_t result = ::read(descriptor, buffer.data(), buffer.size());
    ShowResult(result, result < 0 ? "" : buffer.substr(0, static_cast<std::size_t>(result)));
  }

  void Write() {
    const int descriptor = File();
    const std::string text = Word();
    ShowResult(::write(descriptor, text.data(), text.size()));
  }

  void ReadStream() {
    std::ifstream file(Word());
    std::string line;
    std::getline(file, line);
    Show(file.is_open() ? "line " + line : "no file");
  }

  void WriteStream() {
    std::ofstream file(Word());
    file << Word();
    file.close();
    Show(file ? "written" : "failed");
  }

  void WriteInCLibrary() {
    std::FILE* const stream = std::fopen(Word().c_str(), "w");
    const std::string text = Word();
    const bool written =
        stream != nullptr && std::fputs(text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
    Show(written ? "written" : "failed");
  }

  void Sleep(const std::string& how) {
    const long amount = Number();
    const timespec length = {.tv_sec = amount / kNanosecondsPerSecond,
                             .tv_nsec = amount % kNanosecondsPerSecond};
    if (how == "sleep") {
      ShowResult(::sleep(static_cast<unsigned>(amount)));
    } else if (how == "usleep") {
      ShowResult(::usleep(static_cast<useconds_t>(amount)));
    } else if (how == "nanosleep") {
      ShowResult(::nanosleep(&length, nullptr));
    } else {
      timespec then{};
      ::clock_gettime(CLOCK_MONOTONIC, &then);
      then.tv_sec += length.tv_sec + (then.tv_nsec + length.tv_nsec) / kNanosecondsPerSecond;
      then.tv_nsec = (then.tv_nsec + length.tv_nsec) % kNanosecondsPerSecond;
      ShowResult(::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &then, nullptr));
    }
  }

  void ShowClocks() {
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
      timespec first{};
      timespec second{};
      ::clock_gettime(clock, &first);
      ::clock_gettime(clock, &second);
      ShowResult(static_cast<int>(second.tv_sec - first.tv_sec));
    }
  }

  /// Calls a method of a platform service and shows what it returns.
  void CallService(const char* service, const std::string& method, const long* slot) {
    sd_bus* bus = nullptr;
    if (::sd_bus_open_system(&bus) < 0) {
      Show("no bus");
      return;
    }
    const std::string interface = std::string("org.orvane.") + service;
    const std::string path = std::string("/org/orvane/") + service;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const int result = slot == nullptr ? ::sd_bus_call_method(bus,
                                                              interface.c_str(),
                                                              path.c_str(),
                                                              interface.c_str(),
                                                              method.c_str(),
                                                              &error,
                                                              &reply,
                                                              "")
                                       : ::sd_bus_call_method(bus,
                                                              interface.c_str(),
                                                              path.c_str(),
                                                              interface.c_str(),
                                                              method.c_str(),
                                                              &error,
                                                              &reply,
                                                              "u",
                                                              static_cast<std::uint32_t>(*slot));
    if (result < 0) {
      Show(error.name);
    } else if (slot != nullptr) {
      const char* name = nullptr;
      ::sd_bus_message_read(reply, "s", &name);
      Show(std::string("name ") + name);
    } else {
      std::string text = "slots";
      std::int32_t number = 0;
      ::sd_bus_message_enter_container(reply, 'a', "i");
      while (::sd_bus_message_read_basic(reply, 'i', &number) > 0) {
        text.append(" ").append(std::to_string(number));
      }
      Show(text);
    }
    ::sd_bus_error_free(&error);
    ::sd_bus_message_unref(reply);
    ::sd_bus_flush_close_unref(bus);
  }

  void ListDevices() {
    udev* const context = ::udev_new();
    udev_enumerate* const list = ::udev_enumerate_new(context);
    ::udev_enumerate_add_match_subsystem(list, Word().c_str());
    ::udev_enumerate_scan_devices(list);
    for (udev_list_entry* entry = ::udev_enumerate_get_list_entry(list); entry != nullptr;
         entry = ::udev_list_entry_get_next(entry)) {
      const std::string path = ::udev_list_entry_get_name(entry);
      std::ifstream file(path + "/name");
      std::string name;
      std::getline(file, name);
      Show(std::string(path).append(" ").append(name));
    }
    ::udev_enumerate_unref(list);
    ::udev_unref(context);
  }

  void Repeat() {
    const long count = Number();
    const std::size_t start = next_;
    for (long i = 0; i < count; ++i) {
      next_ = start;
      Run();
    }
  }

  void Step(const std::string& verb) {
    if (verb == "open") {
      Open();
    } else if (verb == "close") {
      ShowResult(::close(File()));
    } else if (verb == "dup") {
      files_.push_back(::dup(File()));
      ShowResult(files_.back());
    } else if (verb == "mode") {
      const int descriptor = File();
      const auto mode = static_cast<std::uint8_t>(Number());
      ShowResult(::ioctl(descriptor, SPI_IOC_WR_MODE, &mode));
    } else if (verb == "speed") {
      Speed();
    } else if (verb == "request") {
      const int descriptor = File();
      std::uint64_t argument = 0;
      ShowResult(::ioctl(descriptor, static_cast<unsigned long>(Number()), &argument));
    } else if (verb == "spi") {
      Spi();
    } else if (verb == "fill") {
      Fill();
    } else if (verb == "i2c") {
      I2c();
    } else if (verb == "read") {
      Read();
    } else if (verb == "write") {
      Write();
    } else if (verb == "ifstream") {
      ReadStream();
    } else if (verb == "ofstream") {
      WriteStream();
    } else if (verb == "stdio") {
      WriteInCLibrary();
    } else if (verb == "sleep" || verb == "usleep" || verb == "nanosleep" || verb == "until") {
      Sleep(verb);
    } else if (verb == "clocks") {
      ShowClocks();
    } else if (verb == "out") {
      std::cout << Word() << std::flush;
    } else if (verb == "err") {
      std::cerr << Word();
    } else if (verb == "inventory") {
      CallService("SystemInventory1", "GetModuleLocations", nullptr);
    } else if (verb == "i2cbus" || verb == "spidev") {
      const long slot = Number();
      CallService("ModuleResources1", verb == "spidev" ? "GetSPIDev" : "GetI2CBus", &slot);
    } else if (verb == "udev") {
      ListDevices();
    } else if (verb == "repeat") {
      Repeat();
    } else if (verb == "crash") {
      static_cast<void>(::signal(SIGSEGV, SIG_DFL));  // without a report from a sanitizer
      static_cast<void>(::raise(SIGSEGV));
    } else if (verb == "exit") {
      std::exit(static_cast<int>(Number()));
    } else {
      throw std::invalid_argument(verb);
    }
  }

  std::vector<std::string> words_;
  std::size_t next_ = 0;
  std::vector<int> files_;
};

}  // namespace

int main(int argc, char** argv) {
  Probe({argv + 1, argv + argc}).Run();
  return 0;
}
