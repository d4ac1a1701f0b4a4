#include "simulator/host/LinkConnection.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

namespace orvane {

namespace {

/// @param call  sendmsg or recvmsg
template <typename Call>
ssize_t Transfer(Call call, int descriptor, std::span<iovec> pieces) {
  msghdr message{};
  message.msg_iov = pieces.data();
  message.msg_iovlen = pieces.size();
  ssize_t result = 0;
  do {
    result = call(descriptor, &message, MSG_NOSIGNAL);
  } while (result < 0 && errno == EINTR);
  return result;
}

/// Sends or receives the packets after the first.
/// @return false when the connection has ended
template <typename Call>
bool TransferRest(Call call, int descriptor, std::uint8_t* bytes, std::size_t count) {
  while (count > 0) {
    std::array pieces = {iovec{bytes, std::min(count, link::kPacketBytes)}};
    const ssize_t moved = Transfer(call, descriptor, pieces);
    if (moved <= 0) {
      return false;
    }
    bytes += moved;
    count -= static_cast<std::size_t>(moved);
  }
  return true;
}

}  // namespace

LinkConnection::LinkConnection(int descriptor)
    : descriptor_(descriptor),
      packet_(std::make_unique_for_overwrite<std::uint8_t[]>(link::kPacketBytes)) {
  ucred peer{};
  socklen_t bytes = sizeof peer;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &bytes) == 0) {
    process_ = peer.pid;
  }
}

bool LinkConnection::Receive(link::Question& question, std::span<const std::uint8_t>& payload) {
  const std::size_t room = link::kPacketBytes - sizeof question;
  std::array pieces = {iovec{&question, sizeof question}, iovec{packet_.get(), room}};
  const ssize_t first = Transfer(::recvmsg, Descriptor(), pieces);
  if (first < static_cast<ssize_t>(sizeof question) ||
      question.payloadBytes > 2 * link::kMaxPayloadBytes) {
    return false;
  }
  const auto bytes = static_cast<std::size_t>(question.payloadBytes);
  const std::size_t have = static_cast<std::size_t>(first) - sizeof question;
  if (have >= bytes) {
    payload = {packet_.get(), bytes};
    return true;
  }
  longPayload_.resize(bytes);
  std::copy_n(packet_.get(), have, longPayload_.begin());
  payload = longPayload_;
  return TransferRest(::recvmsg, Descriptor(), longPayload_.data() + have, bytes - have);
}

bool LinkConnection::Send(link::Answer answer, std::span<const std::uint8_t> payload) const {
  answer.payloadBytes = payload.size();
  auto* const bytes = const_cast<std::uint8_t*>(payload.data());  // sendmsg only reads them
  const std::size_t first = std::min(payload.size(), link::kPacketBytes - sizeof answer);
  std::array pieces = {iovec{&answer, sizeof answer}, iovec{bytes, first}};
  return Transfer(::sendmsg, Descriptor(), pieces) >= 0 &&
         TransferRest(::sendmsg, Descriptor(), bytes + first, payload.size() - first);
}

}  // namespace orvane
