#include "devices/I2CDev.h"

#include <fcntl.h>
#include <libudev.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <utility>

namespace {

/// A count of bytes, cut to the 32 bits that the interface returns.
int Count(std::size_t length) { return static_cast<int>(static_cast<std::uint32_t>(length)); }

/// A count of bytes, cut to the 16 bits that a message has for it.
std::uint16_t Low16(std::size_t length) { return static_cast<std::uint16_t>(length); }

template <std::size_t N>
int Submit(int fd, i2c_msg (&messages)[N]) {
  i2c_rdwr_ioctl_data data = {.msgs = messages, .nmsgs = N};
  return ::ioctl(fd, I2C_RDWR, &data);
}

struct UdevUnref {
  void operator()(udev* context) const { ::udev_unref(context); }
  void operator()(udev_enumerate* enumerator) const { ::udev_enumerate_unref(enumerator); }
};

std::string FirstLine(const std::string& path) {
  std::string line;
  std::ifstream file(path);
  if (file.good()) {
    std::getline(file, line);
  }
  return line;
}

}  // namespace

I2CDev::I2CDev(std::string path) : path_(std::move(path)) {}

I2CDev::~I2CDev() { I2CDev::close(); }

bool I2CDev::is_open() { return fd_ != kClosed; }

int I2CDev::open(std::uint8_t address) {
  if (fd_ != kClosed) {
    // Deliberate: the address of the first open stays in force; fixed and observable; do not
    // change. The reset of a module in slot 5 depends on it: it opens with the address of the map,
    // but has to reach the next one.
    return fd_;
  }
  fd_ = ::open(path_.c_str(), O_RDWR);
  if (fd_ < 0) {
    return fd_;
  }
  address_ = address;
  return fd_;
}

void I2CDev::close() {
  ::close(fd_);
  fd_ = kClosed;
}

int I2CDev::read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) {
  if (fd_ < 0) {
    return 0;
  }
  i2c_msg messages[] = {
      {.addr = address_, .flags = 0, .len = Low16(txLen), .buf = tx},
      {.addr = address_, .flags = I2C_M_RD, .len = Low16(rxLen), .buf = rx},
  };
  return Submit(fd_, messages) < 0 ? 0 : Count(rxLen);
}

int I2CDev::write(std::uint8_t* tx, std::size_t txLen) {
  if (fd_ < 0) {
    return 0;
  }
  i2c_msg messages[] = {{.addr = address_, .flags = 0, .len = Low16(txLen), .buf = tx}};
  return Submit(fd_, messages) < 0 ? 0 : Count(txLen);
}

std::string I2CDev::FindI2CBusNameOfMuxChannel(std::string parentBus, int channel) {
  const std::string expectedName = parentBus + "-mux (chan_id " + std::to_string(channel) + ")";

  udev* const newContext = ::udev_new();
  if (newContext == nullptr) {
    return "";
  }
  udev_enumerate* const newEnumerator = ::udev_enumerate_new(newContext);
  if (newEnumerator == nullptr) {
    return "";  // the context is not released; without a bus the run ends
  }
  // Released in reverse order: the enumerator, then the context.
  const std::unique_ptr<udev, UdevUnref> context(newContext);
  const std::unique_ptr<udev_enumerate, UdevUnref> enumerator(newEnumerator);
  ::udev_enumerate_add_match_subsystem(enumerator.get(), "i2c");
  ::udev_enumerate_scan_devices(enumerator.get());

  for (udev_list_entry* entry = ::udev_enumerate_get_list_entry(enumerator.get()); entry != nullptr;
       entry = ::udev_list_entry_get_next(entry)) {
    const char* const name = ::udev_list_entry_get_name(entry);
    if (name == nullptr) {
      continue;
    }
    const std::string sysfsPath = name;
    // Deliberate: a loose test ("i2c-1" also occurs in a path below "i2c-10"); the name decides.
    if (sysfsPath.find(parentBus) == std::string::npos) {
      continue;
    }
    if (FirstLine(sysfsPath + "/name") == expectedName) {
      const std::size_t busName = sysfsPath.rfind("i2c");
      return busName == std::string::npos ? "" : sysfsPath.substr(busName);
    }
  }
  return "";
}
