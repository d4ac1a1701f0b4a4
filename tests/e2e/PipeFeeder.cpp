#include "tests/e2e/PipeFeeder.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace program_test {

namespace fs = std::filesystem;

PipeFeeder::PipeFeeder(fs::path path, std::vector<Bytes> contents) : path_(std::move(path)) {
  for (std::size_t opening = 0; opening < contents.size(); ++opening) {
    pipes_.push_back(path_.string() + "." + std::to_string(opening));
    if (::mkfifo(pipes_.back().c_str(), 0600) != 0) {
      throw std::system_error(errno, std::generic_category(), "mkfifo");
    }
  }
  PutInPlace(0);
  thread_ = std::thread([this, contents = std::move(contents)] { Feed(contents); });
}

PipeFeeder::~PipeFeeder() {
  // Pipes that nobody has opened are opened here, so that the thread ends.
  std::vector<int> readers;
  for (const fs::path& pipe : pipes_) {
    readers.push_back(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
  }
  thread_.join();
  for (const int reader : readers) {
    ::close(reader);
  }
}

void PipeFeeder::PutInPlace(std::size_t pipe) {
  const fs::path link = path_.string() + ".link";
  fs::create_hard_link(pipes_[pipe], link);
  fs::rename(link, path_);
}

void PipeFeeder::Feed(const std::vector<Bytes>& contents) {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);  // a reader may leave before the end
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (std::size_t pipe = 0; pipe < pipes_.size(); ++pipe) {
    const int writer = ::open(pipes_[pipe].c_str(), O_WRONLY);
    if (pipe + 1 < pipes_.size()) {
      PutInPlace(pipe + 1);
    } else {
      fs::remove(path_);
    }
    if (::write(writer, contents[pipe].data(), contents[pipe].size()) < 0 && errno != EPIPE) {
      std::perror("PipeFeeder");
    }
    ::close(writer);
  }
}

}  // namespace program_test
