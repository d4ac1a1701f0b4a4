#include "tests/unit/flash/ScriptedGzread.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <stdexcept>

namespace {

ScriptedGzread* script = nullptr;

struct ErrorLimit {
  int limit = 0;
  int errors = 0;
};

std::optional<ErrorLimit> errorLimit;

}  // namespace

ScriptedGzread::ScriptedGzread(std::vector<int> results)
    : results_(results.begin(), results.end()) {
  if (script != nullptr) {
    throw std::logic_error("one script at a time");
  }
  script = this;
}

ScriptedGzread::~ScriptedGzread() {
  script = nullptr;
  EXPECT_TRUE(results_.empty()) << results_.size() << " calls of gzread() are missing";
}

int ScriptedGzread::Next(unsigned length) {
  lengths_.push_back(length);
  if (results_.empty()) {
    ADD_FAILURE() << "gzread() called once too often, for " << length << " bytes";
    return 0;
  }
  const int result = results_.front();
  results_.pop_front();
  return result;
}

EndAfterGzreadErrors::EndAfterGzreadErrors(int errors) { errorLimit = ErrorLimit{.limit = errors}; }

EndAfterGzreadErrors::~EndAfterGzreadErrors() { errorLimit.reset(); }

int EndAfterGzreadErrors::Errors() { return errorLimit->errors; }

extern "C" {
int RealGzread(gzFile file, voidp buffer, unsigned length) __asm__("__real_gzread");
int WrapGzread(gzFile file, voidp buffer, unsigned length) __asm__("__wrap_gzread");

int WrapGzread(gzFile file, voidp buffer, unsigned length) {
  if (script != nullptr) {
    return script->Next(length);
  }
  const int count = RealGzread(file, buffer, length);
  if (count < 0 && errorLimit.has_value()) {
    if (errorLimit->errors == errorLimit->limit) {
      return 0;
    }
    ++errorLimit->errors;
  }
  return count;
}
}
