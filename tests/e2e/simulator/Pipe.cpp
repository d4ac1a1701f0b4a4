#include "tests/e2e/simulator/Pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace orvane {

Pipe::Pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  reader_ = ends[0];
  writer_ = ends[1];
}

Pipe::~Pipe() {
  ::close(reader_);
  CloseWriter();
}

void Pipe::CloseWriter() {
  if (writer_ >= 0) {
    ::close(writer_);
    writer_ = -1;
  }
}

std::string Pipe::ReadLine() const {
  std::string line;
  char letter = '\0';
  while (::read(reader_, &letter, 1) == 1 && letter != '\n') {
    line += letter;
  }
  return line;
}

std::string Pipe::ReadToTheEnd() const {
  std::string text;
  char letter = '\0';
  while (::read(reader_, &letter, 1) == 1) {
    text += letter;
  }
  return text;
}

}  // namespace orvane
