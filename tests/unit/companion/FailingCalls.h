#pragma once

#include <cerrno>
#include <string>
#include <string_view>

/// Has calls of one function of the system fail, for as long as it lives. The test wraps the function
/// (tarnwick_add_test's WRAP) and defines it with FAILING_CALL, or asks Fails(). One object at a time.
class FailingCalls {
 public:
  static constexpr int kAll = 1'000'000;

  /// @param count    how many calls fail
  /// @param spared   how many calls before them do not
  FailingCalls(std::string function, int error, int count = kAll, int spared = 0)
      : function_(std::move(function)), error_(error), count_(count), spared_(spared) {
    current_ = this;
  }
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;
  ~FailingCalls() { current_ = nullptr; }

  /// @return how many calls have failed
  [[nodiscard]] int Failed() const { return failed_; }

  /// @return whether this call fails; then errno is set
  static bool Fails(std::string_view function) {
    return current_ != nullptr && current_->FailsNow(function);
  }

 private:
  bool FailsNow(std::string_view function) {
    if (function != function_ || spared_-- > 0 || failed_ >= count_) {
      return false;
    }
    ++failed_;
    errno = error_;
    return true;
  }

  static inline FailingCalls* current_ = nullptr;
  std::string function_;
  int error_;
  int count_;
  int spared_;
  int failed_ = 0;
};

// NOLINTBEGIN(bugprone-macro-parentheses): types and parameter lists take none
#define FAILING_CALL(result, name, parameters, arguments)                     \
  extern "C" result __real_##name parameters;                                 \
  extern "C" result __wrap_##name parameters {                                \
    return FailingCalls::Fails(#name) ? result{-1} : __real_##name arguments; \
  }
// NOLINTEND(bugprone-macro-parentheses)
