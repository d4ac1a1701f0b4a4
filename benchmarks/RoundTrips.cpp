// round-trips COUNT BYTES
// Two processes send a question of BYTES and an answer as long to each other, COUNT times, over a socket
// of the kind that the virtual instrument uses, and do nothing else. Writes the nanoseconds.
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Answers until the other end is closed.
void Serve(int socket, std::vector<char>& message) {
  ssize_t count = 0;
  while ((count = ::recv(socket, message.data(), message.size(), 0)) > 0) {
    if (::send(socket, message.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) != count) {
      return;
    }
  }
}

std::chrono::nanoseconds Ask(int socket, std::vector<char>& message, int times) {
  const auto size = static_cast<ssize_t>(message.size());
  const Clock::time_point start = Clock::now();
  for (int i = 0; i < times; ++i) {
    if (::send(socket, message.data(), message.size(), MSG_NOSIGNAL) != size ||
        ::recv(socket, message.data(), message.size(), 0) != size) {
      throw std::runtime_error("the other process does not answer");
    }
  }
  return Clock::now() - start;
}

std::chrono::nanoseconds Measure(int times, std::size_t bytes) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::runtime_error("there is no socket");
  }
  const FileDescriptor own(ends[0]);
  FileDescriptor other(ends[1]);
  std::vector<char> message(bytes);
  const pid_t child = ::fork();
  if (child < 0) {
    throw std::runtime_error("there is no second process");
  }
  if (child == 0) {
    ::close(own.Get());
    Serve(other.Get(), message);
    ::_exit(EXIT_SUCCESS);
  }
  const auto time = Ask(own.Get(), message, times);
  ::shutdown(own.Get(), SHUT_RDWR);
  ::waitpid(child, nullptr, 0);
  return time;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() != 2) {
    std::cerr << "round-trips COUNT BYTES" << std::endl;
    return EXIT_FAILURE;
  }
  try {
    std::cout << Measure(std::stoi(words[0]), std::stoul(words[1])).count() << std::endl;
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << "round-trips: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
