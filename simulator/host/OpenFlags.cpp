#include "simulator/host/OpenFlags.h"

#include <fcntl.h>

#include <cstddef>

#include "simulator/instrument/Escape.h"

namespace orvane {

namespace {

constexpr struct {
  int flag;
  const char* name;
} kFlags[] = {
    {O_CREAT, "O_CREAT"},
    {O_EXCL, "O_EXCL"},
    {O_TRUNC, "O_TRUNC"},
    {O_APPEND, "O_APPEND"},
    {O_NONBLOCK, "O_NONBLOCK"},
    {O_SYNC, "O_SYNC"},
    {O_DSYNC, "O_DSYNC"},
    {O_CLOEXEC, "O_CLOEXEC"},
    {O_NOFOLLOW, "O_NOFOLLOW"},
    {O_NOCTTY, "O_NOCTTY"},
    {O_DIRECTORY, "O_DIRECTORY"},
    {O_DIRECT, "O_DIRECT"},
    {O_NOATIME, "O_NOATIME"},
};
constexpr int kLargeFile = 0100000;  // O_LARGEFILE on x86: follows from the build of a program

const char* AccessName(int flags) {
  switch (flags & O_ACCMODE) {
    case O_RDONLY:
      return "O_RDONLY";
    case O_WRONLY:
      return "O_WRONLY";
    case O_RDWR:
      return "O_RDWR";
    default:
      return "O_ACCMODE";
  }
}

std::string OctalMode(unsigned mode) {
  constexpr std::size_t kDigits = 4;
  std::string text;
  for (; mode != 0 || text.size() < kDigits; mode >>= 3U) {
    text.insert(text.begin(), static_cast<char>('0' + (mode & 7U)));
  }
  return text;
}

}  // namespace

std::string OpenFlagsText(int flags, unsigned mode) {
  std::string text = AccessName(flags);
  int left = flags & ~(O_ACCMODE | kLargeFile);
  for (const auto& row : kFlags) {
    if ((left & row.flag) == row.flag) {  // O_SYNC contains O_DSYNC
      text += std::string("|") + row.name;
      left &= ~row.flag;
    }
  }
  if (left != 0) {
    text.append("|").append(HexNumber(static_cast<unsigned>(left), 1));
  }
  if ((flags & O_CREAT) != 0) {
    text.append(" ").append(OctalMode(mode));
  }
  return text;
}

}  // namespace orvane
