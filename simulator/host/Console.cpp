#include "simulator/host/Console.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <system_error>

namespace orvane {

namespace {

constexpr int kWishedSendBytes = 4 << 20;  // the largest single write; the system may grant less
constexpr std::size_t kLargestWrite = std::size_t{4} << 20;

sockaddr_un Address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

[[noreturn]] void Fail() {
  throw std::system_error(errno, std::generic_category(), "cannot set up the console");
}

int BoundSocket(const std::string& path) {
  const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address(path);
  if (descriptor < 0 ||
      ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail();
  }
  return descriptor;
}

/// @return false when the descriptor cannot be written any more
bool WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

Console::Console(const std::string& directory, EventLog& log)
    : log_(log), buffer_(std::make_unique_for_overwrite<char[]>(kLargestWrite)) {
  const std::string path = directory + "/console";
  receiver_ = BoundSocket(path);
  const sockaddr_un address = Address(path);
  for (std::size_t i = 0; i < writers_.size(); ++i) {
    writers_[i] = BoundSocket(path + std::to_string(i));
    ::setsockopt(writers_[i], SOL_SOCKET, SO_SNDBUF, &kWishedSendBytes, sizeof kWishedSendBytes);
    if (::connect(writers_[i], reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      Fail();
    }
  }
}

Console::~Console() {
  CloseWriters();
  ::close(receiver_);
}

void Console::CloseWriters() {
  for (int& writer : writers_) {
    if (writer >= 0) {
      ::close(writer);
      writer = -1;
    }
  }
}

void Console::Drain() {
  for (;;) {
    sockaddr_un from{};
    socklen_t fromBytes = sizeof from;
    const ssize_t count = ::recvfrom(receiver_,
                                     buffer_.get(),
                                     kLargestWrite,
                                     MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&from),
                                     &fromBytes);
    if (count < 0) {
      return;
    }
    const std::string_view bytes(buffer_.get(), static_cast<std::size_t>(count));
    const std::string_view sender(from.sun_path);
    const std::size_t index = sender.ends_with('0') ? 0 : 1;
    if (index == 0) {
      log_.StandardOutput(bytes);
    } else {
      log_.StandardError(bytes);
    }
    if (!broken_[index]) {
      broken_[index] = !WriteAll(static_cast<int>(index) + 1, bytes);
    }
  }
}

}  // namespace orvane
