#pragma once

#include <ios>
#include <sstream>
#include <streambuf>
#include <string>

/// Takes std::cout and std::cerr over while it lives, and restores their formatting.
class CapturedConsole {
 public:
  CapturedConsole();
  CapturedConsole(const CapturedConsole&) = delete;
  CapturedConsole& operator=(const CapturedConsole&) = delete;
  ~CapturedConsole();

  [[nodiscard]] std::string Out() const { return out_.str(); }
  [[nodiscard]] std::string Err() const { return err_.str(); }

 private:
  std::stringbuf out_;
  std::stringbuf err_;
  std::ios outFormat_{nullptr};
  std::streambuf* formerOut_;
  std::streambuf* formerErr_;
};
