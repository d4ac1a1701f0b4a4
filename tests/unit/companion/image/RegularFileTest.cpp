#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "base/FileDescriptor.h"
#include "companion/image/RegularFile.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/companion/FailingCalls.h"
#include "tests/unit/companion/image/Images.h"

namespace {

/// Happens before the next file is opened.
std::function<void()> beforeOpening;

}  // namespace

FAILING_CALL(int, fstat, (int file, struct stat* status), (file, status))

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (beforeOpening) {
    std::exchange(beforeOpening, {})();
  }
  return __real_open(path, flags, mode);
}

namespace {

using companion::RegularFile;
using images::Bytes;

class RegularFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Path(const std::string& name) const {
    return folder_.Path() + "/" + name;
  }

  TemporaryDirectory folder_;
};

TEST_F(RegularFileTest, IsReadToItsEnd) {
  RegularFile file(folder_.File("f", "contents"));
  Bytes bytes;
  file.ReadUpTo(100, bytes);
  EXPECT_EQ(images::Text(bytes), "contents");
  EXPECT_EQ(file.Size(), 8U);
  EXPECT_EQ(file.Refusal(), "");
}

TEST_F(RegularFileTest, IsReadToTheLimitAndOnFromThere) {
  RegularFile file(folder_.File("f", "contents"));
  Bytes bytes;
  file.ReadUpTo(3, bytes);
  EXPECT_EQ(images::Text(bytes), "con");
  file.ReadUpTo(7, bytes);
  EXPECT_EQ(images::Text(bytes), "content");
}

TEST_F(RegularFileTest, LinkIsFollowed) {
  std::filesystem::create_symlink(folder_.File("f", "x"), Path("link"));
  RegularFile file(Path("link"));
  Bytes bytes;
  file.ReadUpTo(100, bytes);
  EXPECT_EQ(images::Text(bytes), "x");
}

TEST_F(RegularFileTest, MissingFileIsRefused) {
  const RegularFile file(Path("none"));
  EXPECT_EQ(file.Refusal(), "cannot open \"" + Path("none") + "\": No such file or directory");
}

TEST_F(RegularFileTest, DirectoryIsRefused) {
  const RegularFile file(folder_.Path());
  EXPECT_EQ(file.Refusal(), "\"" + folder_.Path() + "\" is no regular file but a directory");
}

TEST_F(RegularFileTest, PipeIsRefusedWithoutWaitingForAWriter) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  const RegularFile file(Path("pipe"));
  EXPECT_EQ(file.Refusal(), "\"" + Path("pipe") + "\" is no regular file but a pipe");
}

TEST_F(RegularFileTest, DeviceIsRefused) {
  const RegularFile file("/dev/null");
  EXPECT_EQ(file.Refusal(), "\"/dev/null\" is no regular file but a device");
}

TEST_F(RegularFileTest, SocketIsRefused) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  ASSERT_LT(Path("s").size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, Path("s").c_str());
  ASSERT_EQ(::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const RegularFile file(Path("s"));
  EXPECT_EQ(file.Refusal(), "\"" + Path("s") + "\" is no regular file but a socket");
}

TEST_F(RegularFileTest, FileThatCannotBeOpenedIsRefused) {
  const std::string path = folder_.File("f", "x");
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const RegularFile file(path);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(file.Refusal(), "cannot open \"" + path + "\": Too many open files");
}

TEST_F(RegularFileTest, PipeThatTakesItsPlaceMeanwhileIsRefused) {
  const std::string path = folder_.File("f", "x");
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  beforeOpening = [from = Path("pipe"), path] { std::filesystem::rename(from, path); };
  const RegularFile file(path);
  EXPECT_EQ(file.Refusal(), "\"" + path + "\" was replaced meanwhile");
}

TEST_F(RegularFileTest, FileThatCannotBeLookedAtOnceItIsOpenIsRefused) {
  const std::string path = folder_.File("f", "x");
  const FailingCalls failing("fstat", EIO);
  const RegularFile file(path);
  EXPECT_EQ(file.Refusal(), "\"" + path + "\" was replaced meanwhile");
}

TEST_F(RegularFileTest, ReadThatFailsIsToldOf) {
  RegularFile file("/proc/self/mem");  // nothing is mapped at address 0
  Bytes bytes;
  file.ReadUpTo(100, bytes);
  EXPECT_EQ(file.Refusal(), "cannot read \"/proc/self/mem\": Input/output error");
  EXPECT_EQ(bytes, Bytes());
}

}  // namespace
