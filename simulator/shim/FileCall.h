#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/PlainPath.h"
#include "simulator/shim/ReportFilter.h"
#include "simulator/shim/ShimLink.h"

namespace orvane::shim {

/// Makes a call on an ordinary file, which is an event if the user of the instrument wants that.
/// @param name        of the call
/// @param descriptor  of the file, -1 for a call that takes a path
/// @param path        of the file, or null
/// @param realCall    returns -1 with errno when it fails
template <typename RealCall>
auto FileCall(const char* name, int descriptor, const char* path, RealCall realCall)
    -> decltype(realCall()) {
  char buffer[kMaxPathBytes];
  const char* const plain = path == nullptr ? nullptr : PlainPath(path, buffer);
  if (!IsLinked() || IsLinkDescriptor(descriptor) ||
      (plain != nullptr && (!IsReported(plain, 0) || CanBeOnInstrument(plain)))) {
    return realCall();
  }
  const char* const shown = path == nullptr ? "" : path;
  iovec send[4] = {{},
                   {const_cast<char*>(name), std::strlen(name)},
                   {const_cast<char*>(" "), path == nullptr ? std::size_t{0} : 1},
                   {const_cast<char*>(shown), ::strnlen(shown, kMaxPathBytes)}};
  iovec receive[1] = {};
  link::Answer answer{};
  const std::uint32_t handle = Known(descriptor).handle;
  const int failed =
      Ask({.op = link::Op::kFileCall, .handle = handle}, {send, 4, receive, 1}, answer);
  if (failed != 0) {
    return Fail(failed);
  }
  if (answer.action == link::Action::kDone) {
    return Fail(answer.error);
  }
  const auto result = realCall();
  if (answer.handle != link::kNoHandle) {
    link::Answer ignored{};
    const int error = result < 0 ? errno : 0;
    AskBare({.op = link::Op::kFileCalled, .a = error}, ignored);
  }
  return result;
}

}  // namespace orvane::shim
