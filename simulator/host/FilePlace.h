#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/FileDescriptor.h"

namespace orvane {

/// The folder that a file is in, or would be created in, and its name there, behind all symbolic
/// links; also behind one that leads to no file. The folder is held open: the place stays the same
/// when folders above it are renamed or links are changed.
class FilePlace {
 public:
  /// @param failing  how the text of an exception starts: "cannot open flash file 'a.bin'"
  /// @throw std::system_error when there is no such folder, or the path cannot be followed
  FilePlace(const std::string& path, const std::string& failing);

  int Folder() const { return folder_->Get(); }  // O_PATH
  /// In the folder; "." when the path names a folder.
  const std::string& Name() const { return name_; }
  /// The descriptor of ours that the path names: /dev/stderr, /dev/fd/3, /proc/self/fd/3.
  const std::optional<int>& OwnDescriptor() const { return ownDescriptor_; }

  /// What is at the place now; nothing: no file.
  std::optional<struct stat> Status() const;
  /// What the path leads to now: as Status(), but that of the descriptor if it names one.
  std::optional<struct stat> StatusOfFile() const;

  /// Whether both paths lead to one file, by device and inode, or would once it is created.
  bool IsSameAs(const FilePlace& other) const;

 private:
  bool Follow(const std::string& path);
  bool Enter(const std::string& path);

  std::optional<FileDescriptor> folder_;
  std::string name_;
  std::optional<int> ownDescriptor_;
};

/// Whether both are the same file, by device and inode.
bool IsSameFile(const struct stat& one, const struct stat& other);

}  // namespace orvane
