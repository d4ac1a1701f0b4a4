#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/shim/ExecutableCheck.h"
#include "tests/doubles/ScratchDirectory.h"

namespace orvane::executable {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kLoader = "/lib64/ld-linux-x86-64.so.2";

Machine X86() {
  Machine machine{.elfClass = 2, .data = 1, .machine = 62};
  detail::Copy(machine.loader, sizeof machine.loader, kLoader);
  return machine;
}

// clang-format off

/// The header of a program for 64-bit x86: it has two program headers, at 0x40.
Bytes Header() {
  return {0x7f, 'E', 'L', 'F', 2, 1, 1, 0,  0, 0, 0, 0, 0, 0, 0, 0,  // 64 bits, little endian
          0x03, 0x00, 0x3e, 0x00, 0x01, 0x00, 0x00, 0x00,            // ET_DYN, x86-64, version
          0x60, 0x10, 0, 0, 0, 0, 0, 0,                              // entry
          0x40, 0x00, 0, 0, 0, 0, 0, 0,                              // program headers
          0x00, 0x00, 0, 0, 0, 0, 0, 0,                              // section headers
          0x00, 0x00, 0x00, 0x00,  0x40, 0x00,                       // flags, size of this header
          0x38, 0x00, 0x02, 0x00,                                    // program headers: size, count
          0x40, 0x00, 0x00, 0x00, 0x00, 0x00};                       // section headers
}

/// A program header.
Bytes Segment(std::uint8_t type, std::uint8_t offset, std::uint8_t bytes) {
  return {type, 0, 0, 0,  4, 0, 0, 0,  offset, 0, 0, 0, 0, 0, 0, 0,
          0, 0, 0, 0, 0, 0, 0, 0,      0, 0, 0, 0, 0, 0, 0, 0,
          bytes, 0, 0, 0, 0, 0, 0, 0,  bytes, 0, 0, 0, 0, 0, 0, 0,
          1, 0, 0, 0, 0, 0, 0, 0};
}

// clang-format on

constexpr std::uint8_t kLoad = 1;
constexpr std::uint8_t kInterp = 3;
constexpr std::uint8_t kInterpOffset = 0x40 + 2 * 0x38;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

/// A program with a dynamic loader.
Bytes Dynamic(const std::string& loader = kLoader) {
  const auto bytes = static_cast<std::uint8_t>(loader.size() + 1);
  return Header() + Segment(kLoad, 0, 0) + Segment(kInterp, kInterpOffset, bytes) + Text(loader) +
         Bytes{0};
}

Bytes Static() { return Header() + Segment(kLoad, 0, 0) + Segment(kLoad, 0, 0); }

class ExecutableCheckTest : public testing::Test {
 protected:
  void SetUp() override {
    if constexpr (sizeof(void*) != 8) {
      GTEST_SKIP() << "the headers here are for 64 bits";
    }
  }

  static void Write(const std::string& name, const Bytes& bytes, mode_t mode = 0755) {
    WriteFile(name, std::string(bytes.begin(), bytes.end()));
    ASSERT_EQ(::chmod(name.c_str(), mode), 0);
  }

  static Verdict JudgeBytes(const Bytes& bytes) {
    Write("program", bytes);
    return Judge(AT_FDCWD, "./program", nullptr, X86());
  }

  static void ExpectFails(const Verdict& verdict, int error) {
    EXPECT_EQ(verdict.kind, Kind::kFails);
    EXPECT_EQ(verdict.error, error);
    EXPECT_FALSE(IsRefused(verdict));
  }

  static void ExpectRefused(const Verdict& verdict, Kind kind, const std::string& text) {
    EXPECT_EQ(verdict.kind, kind);
    EXPECT_TRUE(IsRefused(verdict));
    const RefusalText refusal = TextOf(verdict);
    EXPECT_EQ(std::string(refusal.text, refusal.length), text);
  }

  ScratchDirectory directory_;
};

// --- ELF files ----------------------------------------------------------------------------------

TEST_F(ExecutableCheckTest, ProgramWithOurLoaderIsFine) {
  EXPECT_EQ(JudgeBytes(Dynamic()).kind, Kind::kFine);
}

TEST_F(ExecutableCheckTest, LoaderInAnotherFolderIsFine) {
  EXPECT_EQ(JudgeBytes(Dynamic("/lib/ld-linux-x86-64.so.2")).kind, Kind::kFine);
}

TEST_F(ExecutableCheckTest, ProgramWithoutLoaderIsStatic) {
  ExpectRefused(JudgeBytes(Static()),
                Kind::kStatic,
                "'./program' is statically linked: it cannot run on the instrument");
}

TEST_F(ExecutableCheckTest, FixedAddressesWithoutLoaderAreStatic) {
  Bytes bytes = Static();
  bytes[16] = 2;  // ET_EXEC
  EXPECT_EQ(JudgeBytes(bytes).kind, Kind::kStatic);
}

TEST_F(ExecutableCheckTest, OtherLoaderIsOfAnotherCLibrary) {
  Write("ld-other.so.1", Bytes{});
  ExpectRefused(JudgeBytes(Dynamic("./ld-other.so.1")),
                Kind::kOtherLibc,
                "'./program' is for another C library: it cannot run on the instrument");
}

TEST_F(ExecutableCheckTest, OtherLoaderThatIsMissingFails) {
  ExpectFails(JudgeBytes(Dynamic("./ld-other.so.1")), ENOENT);
}

TEST_F(ExecutableCheckTest, OtherClassIsForeign) {
  Bytes bytes = Dynamic();
  bytes[4] = 1;  // 32 bits
  ExpectRefused(JudgeBytes(bytes),
                Kind::kForeign,
                "'./program' is for another architecture: it cannot run on the instrument");
}

TEST_F(ExecutableCheckTest, OtherByteOrderIsForeign) {
  Bytes bytes = Dynamic();
  bytes[5] = 2;  // big endian
  EXPECT_EQ(JudgeBytes(bytes).kind, Kind::kForeign);
}

TEST_F(ExecutableCheckTest, OtherMachineIsForeign) {
  Bytes bytes = Dynamic();
  bytes[18] = 0xb7;  // aarch64
  EXPECT_EQ(JudgeBytes(bytes).kind, Kind::kForeign);
  bytes[18] = 0x3e;
  bytes[19] = 0x01;
  EXPECT_EQ(JudgeBytes(bytes).kind, Kind::kForeign);
}

TEST_F(ExecutableCheckTest, MachineIsReadInTheByteOrderOfTheFile) {
  Bytes bytes = Dynamic();
  bytes[5] = 2;
  bytes[18] = 0x00;
  bytes[19] = 0x3e;
  Write("program", bytes);
  Machine own = X86();
  own.data = 2;
  // The rest of the header is read in the order of the machine that runs the test.
  EXPECT_NE(Judge(AT_FDCWD, "./program", nullptr, own).kind, Kind::kForeign);
}

TEST_F(ExecutableCheckTest, ObjectFileFails) {
  Bytes bytes = Dynamic();
  bytes[16] = 1;  // ET_REL
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, HeaderThatIsCutFails) {
  for (const std::size_t bytes : {4U, 19U, 20U, 63U}) {
    Bytes cut = Dynamic();
    cut.resize(bytes);
    ExpectFails(JudgeBytes(cut), ENOEXEC);
  }
}

TEST_F(ExecutableCheckTest, ProgramHeadersThatAreCutFail) {
  Bytes bytes = Static();
  bytes.resize(bytes.size() - 1);
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, NoProgramHeadersFail) {
  Bytes bytes = Static();
  bytes[56] = 0;
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, ProgramHeadersOfAnotherSizeFail) {
  Bytes bytes = Static();
  bytes[54] = 0x37;
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, TooManyProgramHeadersFail) {
  Bytes bytes = Static();
  bytes[56] = 0xff;
  bytes[57] = 0xff;
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, NameOfTheLoaderThatIsCutFails) {
  Bytes bytes = Dynamic();
  bytes.resize(bytes.size() - 1);
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, NameOfTheLoaderWithoutAnEndFails) {
  Bytes bytes = Dynamic();
  bytes.back() = 'x';
  ExpectFails(JudgeBytes(bytes), ENOEXEC);
}

TEST_F(ExecutableCheckTest, LongNameIsCutInTheText) {
  const std::string folder = std::string(200, 'a');
  const std::string name = folder + "/" + std::string(200, 'b');
  ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
  Write(name, Static());
  ExpectRefused(
      Judge(AT_FDCWD, name.c_str(), nullptr, X86()),
      Kind::kStatic,
      "'" + name.substr(0, 255) + "' is statically linked: it cannot run on the instrument");
}

// --- Scripts and other files --------------------------------------------------------------------

TEST_F(ExecutableCheckTest, ScriptIsJudgedByItsInterpreter) {
  Write("fine", Dynamic());
  Write("static", Static());
  EXPECT_EQ(JudgeBytes(Text("#!./fine\n")).kind, Kind::kFine);
  EXPECT_EQ(JudgeBytes(Text("#! \t./fine -x ./static\necho\n")).kind, Kind::kFine);
  EXPECT_EQ(JudgeBytes(Text("#!./fine")).kind, Kind::kFine);
  ExpectRefused(JudgeBytes(Text("#!./static\n")),
                Kind::kStatic,
                "'./static' is statically linked: it cannot run on the instrument");
}

TEST_F(ExecutableCheckTest, ScriptsAreFollowedAsDeepAsTheSystemDoes) {
  Write("s5", Static());
  for (const int i : {4, 3, 2, 1}) {
    Write("s" + std::to_string(i), Text("#!./s" + std::to_string(i + 1) + "\n"));
  }
  EXPECT_EQ(JudgeBytes(Text("#!./s1\n")).kind, Kind::kStatic);  // the fifth script
  Write("s0", Text("#!./s1\n"));
  ExpectFails(JudgeBytes(Text("#!./s0\n")), ELOOP);
}

TEST_F(ExecutableCheckTest, ScriptThatRunsItselfFails) {
  ExpectFails(JudgeBytes(Text("#!./program\n")), ELOOP);
}

TEST_F(ExecutableCheckTest, ScriptWithoutInterpreterFails) {
  ExpectFails(JudgeBytes(Text("#!\n")), ENOEXEC);
  ExpectFails(JudgeBytes(Text("#!  \necho\n")), ENOEXEC);
  ExpectFails(JudgeBytes(Text("#!./none\n")), ENOENT);
}

TEST_F(ExecutableCheckTest, InterpreterThatMayBeCutFails) {
  ExpectFails(JudgeBytes(Text("#!" + std::string(254, 'x') + "\n")), ENOEXEC);
}

TEST_F(ExecutableCheckTest, OtherContentsFail) {
  ExpectFails(JudgeBytes(Text("echo\n")), ENOEXEC);
  ExpectFails(JudgeBytes({}), ENOEXEC);
  ExpectFails(JudgeBytes({0x7f, 'E', 'L'}), ENOEXEC);
}

TEST_F(ExecutableCheckTest, WhatIsNoExecutableFileFails) {
  ExpectFails(Judge(AT_FDCWD, "./none", nullptr, X86()), ENOENT);
  ExpectFails(Judge(AT_FDCWD, ".", nullptr, X86()), EACCES);
  ASSERT_EQ(::mkfifo("fifo", 0755), 0);
  ExpectFails(Judge(AT_FDCWD, "./fifo", nullptr, X86()), EACCES);
  Write("data", Static(), 0644);
  ExpectFails(Judge(AT_FDCWD, "./data", nullptr, X86()), EACCES);
}

TEST_F(ExecutableCheckTest, FileThatCannotBeReadForLackOfDescriptorsIsRefused) {
  Write("program", Dynamic());
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  const rlimit none = {0, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const Verdict verdict = Judge(AT_FDCWD, "./program", nullptr, X86());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &old), 0);
  ExpectRefused(
      verdict,
      Kind::kUnreadable,
      "'./program' cannot be read, no descriptor is left: it cannot run on the instrument");
}

// --- The loader as a program --------------------------------------------------------------------

TEST_F(ExecutableCheckTest, ProgramOfTheLoaderIsJudged) {
  Write("loader", Static());
  Write("fine", Dynamic("./loader"));
  Write("static", Static());
  Machine own = X86();
  detail::Copy(own.loader, sizeof own.loader, "./loader");
  const auto judge = [&own](std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return Judge(AT_FDCWD, "./loader", arguments.data(), own).kind;
  };
  EXPECT_EQ(judge({"loader", "./fine"}), Kind::kFine);
  EXPECT_EQ(judge({"loader", "./static"}), Kind::kStatic);
  EXPECT_EQ(judge({"loader", "--argv0", "./fine", "--inhibit-cache", "./static"}), Kind::kStatic);
  EXPECT_EQ(judge({"loader", "--verify", "./static"}), Kind::kFine);  // does not run it
  EXPECT_EQ(judge({"loader", "--argv0"}), Kind::kFine);
  EXPECT_EQ(judge({"loader"}), Kind::kFine);
  EXPECT_EQ(judge({}), Kind::kFine);
  EXPECT_EQ(Judge(AT_FDCWD, "./loader", nullptr, own).kind, Kind::kFine);
}

// --- The search in PATH -------------------------------------------------------------------------

TEST_F(ExecutableCheckTest, FirstExecutableFileInPathIsJudged) {
  for (const char* const folder : {"a", "b", "c"}) {
    ASSERT_EQ(::mkdir(folder, 0755), 0);
  }
  Write("a/program", Static(), 0644);
  Write("b/program", Static());
  Write("c/program", Dynamic());
  ExpectRefused(JudgeSearched("program", "none:a:b:c", nullptr, X86()),
                Kind::kStatic,
                "'b/program' is statically linked: it cannot run on the instrument");
  EXPECT_EQ(JudgeSearched("program", "c:b", nullptr, X86()).kind, Kind::kFine);
  ExpectFails(JudgeSearched("program", "none:a", nullptr, X86()), EACCES);
  ExpectFails(JudgeSearched("program", "none", nullptr, X86()), ENOENT);
  ExpectFails(JudgeSearched("", "b", nullptr, X86()), ENOENT);
}

TEST_F(ExecutableCheckTest, EmptyFolderInPathIsTheWorkingDirectory) {
  Write("program", Static());
  EXPECT_EQ(JudgeSearched("program", "none:", nullptr, X86()).kind, Kind::kStatic);
  EXPECT_EQ(JudgeSearched("program", "", nullptr, X86()).kind, Kind::kStatic);
}

TEST_F(ExecutableCheckTest, NameWithASlashIsNotSearched) {
  Write("program", Static());
  EXPECT_EQ(JudgeSearched("./program", "none", nullptr, X86()).kind, Kind::kStatic);
}

TEST_F(ExecutableCheckTest, FolderThatIsTooLongIsPassedOver) {
  Write("program", Static());
  EXPECT_EQ(JudgeSearched("program", (std::string(5000, 'x') + ":.").c_str(), nullptr, X86()).kind,
            Kind::kStatic);
}

// --- This machine -------------------------------------------------------------------------------

TEST_F(ExecutableCheckTest, ProgramsOfThisMachineAreFine) {
  const Machine own = OwnMachine();
  EXPECT_EQ(Judge(AT_FDCWD, "/proc/self/exe", nullptr, own).kind, Kind::kFine);
  EXPECT_EQ(Judge(AT_FDCWD, own.loader, nullptr, own).kind, Kind::kFine);
  EXPECT_EQ(JudgeSearched("sh", nullptr, nullptr, own).kind, Kind::kFine);
  Write("text", Text("echo\n"));
  EXPECT_EQ(JudgeSearched("./text", nullptr, nullptr, own).kind,
            Kind::kFine);  // the shell reads it
}

}  // namespace
}  // namespace orvane::executable
