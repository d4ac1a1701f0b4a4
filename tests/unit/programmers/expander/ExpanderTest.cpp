#include "tests/unit/programmers/expander/ExpanderTest.h"

#include <unistd.h>

ExpanderTest::ExpanderTest() : expander_(nullptr, 1) {
  script_.emplace(slots_.path());
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

ExpanderTest::~ExpanderTest() { script_.reset(); }

ExpanderTest::Events ExpanderTest::Recorded() { return ExpanderLog::Instance().Take(); }
