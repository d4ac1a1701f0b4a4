#pragma once

#include <streambuf>
#include <string>

#include "tests/doubles/ConsoleFormat.h"
#include "tests/doubles/EventLog.h"

/// Takes std::cout and std::cerr over while it lives, in one order with all other events; what is
/// written past the streams is not seen (ConsoleCapture sees it). Text becomes an event, out "..."
/// or err "...", when it is flushed and not before, so a missing flush puts it out of order; text
/// that is never flushed fails the test. Also restores the streams' formatting.
class LoggedConsole {
 public:
  explicit LoggedConsole(EventLog& log);
  LoggedConsole(const LoggedConsole&) = delete;
  LoggedConsole& operator=(const LoggedConsole&) = delete;
  ~LoggedConsole();

  /// @return everything flushed so far
  [[nodiscard]] const std::string& Out() const { return out_.flushed(); }
  [[nodiscard]] const std::string& Err() const { return err_.flushed(); }

 private:
  class Buffer : public std::streambuf {
   public:
    Buffer(EventLog& log, std::string stream);
    [[nodiscard]] const std::string& flushed() const { return flushed_; }
    [[nodiscard]] const std::string& pending() const { return pending_; }

   protected:
    int_type overflow(int_type byte) override;
    int sync() override;

   private:
    EventLog& log_;
    std::string stream_;
    std::string pending_;
    std::string flushed_;
  };

  Buffer out_;
  Buffer err_;
  std::streambuf* originalOut_;
  std::streambuf* originalErr_;
  ConsoleFormat format_;
};
