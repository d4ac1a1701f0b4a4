#pragma once

#include <dlfcn.h>
#include <sys/types.h>

#include "simulator/shim/DescriptorTable.h"
#include "simulator/shim/LinkProtocol.h"

/// What the replaced calls share. Each of them asks the host first and then makes the real call, or
/// returns what the host answers. A call that is no event goes to the next library at once.
namespace orvane::shim {

/// What a descriptor of this process was opened as.
DescriptorTable::Entry Known(int descriptor);
/// Changes that; in a child of vfork not for its parent.
void SetKnown(int descriptor, DescriptorTable::Entry entry);

/// The function of this name in the libraries after this one. `cache` keeps it.
template <typename Function>
Function* Next(Function*& cache, const char* name) {
  if (cache == nullptr) {
    cache = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
  }
  return cache;
}

#define NEXT(name)                           \
  ([]() {                                    \
    static decltype(name)* cache = nullptr;  \
    return orvane::shim::Next(cache, #name); \
  }())

/// Sets errno.
/// @return -1
int Fail(int error);

/// Asks a question without payload that has an answer without payload.
/// @return 0, or an errno, as Ask()
int AskBare(const link::Question& question, link::Answer& answer);

/// What the host says about a call.
struct Decision {
  bool proceed = true;
  ssize_t result = 0;  // errno is set when it is negative
};

/// @param failed  what Ask returned
Decision Decide(int failed, const link::Answer& answer);

}  // namespace orvane::shim
