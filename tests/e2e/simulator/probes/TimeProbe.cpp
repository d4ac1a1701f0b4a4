// A program that takes time on the instrument, two words for each of its steps. It is built as other
// people's programs are, without sanitizers: these look at clocks too.
//
//   look CLOCK    by how many nanoseconds that clock is ahead of what the last look has shown, of
//                 whichever clock; CLOCK: monotonic, coarse, raw
//   sleep S, nanosleep NS
//   rdid COUNT    the SPI message 9f to /dev/spidev1.0, at 19 MHz, with so many bytes back
//   i2c COUNT     on /dev/i2c-4 a write of the byte 06 to the address 0x20, and a read of so many bytes
//   poll MS, ppoll MS, epoll MS, epoll_pwait MS, select MS, pselect MS
//                 waits in vain, and prints what the call returns
//   mute US       calls a D-Bus service that never answers, with a deadline in so many microseconds, and
//                 prints the errno's name

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr long kNanosecondsPerSecond = 1'000'000'000;
constexpr long kNanosecondsPerMillisecond = 1'000'000;
constexpr long kMicrosecondsPerMillisecond = 1'000;

std::int64_t Now(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

void Look(const std::string& name) {
  static std::int64_t last = 0;
  const std::int64_t now = Now(name == "coarse" ? CLOCK_MONOTONIC_COARSE
                               : name == "raw"  ? CLOCK_MONOTONIC_RAW
                                                : CLOCK_MONOTONIC);
  std::printf("look %lld\n", last == 0 ? 0LL : static_cast<long long>(now - last));
  last = now;
}

constexpr std::uint32_t kMostBytes = 16;

void ReadIdentification(std::uint32_t count) {
  const std::uint8_t opcode = 0x9F;
  std::array<std::uint8_t, kMostBytes> answer{};
  spi_ioc_transfer transfers[2] = {};
  transfers[0].tx_buf = reinterpret_cast<std::uintptr_t>(&opcode);
  transfers[0].len = 1;
  transfers[1].rx_buf = reinterpret_cast<std::uintptr_t>(answer.data());
  transfers[1].len = count;
  for (spi_ioc_transfer& transfer : transfers) {
    transfer.speed_hz = 19'000'000;
    transfer.bits_per_word = 8;
  }
  const int node = ::open("/dev/spidev1.0", O_RDWR);
  ::ioctl(node, SPI_IOC_MESSAGE(2), transfers);
  ::close(node);
}

void ReadExpander(std::uint16_t count) {
  std::uint8_t address = 0x06;
  std::array<std::uint8_t, kMostBytes> answer{};
  i2c_msg messages[2] = {{.addr = 0x20, .flags = 0, .len = 1, .buf = &address},
                         {.addr = 0x20, .flags = I2C_M_RD, .len = count, .buf = answer.data()}};
  i2c_rdwr_ioctl_data transfer = {.msgs = messages, .nmsgs = 2};
  const int node = ::open("/dev/i2c-4", O_RDWR);
  ::ioctl(node, I2C_RDWR, &transfer);
  ::close(node);
}

void Sleep(long nanoseconds) {
  const timespec length = {.tv_sec = 0, .tv_nsec = nanoseconds};
  ::nanosleep(&length, nullptr);
}

int Wait(const std::string& how, int milliseconds) {
  const timespec limit = {.tv_sec = 0, .tv_nsec = milliseconds * kNanosecondsPerMillisecond};
  timeval time = {.tv_sec = 0, .tv_usec = milliseconds * kMicrosecondsPerMillisecond};
  epoll_event event{};
  if (how == "poll") {
    return ::poll(nullptr, 0, milliseconds);
  }
  if (how == "ppoll") {
    return ::ppoll(nullptr, 0, &limit, nullptr);
  }
  if (how == "select") {
    return ::select(0, nullptr, nullptr, nullptr, &time);
  }
  if (how == "pselect") {
    return ::pselect(0, nullptr, nullptr, nullptr, &limit, nullptr);
  }
  const int epoll = ::epoll_create1(0);
  const int ready = how == "epoll" ? ::epoll_wait(epoll, &event, 1, milliseconds)
                                   : ::epoll_pwait(epoll, &event, 1, milliseconds, nullptr);
  ::close(epoll);
  return ready;
}

/// The service is a connection of this process, on which nobody takes messages.
void CallMute(std::uint64_t microseconds) {
  sd_bus* caller = nullptr;
  sd_bus* service = nullptr;
  const char* name = nullptr;
  sd_bus_message* call = nullptr;
  if (::sd_bus_open_system(&caller) < 0 || ::sd_bus_open_system(&service) < 0 ||
      ::sd_bus_get_unique_name(service, &name) < 0 ||
      ::sd_bus_message_new_method_call(caller, &call, name, "/x", "x.Y", "Z") < 0) {
    std::printf("no bus\n");
    return;
  }
  const int result = ::sd_bus_call(caller, call, microseconds, nullptr, nullptr);
  std::printf("mute %s\n", ::strerrorname_np(-result));
  ::sd_bus_message_unref(call);
  ::sd_bus_flush_close_unref(service);
  ::sd_bus_flush_close_unref(caller);
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string verb = argv[i];
    const std::string word = argv[i + 1];
    if (verb == "look") {
      Look(word);
    } else if (verb == "sleep") {
      ::sleep(static_cast<unsigned>(std::stoul(word)));
    } else if (verb == "nanosleep") {
      Sleep(std::stol(word));
    } else if (verb == "rdid") {
      ReadIdentification(static_cast<std::uint32_t>(std::stoul(word)));
    } else if (verb == "i2c") {
      ReadExpander(static_cast<std::uint16_t>(std::stoul(word)));
    } else if (verb == "mute") {
      CallMute(std::stoull(word));
    } else {
      std::printf("%s %d\n", verb.c_str(), Wait(verb, std::stoi(word)));
    }
  }
  return 0;
}
