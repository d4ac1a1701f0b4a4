#include "simulator/shim/Interpose.h"

#include <sys/uio.h>

#include <cerrno>

#include "simulator/shim/ShimLink.h"

namespace orvane::shim {

namespace {

DescriptorTable descriptors;  // zero from the start: no descriptor is known

}  // namespace

DescriptorTable& Descriptors() { return descriptors; }

int Fail(int error) {
  errno = error;
  return -1;
}

int AskBare(const link::Question& question, link::Answer& answer) {
  iovec send[1] = {};
  iovec receive[1] = {};
  return Ask(question, {send, 1, receive, 1}, answer);
}

Decision Decide(int failed, const link::Answer& answer) {
  if (failed != 0) {
    return {false, Fail(failed)};
  }
  if (answer.action != link::Action::kDone) {
    return {};
  }
  if (answer.error != 0) {
    return {false, Fail(answer.error)};
  }
  return {false, static_cast<ssize_t>(answer.result)};
}

}  // namespace orvane::shim
