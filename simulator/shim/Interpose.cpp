#include "simulator/shim/Interpose.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "simulator/shim/ShimLink.h"

namespace orvane::shim {

namespace {

DescriptorTable descriptors;  // zero from the start: no descriptor is known

/// What a child of vfork has changed. It runs on the memory of the thread that called vfork, which
/// must find the table as it was.
struct Changes {
  static constexpr int kMost = 64;  // beyond, descriptors stay as the parent knows them
  struct Change {
    int descriptor;
    std::uint32_t handle;
    link::Kind kind;
  };

  pid_t owner;  // 0: nobody
  int count;
  Change list[kMost];

  Change* Find(int descriptor) {
    for (int i = 0; i < count; ++i) {
      if (list[i].descriptor == descriptor) {
        return &list[i];
      }
    }
    return nullptr;
  }
};
__thread Changes changes __attribute__((tls_model("initial-exec")));

void SetInBorrowedMemory(int descriptor, DescriptorTable::Entry entry) {
  const pid_t self = ::getpid();
  if (changes.owner != self) {
    changes.owner = self;
    changes.count = 0;
  }
  Changes::Change* change = changes.Find(descriptor);
  if (change == nullptr && changes.count < Changes::kMost) {
    change = &changes.list[changes.count++];
  }
  if (change != nullptr) {
    *change = {descriptor, entry.handle, entry.kind};
  }
}

}  // namespace

DescriptorTable::Entry Known(int descriptor) {
  if (changes.owner != 0) {
    if (OwnsItsMemory()) {
      changes.owner = 0;  // that child has gone on to another program
    } else if (changes.owner == ::getpid()) {
      const Changes::Change* const change = changes.Find(descriptor);
      return change == nullptr ? descriptors.Get(descriptor)
                               : DescriptorTable::Entry{change->handle, change->kind};
    }
  }
  return descriptors.Get(descriptor);
}

void SetKnown(int descriptor, DescriptorTable::Entry entry) {
  const DescriptorTable::Entry now = Known(descriptor);
  if (descriptor < 0 || (now.handle == entry.handle && now.kind == entry.kind)) {
    return;
  }
  if (OwnsItsMemory()) {
    descriptors.Set(descriptor, entry);
  } else {
    SetInBorrowedMemory(descriptor, entry);
  }
}

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
