// stamp-search FILE REPETITIONS
// Searches FILE, which has no time stamp, and reads it in pieces, by turns. Writes a line for each
// repetition: nanoseconds of the search, nanoseconds of the reading.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "programmers/UserAccess.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

void Search(int fd) {
  if (user_access::Find(fd)) {
    throw std::runtime_error("the file has a time stamp");
  }
}

void ReadInPieces(int fd) {
  static std::vector<char> piece(kPieceBytes);
  ssize_t count = 0;
  do {
    count = ::read(fd, piece.data(), piece.size());
  } while (count > 0);
  if (count < 0) {
    throw std::runtime_error("the file cannot be read");
  }
}

/// @return how long `work` takes with the open file
std::chrono::nanoseconds Time(const std::string& path, void (*work)(int)) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) {
    throw std::runtime_error("the file cannot be opened");
  }
  const Clock::time_point start = Clock::now();
  work(file.Get());
  return Clock::now() - start;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() != 2) {
    std::cerr << "stamp-search FILE REPETITIONS" << std::endl;
    return EXIT_FAILURE;
  }
  try {
    const int repetitions = std::stoi(words[1]);
    for (int i = 0; i < repetitions; ++i) {
      const auto search = Time(words[0], Search);
      const auto reading = Time(words[0], ReadInPieces);
      std::cout << search.count() << ' ' << reading.count() << '\n';
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << "stamp-search: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
