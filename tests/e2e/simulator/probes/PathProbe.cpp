// A program for the instrument that makes calls on paths and descriptors, one step each:
//
//   open PATH FLAGS        FLAGS: any of r w + c x t; the descriptor stays open
//   long PATH COUNT        opens PATH with "/x" behind it until it has COUNT characters
//   fopen PATH MODE, openat PATH FLAGS, creat PATH, freopen PATH MODE
//   mode N                 SPI_IOC_RD_MODE of descriptor N
//   read N COUNT, write N COUNT (zeros), writev N COUNT PIECES
//   close N, dup2 N M, fcntl-dup N, closefrom N, close-range N M FLAGS, limit COUNT (of descriptors)
//
// Each step prints its result, or its errno's name.

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/spi/spidev.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class Probe {
 public:
  explicit Probe(std::vector<std::string> words) : words_(std::move(words)) {}

  void Run() {
    while (next_ < words_.size()) {
      const long result = Step(Word());
      const int error = errno;
      std::cout << (result < 0 ? ::strerrorname_np(error) : std::to_string(result)) << std::endl;
    }
  }

 private:
  std::string Word() { return words_.at(next_++); }
  long Number() { return std::stol(Word(), nullptr, 0); }
  int Descriptor() { return static_cast<int>(Number()); }

  int Flags() {
    int flags = O_RDONLY;
    for (const char letter : Word()) {
      flags |= letter == 'w' ? O_WRONLY : 0;
      flags |= letter == '+' ? O_RDWR : 0;
      flags |= letter == 'c' ? O_CREAT : 0;
      flags |= letter == 'x' ? O_EXCL : 0;
      flags |= letter == 't' ? O_TRUNC : 0;
    }
    return flags;
  }

  static long DescriptorOf(FILE* stream) { return stream == nullptr ? -1 : ::fileno(stream); }

  long Long() {
    std::string path = Word();
    const auto count = static_cast<std::size_t>(Number());
    while (path.size() < count) {
      path += "/x";
    }
    path.resize(count);
    return ::open(path.c_str(), O_RDONLY);
  }

  /// Memory that is there only as far as it is used.
  static void* Zeros(std::size_t bytes) {
    return ::mmap(
        nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }

  long WriteV() {
    const int descriptor = Descriptor();
    const auto bytes = static_cast<std::size_t>(Number());
    const auto pieces = static_cast<std::size_t>(Number());
    const std::vector<iovec> list(pieces, iovec{Zeros(bytes), bytes});
    return ::writev(descriptor, list.data(), static_cast<int>(pieces));
  }

  long OpenStep(const std::string& verb) {
    const std::string path = Word();
    if (verb == "creat") {
      return ::creat(path.c_str(), 0600);
    }
    if (verb == "fopen") {
      return DescriptorOf(::fopen(path.c_str(), Word().c_str()));
    }
    if (verb == "freopen") {
      FILE* const stream = ::fopen("/dev/null", "r");
      return DescriptorOf(::freopen(path.c_str(), Word().c_str(), stream));
    }
    const int flags = Flags();
    return verb == "open" ? ::open(path.c_str(), flags, 0600)
                          : ::openat(AT_FDCWD, path.c_str(), flags, 0600);
  }

  long DescriptorStep(const std::string& verb) {
    const int descriptor = Descriptor();
    if (verb == "mode") {
      std::uint8_t mode = 0;
      return ::ioctl(descriptor, SPI_IOC_RD_MODE, &mode);
    }
    if (verb == "close") {
      return ::close(descriptor);
    }
    if (verb == "dup2") {
      return ::dup2(descriptor, Descriptor());
    }
    if (verb == "fcntl-dup") {
      return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 10);
    }
    if (verb == "closefrom") {
      ::closefrom(descriptor);
      return 0;
    }
    if (verb == "close-range") {
      const auto last = static_cast<unsigned>(Number());
      return ::close_range(static_cast<unsigned>(descriptor), last, Descriptor());
    }
    const auto bytes = static_cast<std::size_t>(Number());
    return verb == "read" ? ::read(descriptor, Zeros(bytes), bytes)
                          : ::write(descriptor, Zeros(bytes), bytes);
  }

  long Step(const std::string& verb) {
    for (const char* const name : {"open", "openat", "creat", "fopen", "freopen"}) {
      if (verb == name) {
        return OpenStep(verb);
      }
    }
    if (verb == "long") {
      return Long();
    }
    if (verb == "writev") {
      return WriteV();
    }
    if (verb == "limit") {
      const auto count = static_cast<rlim_t>(Number());
      const rlimit limit = {count, count};
      return ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    return DescriptorStep(verb);
  }

  std::vector<std::string> words_;
  std::size_t next_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Probe({argv + 1, argv + argc}).Run();
  return 0;
}
