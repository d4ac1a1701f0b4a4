#include "simulator/host/ConsoleSockets.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace orvane {

namespace {

constexpr int kWishedSendBytes = 4 << 20;  // the largest single write; the system may grant less

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

}  // namespace

ConsoleSockets::ConsoleSockets(const std::string& directory) {
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

ConsoleSockets::~ConsoleSockets() {
  CloseWriters();
  ::close(receiver_);
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
