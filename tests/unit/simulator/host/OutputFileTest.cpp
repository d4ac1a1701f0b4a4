#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "base/FileDescriptor.h"
#include "simulator/host/OutputFile.h"
#include "simulator/host/StateFile.h"
#include "simulator/host/StreamedFile.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/simulator/host/ProblemWith.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;

/// The whole file of --log with this text in it.
/// @return whether it could be written
bool Log(const std::string& path, const std::string& text) {
  StreamedFile log(OutputFile("log file", path));
  log.Empty();
  log << text << std::flush;
  return static_cast<bool>(log);
}

void State(const std::string& path, const std::string& text) {
  StateFile(OutputFile("state file", path)).Write(text);
}

class OutputFileTest : public testing::Test {
 protected:
  std::string In(const std::string& name) const { return folder_.Path() + "/" + name; }
  std::string Create(const std::string& name, const std::string& contents) const {
    return folder_.File(name, contents);
  }
  /// A pipe with a name, and its end for reading.
  FileDescriptor Pipe(const std::string& name) const {
    EXPECT_EQ(::mkfifo(In(name).c_str(), 0600), 0);
    return FileDescriptor(::open(In(name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

 private:
  ::TemporaryDirectory folder_;
};

std::string ReadFrom(const FileDescriptor& reader) {
  std::array<char, 100> text{};
  const ssize_t count = ::read(reader.Get(), text.data(), text.size());
  return {text.data(), count < 0 ? 0 : static_cast<std::size_t>(count)};
}

ino_t InodeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_ino;
}

// --- The log ------------------------------------------------------------------------------------

TEST_F(OutputFileTest, LogReplacesWhatTheFileHeld) {
  const std::string file = Create("log", "old and longer");
  EXPECT_TRUE(Log(file, "new"));
  EXPECT_EQ(ReadFile(file), "new");
}

TEST_F(OutputFileTest, LogIsCreatedAlsoBehindALink) {
  fs::create_symlink("log", In("link"));
  EXPECT_TRUE(Log(In("link"), "new"));
  EXPECT_EQ(ReadFile(In("log")), "new");
}

TEST_F(OutputFileTest, LogOfManyBuffersIsWhole) {
  std::string text;
  for (int i = 0; i < 10000; ++i) {
    text += std::to_string(i) + '\n';
  }
  {
    StreamedFile log(OutputFile("log file", In("log")));
    log.Empty();
    for (const char letter : text) {
      log << letter;
    }
  }
  EXPECT_EQ(ReadFile(In("log")), text);
}

TEST_F(OutputFileTest, StreamThatIsNeverEmptiedIsLeftAsItWas) {
  const std::string file = Create("log", "old");
  fs::create_symlink("none", In("link"));
  {
    const StreamedFile held(OutputFile("log file", file));
    const StreamedFile created(OutputFile("log file", In("new")));
    const StreamedFile behindALink(OutputFile("log file", In("link")));
    EXPECT_TRUE(fs::exists(In("none")));
  }
  EXPECT_EQ(ReadFile(file), "old");
  EXPECT_FALSE(fs::exists(In("new")));
  EXPECT_TRUE(fs::is_symlink(In("link")));
  EXPECT_FALSE(fs::exists(In("none")));
}

TEST_F(OutputFileTest, LogCanBeAPipe) {
  const FileDescriptor reader = Pipe("pipe");
  EXPECT_TRUE(Log(In("pipe"), "new"));
  EXPECT_EQ(ReadFrom(reader), "new");
}

TEST_F(OutputFileTest, WritesToAPipeWait) {
  const FileDescriptor reader = Pipe("pipe");
  OutputFile file("log file", In("pipe"));
  const FileDescriptor writer = file.Open();
  EXPECT_EQ(::fcntl(writer.Get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(OutputFileTest, PipeThatNobodyReadsIsRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(In("pipe").c_str(), 0600), 0);
  EXPECT_EQ(ProblemWith([&] { Log(In("pipe"), "new"); }),
            "cannot write log file '" + In("pipe") + "': No such device or address");
  EXPECT_EQ(ProblemWith([&] { State(In("pipe"), "new"); }),
            "cannot write state file '" + In("pipe") + "': No such device or address");
}

TEST_F(OutputFileTest, FullDeviceIsNoticed) {
  EXPECT_FALSE(Log("/dev/full", "new"));
  EXPECT_EQ(ProblemWith([] { State("/dev/full", "new"); }),
            "cannot write state file '/dev/full': No space left on device");
}

TEST_F(OutputFileTest, NullDeviceIsTaken) {
  EXPECT_TRUE(Log("/dev/null", "new"));
  State("/dev/null", "new");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(OutputFileTest, DirectoryIsRefused) {
  EXPECT_EQ(ProblemWith([&] { Log(In(""), "new"); }),
            "cannot write log file '" + In("") + "': Is a directory");
  EXPECT_EQ(ProblemWith([&] { State(In(""), "new"); }),
            "cannot write state file '" + In("") + "': Is a directory");
}

// --- Descriptors --------------------------------------------------------------------------------

TEST_F(OutputFileTest, DescriptorIsWrittenWhereItStands) {
  const std::string file = Create("file", "");
  const FileDescriptor open(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::write(open.Get(), "before\n", 7), 7);
  const std::string path = "/dev/fd/" + std::to_string(open.Get());
  EXPECT_TRUE(Log(path, "log\n"));
  State(path, "state\n");
  ASSERT_EQ(::write(open.Get(), "after\n", 6), 6);
  EXPECT_EQ(ReadFile(file), "before\nlog\nstate\nafter\n");
}

TEST_F(OutputFileTest, DescriptorThatCannotBeWrittenIsRefused) {
  const std::string file = Create("file", "old");
  const FileDescriptor open(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor path(::open(file.c_str(), O_PATH | O_CLOEXEC));
  for (const int descriptor : {open.Get(), path.Get(), 999}) {
    const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    EXPECT_NE(ProblemWith([&] { Log(name, "new"); }), "") << name;
  }
  EXPECT_EQ(ReadFile(file), "old");
}

// --- The state ----------------------------------------------------------------------------------

TEST_F(OutputFileTest, StateIsANewFileInThePlaceOfTheOld) {
  const std::string file = Create("state", "old");
  fs::create_symlink("state", In("link"));
  const ino_t before = InodeOf(file);
  const StateFile state(OutputFile("state file", In("link")));
  EXPECT_EQ(ReadFile(file), "old");
  state.Write("new");
  EXPECT_EQ(ReadFile(file), "new");
  EXPECT_NE(InodeOf(file), before);
  EXPECT_TRUE(fs::is_symlink(In("link")));
}

TEST_F(OutputFileTest, StateIsCreatedAtTheEnd) {
  const StateFile state(OutputFile("state file", In("state")));
  EXPECT_FALSE(fs::exists(In("state")));
  state.Write("new");
  EXPECT_EQ(ReadFile(In("state")), "new");
}

TEST_F(OutputFileTest, StateCanBeAPipe) {
  const FileDescriptor reader = Pipe("pipe");
  State(In("pipe"), "new");
  EXPECT_EQ(ReadFrom(reader), "new");
}

}  // namespace
}  // namespace orvane
