#include "simulator/guard/ControlChannel.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

namespace orvane {

namespace {

constexpr std::size_t kMaxBytes = 64U << 10;

}  // namespace

std::pair<ControlChannel, ControlChannel> ControlChannel::MakePair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot create a socket");
  }
  return {ControlChannel(ends[0]), ControlChannel(ends[1])};
}

void ControlChannel::Send(std::string_view message) const {
  if (::send(Descriptor(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
    throw std::system_error(errno, std::generic_category(), "guard and host are parted");
  }
}

std::optional<std::string> ControlChannel::Receive() const {
  std::string message(kMaxBytes, '\0');
  ssize_t count = 0;
  do {
    count = ::recv(Descriptor(), message.data(), message.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) {
    return std::nullopt;
  }
  message.resize(static_cast<std::size_t>(count));
  return message;
}

}  // namespace orvane
