#include "tests/programmers/expander/ExpanderTest.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

std::filesystem::path MakeDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "expander.XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("mkdtemp");
  }
  std::filesystem::create_directory(name + "/slots");
  std::filesystem::create_directory(name + "/cwd");
  return name;
}

}  // namespace

ExpanderTest::ExpanderTest()
    : directory_(MakeDirectory()),
      expander_(nullptr, 1),
      previous_(std::filesystem::current_path()) {
  std::filesystem::current_path(directory_ / "cwd");
  script_.emplace((directory_ / "slots").string());
  // Says on standard error that this machine has no limit for SPI transfers.
  spi_ = Record([] { return std::make_unique<SPIDev>("unused", 1'000'000, 0, 8); });
  static_cast<void>(Recorded());
  script_->spi = spi();
}

void ExpanderTest::TearDown() {
  EXPECT_THAT(Recorded(), testing::IsEmpty());
  std::set<int> open;
  for (const auto& [fd, number] : script_->openFiles) {
    open.insert(number);
  }
  EXPECT_EQ(open, leftOpen_) << "files left open";
  while (!script_->openFiles.empty()) {
    ::close(script_->openFiles.begin()->first);
  }
  script_->onNanosleep = nullptr;
  Record([this] { programmer_.reset(); });
  static_cast<void>(Recorded());
}

ExpanderTest::~ExpanderTest() {
  script_.reset();
  std::filesystem::current_path(previous_);
  std::filesystem::remove_all(directory_);
}

ExpanderTest::Events ExpanderTest::Recorded() { return ExpanderLog::Instance().Take(); }

void ExpanderTest::WriteFile(const std::string& path, const std::string& bytes) {
  std::filesystem::remove(path);  // cutting a file short waits for the disk
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

std::string ExpanderTest::ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
