#include "simulator/host/FlashFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/chips/NorFlashModel.h"
#include "simulator/host/FilePlace.h"

namespace orvane {

namespace {

constexpr int kMostReplacements = 10;  // seen while the file is opened

std::string Failing(const char* what, const std::string& path) {
  return std::string("cannot ") + what + " flash file '" + path + "'";
}

[[noreturn]] void Fail(const char* what, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), Failing(what, path));
}

[[noreturn]] void Refuse(const std::string& path, const char* why) {
  throw std::runtime_error("flash file '" + path + "' " + why);
}

/// Something that is no file is not opened: that can have effects of its own. A directory is left
/// to open(), which has an error for it.
void RefuseIfNoFile(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    Refuse(path, "is not a regular file");
  }
}

FileDescriptor Open(const std::string& path, const FilePlace& place) {
  if (const std::optional<struct stat> status = place.Status()) {
    RefuseIfNoFile(path, *status);
  }
  constexpr int kFlags = O_RDWR | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor file(::openat(place.Folder(), place.Name().c_str(), kFlags));
  struct stat opened {};
  if (!file.IsOpen() || ::fstat(file.Get(), &opened) != 0) {
    Fail("open", path);
  }
  RefuseIfNoFile(path, opened);
  return file;
}

/// @return false when another instrument has it locked
bool Lock(const std::string& path, const FileDescriptor& file) {
  if (::flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
    return true;
  }
  if (errno != EWOULDBLOCK) {
    Fail("lock", path);
  }
  return false;
}

/// Whether the path still leads to the file: an instrument that saves puts a new one there.
bool LeadsTo(const std::string& path, const FileDescriptor& file) {
  struct stat present {};
  struct stat opened {};
  return ::stat(path.c_str(), &present) == 0 && ::fstat(file.Get(), &opened) == 0 &&
         IsSameFile(present, opened);
}

bool IsSameTime(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

FlashFile::FlashFile(const std::string& path) : FlashFile(path, OpenLocked(path)) {}

FlashFile::FlashFile(const std::string& path, Locked locked)
    : path_(path), whole_(std::move(locked.whole)), file_(std::move(locked.file)) {
  if (::fstat(file_.Get(), &opened_) != 0) {
    Fail("open", path_);
  }
  whole_.Check();
  whole_.RemoveLeftovers();
}

FlashFile::Locked FlashFile::OpenLocked(const std::string& path) {
  for (int replacements = 0; replacements <= kMostReplacements; ++replacements) {
    FilePlace place(path, Failing("open", path));
    FileDescriptor file = Open(path, place);
    const bool isLocked = Lock(path, file);
    if (LeadsTo(path, file)) {
      if (!isLocked) {
        Refuse(path, "is in use by another instrument");
      }
      return {WholeFile(std::move(place), Failing("write", path)), std::move(file)};
    }
  }
  Refuse(path, "is replaced again and again");
}

/// Passes the file on in pieces, until its end or until one is not taken.
/// @param take  takes bytes; returns whether it takes more
void FlashFile::Read(const std::function<bool(std::span<const std::uint8_t>)>& take) const {
  std::array<std::uint8_t, 1 << 16> piece{};
  off_t at = 0;
  for (;;) {
    const ssize_t count = ::pread(file_.Get(), piece.data(), piece.size(), at);
    if (count < 0 && errno != EINTR) {
      Fail("read", path_);
    }
    if (count == 0 || (count > 0 && !take({piece.data(), static_cast<std::size_t>(count)}))) {
      return;
    }
    at += std::max<ssize_t>(count, 0);
  }
}

std::vector<std::uint8_t> FlashFile::Load() const {
  std::vector<std::uint8_t> contents;
  contents.reserve(std::min(static_cast<std::size_t>(opened_.st_size), NorFlashModel::kBytes));
  Read([&](std::span<const std::uint8_t> piece) {
    contents.insert(contents.end(), piece.begin(), piece.end());
    if (contents.size() > NorFlashModel::kBytes) {
      Refuse(path_, "is larger than 16 MiB");
    }
    return true;
  });
  return contents;
}

void FlashFile::Save(std::span<const std::uint8_t> contents) const {
  RefuseChanged();
  if (!Holds(contents)) {
    whole_.Write(contents, [this] { RefuseChanged(); });
  }
}

bool FlashFile::Holds(std::span<const std::uint8_t> contents) const {
  if (static_cast<std::size_t>(opened_.st_size) != contents.size()) {
    return false;
  }
  bool isSame = true;
  try {
    Read([&](std::span<const std::uint8_t> piece) {
      isSame = piece.size() <= contents.size() &&
               std::ranges::equal(piece, contents.first(piece.size()));
      contents = isSame ? contents.subspan(piece.size()) : contents;
      return isSame;
    });
  } catch (const std::runtime_error&) {
    return false;  // what cannot be read may still be replaced
  }
  return isSame && contents.empty();
}

void FlashFile::RefuseChanged() const {
  const std::optional<struct stat> present = whole_.Place().Status();
  if (!present || !IsSameFile(opened_, *present)) {
    Refuse(path_, "was replaced or removed during the run; what the flash holds is not saved");
  }
  if (present->st_size != opened_.st_size || !IsSameTime(present->st_mtim, opened_.st_mtim)) {
    Refuse(path_, "was changed by others during the run; what the flash holds is not saved");
  }
}

}  // namespace orvane
