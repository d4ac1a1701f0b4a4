#include "simulator/host/ConsoleSockets.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace orvane {

namespace {

constexpr int kWishedSendBytes = 4 << 20;  // the largest single write; the system may grant less

[[noreturn]] void Fail() {
  throw std::system_error(errno, std::generic_category(), "cannot set up the console");
}

}  // namespace

/// @param address  gets what the system has chosen
int ConsoleSockets::OpenBound(Address& address) {
  const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un any{};
  any.sun_family = AF_UNIX;
  address.bytes = sizeof address.address;
  auto* const chosen = reinterpret_cast<sockaddr*>(&address.address);
  if (descriptor < 0 ||
      ::bind(descriptor, reinterpret_cast<const sockaddr*>(&any), sizeof any.sun_family) != 0 ||
      ::getsockname(descriptor, chosen, &address.bytes) != 0) {
    Fail();
  }
  return descriptor;
}

ConsoleSockets::ConsoleSockets() {
  Address receiver;
  receiver_ = OpenBound(receiver);
  for (std::size_t i = 0; i < writers_.size(); ++i) {
    writers_[i] = OpenBound(addresses_[i]);
    ::setsockopt(writers_[i], SOL_SOCKET, SO_SNDBUF, &kWishedSendBytes, sizeof kWishedSendBytes);
    const auto* const to = reinterpret_cast<const sockaddr*>(&receiver.address);
    if (::connect(writers_[i], to, receiver.bytes) != 0) {
      Fail();
    }
  }
}

ConsoleSockets::~ConsoleSockets() {
  CloseWriters();
  ::close(receiver_);
}

std::optional<int> ConsoleSockets::DescriptorAt(const sockaddr_un& address, socklen_t bytes) const {
  for (std::size_t i = 0; i < addresses_.size(); ++i) {
    if (bytes == addresses_[i].bytes && std::memcmp(&address, &addresses_[i].address, bytes) == 0) {
      return static_cast<int>(i) + 1;
    }
  }
  return std::nullopt;
}

void ConsoleSockets::CloseWriters() {
  for (int& writer : writers_) {
    if (writer >= 0) {
      ::close(writer);
      writer = -1;
    }
  }
}

}  // namespace orvane
