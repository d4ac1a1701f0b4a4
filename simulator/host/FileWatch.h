#pragma once

#include <string>
#include <vector>

#include "base/FileDescriptor.h"

namespace orvane {

/// Tells which files have been written to. The kernel notes a write before the call that writes
/// returns, whatever process makes it.
class FileWatch {
 public:
  /// @throw std::system_error
  FileWatch();

  /// Readable when Read() has something to tell.
  int Descriptor() const { return descriptor_.Get(); }

  /// Starts to watch a file.
  /// @return the number of the watch; a number never comes back
  /// @throw std::system_error
  int Add(const std::string& path) const;
  /// Ends a watch. To be called before the file is deleted.
  void Remove(int watch) const;

  /// The watches whose files have been written to or truncated since the last call, in the order of
  /// the writes. A watch can be there more than once. Never waits.
  /// @throw std::runtime_error when there were more writes than the kernel can note
  std::vector<int> Read() const;

 private:
  FileDescriptor descriptor_;
};

}  // namespace orvane
