#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace orvane {

/// What the command gets as its standard output and error when they are logged, and where both
/// arrive. Both are datagram sockets connected to the same receiver, so that each write is one
/// datagram, and datagrams keep their order.
class ConsoleSockets {
 public:
  /// @param directory  for the addresses of the sockets
  /// @throw std::system_error
  explicit ConsoleSockets(const std::string& directory);
  ConsoleSockets(const ConsoleSockets&) = delete;
  ConsoleSockets& operator=(const ConsoleSockets&) = delete;
  ~ConsoleSockets();

  int Receiver() const { return receiver_; }
  /// What the command gets as its descriptor 1 or 2.
  int WriterFor(int descriptor) const {
    return writers_.at(static_cast<std::size_t>(descriptor - 1));
  }
  void CloseWriters();

 private:
  int receiver_ = -1;
  std::array<int, 2> writers_{-1, -1};
};

}  // namespace orvane
