// The calls that wait for a descriptor. None is an event. One that waits in vain lets its time pass on
// the program's clock: a deadline by this clock would never come otherwise.

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

#include "simulator/shim/Interpose.h"
#include "simulator/shim/ProgramTime.h"

namespace {

using namespace orvane;
using shim::Nanoseconds;

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1'000;

/// @param ready    what the call has returned
/// @param timeout  nanoseconds; less than 0: none
/// @return `ready`
int Waited(int ready, std::int64_t timeout) {
  if (ready == 0 && timeout > 0) {
    if (TimePage* const time = shim::ProgramTime(); time != nullptr) {
      time->waited += timeout;
    }
  }
  return ready;
}

std::int64_t TimeoutOf(int milliseconds) { return milliseconds * kNanosecondsPerMillisecond; }
std::int64_t TimeoutOf(const timespec* time) { return time == nullptr ? -1 : Nanoseconds(*time); }
std::int64_t TimeoutOf(const timeval* time) {
  return time == nullptr ? -1
                         : time->tv_sec * shim::kNanosecondsPerSecond +
                               time->tv_usec * kNanosecondsPerMicrosecond;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
// NOLINTBEGIN(bugprone-reserved-identifier): some functions have such names
extern "C" {

#pragma GCC visibility push(default)

// What programs call that were built with _FORTIFY_SOURCE.
int __poll_chk(pollfd* files, nfds_t count, int milliseconds, size_t bytes);
int __ppoll_chk(
    pollfd* files, nfds_t count, const timespec* timeout, const sigset_t* signals, size_t bytes);

int poll(pollfd* files, nfds_t count, int milliseconds) {
  return Waited(NEXT(poll)(files, count, milliseconds), TimeoutOf(milliseconds));
}

int __poll_chk(pollfd* files, nfds_t count, int milliseconds, size_t bytes) {
  return Waited(NEXT(__poll_chk)(files, count, milliseconds, bytes), TimeoutOf(milliseconds));
}

int ppoll(pollfd* files, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  const std::int64_t limit = TimeoutOf(timeout);
  return Waited(NEXT(ppoll)(files, count, timeout, signals), limit);
}

int __ppoll_chk(
    pollfd* files, nfds_t count, const timespec* timeout, const sigset_t* signals, size_t bytes) {
  const std::int64_t limit = TimeoutOf(timeout);
  return Waited(NEXT(__ppoll_chk)(files, count, timeout, signals, bytes), limit);
}

int epoll_wait(int epoll, epoll_event* events, int count, int milliseconds) {
  return Waited(NEXT(epoll_wait)(epoll, events, count, milliseconds), TimeoutOf(milliseconds));
}

int epoll_pwait(
    int epoll, epoll_event* events, int count, int milliseconds, const sigset_t* signals) {
  return Waited(NEXT(epoll_pwait)(epoll, events, count, milliseconds, signals),
                TimeoutOf(milliseconds));
}

int select(int count, fd_set* reads, fd_set* writes, fd_set* exceptions, timeval* timeout) {
  const std::int64_t limit = TimeoutOf(timeout);  // the call changes it
  return Waited(NEXT(select)(count, reads, writes, exceptions, timeout), limit);
}

int pselect(int count,
            fd_set* reads,
            fd_set* writes,
            fd_set* exceptions,
            const timespec* timeout,
            const sigset_t* signals) {
  const std::int64_t limit = TimeoutOf(timeout);
  return Waited(NEXT(pselect)(count, reads, writes, exceptions, timeout, signals), limit);
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
