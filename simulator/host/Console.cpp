#include "simulator/host/Console.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string_view>

#include "simulator/host/WriteAll.h"

namespace orvane {

namespace {

constexpr std::size_t kLargestWrite = std::size_t{4} << 20;

}  // namespace

Console::Console(ConsoleSockets& sockets, EventLog& log, Instrument& instrument)
    : sockets_(sockets),
      log_(log),
      instrument_(instrument),
      buffer_(std::make_unique_for_overwrite<char[]>(kLargestWrite)) {
  sockets.CloseWriters();
}

void Console::Drain() {
  for (;;) {
    sockaddr_un from{};
    socklen_t fromBytes = sizeof from;
    const ssize_t count = ::recvfrom(Descriptor(),
                                     buffer_.get(),
                                     kLargestWrite,
                                     MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&from),
                                     &fromBytes);
    if (count < 0) {
      return;
    }
    const std::string_view bytes(buffer_.get(), static_cast<std::size_t>(count));
    const std::optional<int> descriptor = sockets_.DescriptorAt(from, fromBytes);
    if (!descriptor) {
      continue;
    }
    instrument_.NoteConsole(*descriptor, bytes);
    const auto index = static_cast<std::size_t>(*descriptor - 1);
    if (*descriptor == STDOUT_FILENO) {
      log_.StandardOutput(bytes);
    } else {
      log_.StandardError(bytes);
    }
    if (!broken_[index]) {
      broken_[index] = !WriteAll(*descriptor, bytes);
    }
  }
}

}  // namespace orvane
