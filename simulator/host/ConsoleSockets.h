#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstddef>
#include <optional>

namespace orvane {

/// What the command gets as its standard output and error when they are logged, and where both
/// arrive. Both are datagram sockets connected to the same receiver, so that each write is one
/// datagram, and datagrams keep their order. Their addresses are the system's choice.
class ConsoleSockets {
 public:
  /// @throw std::system_error
  ConsoleSockets();
  ConsoleSockets(const ConsoleSockets&) = delete;
  ConsoleSockets& operator=(const ConsoleSockets&) = delete;
  ~ConsoleSockets();

  int Receiver() const { return receiver_; }
  /// What the command gets as its descriptor 1 or 2.
  int WriterFor(int descriptor) const {
    return writers_.at(static_cast<std::size_t>(descriptor - 1));
  }
  /// The descriptor, 1 or 2, that writes from this address.
  /// @return nothing for somebody else's
  std::optional<int> DescriptorAt(const sockaddr_un& address, socklen_t bytes) const;
  void CloseWriters();

 private:
  struct Address {
    sockaddr_un address{};
    socklen_t bytes = 0;
  };

  static int OpenBound(Address& address);

  int receiver_ = -1;
  std::array<int, 2> writers_{-1, -1};
  std::array<Address, 2> addresses_;  // of the writers
};

}  // namespace orvane
