#include "simulator/host/ProgramClock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>

#include "base/FileDescriptor.h"

namespace orvane {

namespace {

constexpr mode_t kMode = 0600;

[[noreturn]] void Fail() {
  throw std::system_error(errno, std::generic_category(), "cannot create the clock of programs");
}

void* MapNew(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
  if (!file.IsOpen() || ::ftruncate(file.Get(), sizeof(TimePage)) != 0) {
    Fail();
  }
  void* const memory =
      ::mmap(nullptr, sizeof(TimePage), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
  if (memory == MAP_FAILED) {
    Fail();
  }
  return memory;
}

}  // namespace

ProgramClock::ProgramClock(const std::string& path) : page_(new (MapNew(path)) TimePage{}) {
  page_->start =
      std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

ProgramClock::~ProgramClock() { ::munmap(page_, sizeof(TimePage)); }

ProgramClock::Passed ProgramClock::Take() {
  const Passed all = {std::chrono::nanoseconds(page_->looked),
                      std::chrono::nanoseconds(page_->waited)};
  const Passed passed = {all.looks - taken_.looks, all.waits - taken_.waits};
  taken_ = all;
  return passed;
}

void ProgramClock::Show(std::chrono::nanoseconds now) {
  page_->hosted = (now - taken_.looks - taken_.waits).count();
}

}  // namespace orvane
