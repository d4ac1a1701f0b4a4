#pragma once

#include <cstdio>
#include <ios>
#include <streambuf>
#include <string>
#include <string_view>

#include "tests/doubles/EventLog.h"

/// Captures the console while it lives, then restores it and the format state of std::cout and
/// std::cerr, which code under test may have changed. Text is captured when it is flushed, and not
/// before.
class Console {
 public:
  enum class Takes {
    kStreams,          ///< std::cout and std::cerr
    kStreamsAndStdio,  ///< also stdout and stderr of <cstdio>, including what GoogleTest prints
  };

  /// @param log  borrowed; takes the text as events "out| ..." and "err| ..."; null for none
  explicit Console(EventLog* log = nullptr, Takes takes = Takes::kStreams);
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console();

  /// @return everything flushed so far
  [[nodiscard]] const std::string& Out() const { return out_.Flushed(); }
  [[nodiscard]] const std::string& Err() const { return err_.Flushed(); }

  /// @return what has been flushed since the last call
  std::string TakeOut() { return out_.Take(); }
  std::string TakeErr() { return err_.Take(); }

 private:
  class Stream : public std::streambuf {
   public:
    Stream(const char* name, EventLog* log) : name_(name), log_(log) {}

    void Flush(std::string_view text);
    [[nodiscard]] const std::string& Flushed() const { return flushed_; }
    std::string Take();

    /// @param standard   stdout or stderr, which the C library has as variables
    /// @param buffering  as of setvbuf()
    void TakeOver(std::FILE*& standard, int buffering);
    void GiveBack(std::FILE*& standard) const;

   protected:
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

   private:
    const char* name_;
    EventLog* log_;
    std::string pending_;
    std::string flushed_;
    std::size_t taken_ = 0;
    std::FILE* file_ = nullptr;
    std::FILE* former_ = nullptr;
  };

  Stream out_;
  Stream err_;
  std::ios outFormat_{nullptr};
  std::ios errFormat_{nullptr};
  std::streambuf* formerOut_;
  std::streambuf* formerErr_;
};
