#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/FileDescriptor.h"
#include "simulator/boards/ModuleFactory.h"
#include "simulator/host/ControlFiles.h"
#include "simulator/host/FileTable.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/Instrument.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {

bool operator==(const UnseenWrite& left, const UnseenWrite& right) {
  return left.path == right.path && left.bytes == right.bytes;
}
void PrintTo(const UnseenWrite& write, std::ostream* out) {
  *out << write.path << " " << testing::PrintToString(write.bytes);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kQspiPrg = "/sys/platform_m1/qspi_prg/value";
constexpr const char* kReset = "/sys/platform_m1/zynq_hw_reset_n/value";
constexpr const char* kRemove = "/sys/bus/pci/devices/0000:04:00.0/remove";
constexpr const char* kSpi = "/dev/spidev1.0";

/// A wend in slot 1 and a pyx1 in slot 4. The library of the testbed looks its directory up once in
/// a process, so that all tests share one.
class ControlFilesTest : public testing::Test {
 protected:
  static const std::string& Directory() {
    static const ::TemporaryDirectory directory;
    return directory.Path();
  }
  static std::vector<std::unique_ptr<Module>> Modules(const ModuleSelectorModel& selector) {
    std::vector<std::unique_ptr<Module>> modules;
    modules.push_back(MakeModule({.slot = 1}, {}, selector));
    modules.push_back(MakeModule({.type = ModuleType::kPyx1, .slot = 4}, {}, selector));
    return modules;
  }

  FileDescriptor OpenSink(const char* path) {
    return FileDescriptor(::open(files_.SinkOf(path).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  }
  FileDescriptor OpenFile(const char* path, int flags = 0) {
    return FileDescriptor(::open(testbed_.RealPath(path).c_str(), O_RDWR | O_CLOEXEC | flags));
  }
  static void Write(const FileDescriptor& file, const std::string& bytes) {
    EXPECT_EQ(::write(file.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string Contents(const char* path) { return ReadFile(testbed_.RealPath(path)); }
  /// What Write() in the instrument's place does.
  void Change(const char* path, const char* value) {
    EXPECT_EQ(instrument_.WriteAttribute(path, value).error, 0);
    files_.Update();
  }

  ModuleSelectorFiles selector_{true};
  EventLog log_{nullptr};
  Instrument instrument_{Modules(selector_.Selector()), selector_, {}, {.bytes = 4096}, log_};
  Testbed testbed_{Directory()};
  ControlFiles files_{instrument_, testbed_};
};

TEST_F(ControlFilesTest, AttributesHoldTheirContents) {
  EXPECT_EQ(Contents(kQspiPrg), "0\n");
  EXPECT_EQ(Contents(kRemove), "");
}

TEST_F(ControlFilesTest, NodesAreEmptyFiles) { EXPECT_EQ(Contents(kSpi), ""); }

TEST_F(ControlFilesTest, NothingIsTakenFromTheStart) {
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
}

TEST_F(ControlFilesTest, SinkHasTheSizeOfTheAttribute) {
  EXPECT_EQ(std::filesystem::file_size(files_.SinkOf(kQspiPrg)), 2U);
  EXPECT_EQ(std::filesystem::file_size(files_.SinkOf(kRemove)), 0U);
}

TEST_F(ControlFilesTest, NodesAndOtherFilesHaveNoSink) {
  EXPECT_EQ(files_.SinkOf(kSpi), "");
  EXPECT_EQ(files_.SinkOf("/sys/module/spidev/parameters/bufsiz"), "");
}

TEST_F(ControlFilesTest, BytesInTheSinkAreTakenOnce) {
  Write(OpenSink(kQspiPrg), "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
}

TEST_F(ControlFilesTest, TwoWritersOfOneSinkLoseNothing) {
  const FileDescriptor first = OpenSink(kQspiPrg);
  const FileDescriptor second = OpenSink(kQspiPrg);
  Write(first, "1\n");
  Write(second, "0\n");
  Write(first, "x\n");
  EXPECT_THAT(files_.TakeWrites(),
              ElementsAre(UnseenWrite{kQspiPrg, "1\n"},
                          UnseenWrite{kQspiPrg, "0\n"},
                          UnseenWrite{kQspiPrg, "x\n"}));
}

TEST_F(ControlFilesTest, BytesWithoutNewlineAreOneWrite) {
  const FileDescriptor sink = OpenSink(kQspiPrg);
  Write(sink, "1");
  Write(sink, "0");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "10"}));
}

TEST_F(ControlFilesTest, LongLineIsCutAfterAPage) {
  Write(OpenSink(kQspiPrg), std::string(4097, 'x') + "\ny");
  EXPECT_THAT(files_.TakeWrites(),
              ElementsAre(UnseenWrite{kQspiPrg, std::string(4096, 'x')},
                          UnseenWrite{kQspiPrg, "x\n"},
                          UnseenWrite{kQspiPrg, "y"}));
}

TEST_F(ControlFilesTest, FilesAreTakenInTheOrderOfTheirFirstWrites) {
  const FileDescriptor reset = OpenSink(kReset);
  const FileDescriptor qspiPrg = OpenSink(kQspiPrg);
  Write(reset, "0\n");
  Write(qspiPrg, "1\n");
  Write(reset, "1\n");
  EXPECT_THAT(
      files_.TakeWrites(),
      ElementsAre(
          UnseenWrite{kReset, "0\n"}, UnseenWrite{kReset, "1\n"}, UnseenWrite{kQspiPrg, "1\n"}));
}

TEST_F(ControlFilesTest, SinkThatAProgramTruncatedIsTakenFromItsNewEnd) {
  const FileDescriptor sink = OpenSink(kQspiPrg);
  ASSERT_EQ(::ftruncate(sink.Get(), 1), 0);
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
  Write(sink, "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
}

TEST_F(ControlFilesTest, WriteOverTheFileIsTakenAndUndone) {
  Write(OpenFile(kQspiPrg), "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
  EXPECT_EQ(Contents(kQspiPrg), "0\n");
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
}

TEST_F(ControlFilesTest, WriteOfWhatTheFileHoldsIsAWrite) {
  Write(OpenFile(kQspiPrg), "0\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "0\n"}));
}

TEST_F(ControlFilesTest, ShorterContentsAfterTruncationAreTakenAndUndone) {
  Write(OpenFile(kQspiPrg, O_TRUNC), "1");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1"}));
  EXPECT_EQ(Contents(kQspiPrg), "0\n");
}

TEST_F(ControlFilesTest, TruncationAloneIsNoWriteAndUndone) {
  OpenFile(kQspiPrg, O_TRUNC);
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
  EXPECT_EQ(Contents(kQspiPrg), "0\n");
}

TEST_F(ControlFilesTest, WriteBehindTheContentsIsTakenAlone) {
  const FileDescriptor file = OpenFile(kQspiPrg);
  Write(file, "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
  Write(file, "0\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "0\n"}));
}

TEST_F(ControlFilesTest, ZerosThatASkippedPositionLeavesAreNotTaken) {
  const FileDescriptor file = OpenFile(kQspiPrg);
  ASSERT_EQ(::pwrite(file.Get(), "1\n", 2, 6), 2);
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
}

TEST_F(ControlFilesTest, UpdateIsNoWrite) {
  Change(kQspiPrg, "1");
  EXPECT_EQ(Contents(kQspiPrg), "1\n");
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
}

TEST_F(ControlFilesTest, UpdateOfOneFileKeepsWritesToOthers) {
  Write(OpenFile(kReset), "0\n");
  Change(kQspiPrg, "1");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kReset, "0\n"}));
}

TEST_F(ControlFilesTest, RemovedAttributeHasNoFileButItsSinkIsTaken) {
  const FileDescriptor sink = OpenSink(kRemove);
  Change(kRemove, "1");
  EXPECT_FALSE(std::filesystem::exists(testbed_.RealPath(kRemove)));
  Write(sink, "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kRemove, "1\n"}));
}

TEST_F(ControlFilesTest, WriteOverAFileThatIsRemovedThenIsForgotten) {
  Write(OpenFile(kRemove), "1\n");
  files_.LookForExcess();  // notes the write
  Change(kRemove, "1");
  files_.LookForExcess();
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
}

TEST_F(ControlFilesTest, AttributeThatIsThereAgainIsWatchedAgain) {
  Change(kRemove, "1");
  Change("/sys/class/pci_bus/0000:04/rescan", "1");
  EXPECT_THAT(files_.TakeWrites(), IsEmpty());
  Write(OpenFile(kRemove), "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kRemove, "1\n"}));
}

TEST_F(ControlFilesTest, WriteToANodeIsTaken) {
  Write(OpenFile(kSpi), "x");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kSpi, "x"}));
}

TEST_F(ControlFilesTest, AsMuchAsMayWaitIsTaken) {
  Write(OpenSink(kQspiPrg), std::string(ControlFiles::kMostWaiting, 'x'));
  files_.LookForExcess();
  EXPECT_EQ(files_.TakeWrites().size(), ControlFiles::kMostWaiting / 4096);
}

TEST_F(ControlFilesTest, MoreThanMayWaitIsRefused) {
  Write(OpenSink(kQspiPrg), std::string(ControlFiles::kMostWaiting + 1, 'x'));
  EXPECT_THROW(files_.LookForExcess(), std::runtime_error);
  EXPECT_THROW(files_.TakeWrites(), std::runtime_error);
}

TEST_F(ControlFilesTest, MoreThanMayWaitInTheFileItselfIsRefused) {
  Write(OpenFile(kQspiPrg), std::string(ControlFiles::kMostWaiting + 1, 'x'));
  EXPECT_THROW(files_.LookForExcess(), std::runtime_error);
}

TEST_F(ControlFilesTest, SpaceOfWhatWasTakenIsGivenBack) {
  const FileDescriptor sink = OpenSink(kQspiPrg);
  for (int i = 0; i < 3; ++i) {
    Write(sink, std::string(ControlFiles::kMostWaiting, 'x'));
    EXPECT_EQ(files_.TakeWrites().size(), ControlFiles::kMostWaiting / 4096);
  }
  struct stat status {};
  ASSERT_EQ(::fstat(sink.Get(), &status), 0);
  EXPECT_LT(static_cast<std::uint64_t>(status.st_blocks) * 512, 2 * ControlFiles::kMostWaiting);
  Write(sink, "1\n");
  EXPECT_THAT(files_.TakeWrites(), ElementsAre(UnseenWrite{kQspiPrg, "1\n"}));
}

// --- Where an open leads ------------------------------------------------------------------------

class OpenedFileTest : public ControlFilesTest {
 protected:
  FileTable::Place Locate(const char* path, int flags) {
    return table_.Locate(table_.At(table_.HandleFor(path)), flags);
  }

  FileTable table_{instrument_, testbed_, files_};
};

TEST_F(OpenedFileTest, WriteOnlyOpenOfAnAttributeLeadsToTheEndOfItsSink) {
  const FileTable::Place place = Locate(kQspiPrg, O_WRONLY | O_TRUNC);
  EXPECT_EQ(place.error, 0);
  EXPECT_EQ(place.realPath, files_.SinkOf(kQspiPrg));
  EXPECT_EQ(place.addedFlags, O_APPEND);
}

TEST_F(OpenedFileTest, OpenThatReadsAnAttributeLeadsToItsFile) {
  for (const int flags : {O_RDONLY, O_RDWR}) {
    const FileTable::Place place = Locate(kQspiPrg, flags);
    EXPECT_EQ(place.realPath, testbed_.RealPath(kQspiPrg));
    EXPECT_EQ(place.addedFlags, 0);
  }
}

TEST_F(OpenedFileTest, WriteOnlyOpenOfAnotherFileLeadsToIt) {
  constexpr const char* kBufsiz = "/sys/module/spidev/parameters/bufsiz";
  testbed_.AddFile(kBufsiz, "4096\n");
  const FileTable::Place place = Locate(kBufsiz, O_WRONLY);
  EXPECT_EQ(place.realPath, testbed_.RealPath(kBufsiz));
  EXPECT_EQ(place.addedFlags, 0);
}

TEST_F(OpenedFileTest, RemovedAttributeIsNotFound) {
  Change(kRemove, "1");
  EXPECT_EQ(Locate(kRemove, O_WRONLY).error, ENOENT);
}

}  // namespace
}  // namespace orvane
