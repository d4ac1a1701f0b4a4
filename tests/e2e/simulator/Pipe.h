#pragma once

#include <string>

namespace orvane {

/// A pipe that shows what a running command prints, and when the last process that could print more
/// has ended.
class Pipe {
 public:
  /// @throw std::system_error
  Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe();

  int Reader() const { return reader_; }
  int Writer() const { return writer_; }
  void CloseWriter();

  std::string ReadLine() const;
  /// Waits until no process has the other end open.
  std::string ReadToTheEnd() const;

 private:
  int reader_ = -1;
  int writer_ = -1;
};

}  // namespace orvane
