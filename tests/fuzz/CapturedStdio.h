#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

/// Takes stdout and stderr of <cstdio> over while it lives; std::cout and std::cerr have buffers of
/// their own (CapturedConsole).
class CapturedStdio {
 public:
  CapturedStdio();
  CapturedStdio(const CapturedStdio&) = delete;
  CapturedStdio& operator=(const CapturedStdio&) = delete;
  ~CapturedStdio();

  /// @return what has been flushed
  [[nodiscard]] std::string Out() const { return {out_.text, out_.size}; }

 private:
  struct Stream {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* file = nullptr;
    std::FILE* former = nullptr;

    void Open(std::FILE*& standard);
    void Close(std::FILE*& standard) const;
  };

  Stream out_;
  Stream err_;
};
