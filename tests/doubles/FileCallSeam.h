#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/doubles/EventLog.h"

/// The file and time calls of the code under test, behind the linker's --wrap for open, close,
/// read, write, lseek, sleep and usleep. While an object lives, each call is one event, and is
///   answered here      for a control file, and for every sleep (which takes no time),
///   passed on          for a file that the test has allowed,
///   a test failure     for anything else.
/// Without an object all calls pass on.
class FileCallSeam {
 public:
  explicit FileCallSeam(EventLog& log);
  FileCallSeam(const FileCallSeam&) = delete;
  FileCallSeam& operator=(const FileCallSeam&) = delete;
  /// Closes what the code under test has left open.
  ~FileCallSeam();

  /// @param values  what each read gives, one after the other; the last one goes on for ever
  void AddControlFile(const std::string& path, std::vector<std::string> values = {});

  void AllowFile(const std::string& path);

  /// Has every `call` ("open", "write", ...) on a file fail with `error`.
  void Fail(const std::string& call, const std::string& path, int error);

  /// @return the paths that are open, one for each descriptor, sorted
  [[nodiscard]] std::vector<std::string> OpenFiles() const;

  // What the seams call.
  int Open(const char* path, int flags, unsigned mode);
  int Close(int fd);
  long Read(int fd, void* buffer, std::size_t size);
  long Write(int fd, const void* buffer, std::size_t size);
  long Seek(int fd, long offset, int whence);
  void Sleep(const std::string& event);

  static FileCallSeam* current;

 private:
  /// Logs the call, and fails it where the test has asked for that.
  /// @return true when errno is set and the call is to return -1
  bool Fails(const std::string& call, const std::string& path, const std::string& details);

  /// @return the path behind a descriptor; empty, after a test failure, when it is not open
  std::string PathOf(const char* call, int fd);

  EventLog& log_;
  std::map<std::string, std::vector<std::string>> controlFiles_;
  std::set<std::string> allowed_;
  std::map<std::string, int> faults_;  // "call path" to errno
  std::map<int, std::string> open_;
  int nextControlDescriptor_;
};
