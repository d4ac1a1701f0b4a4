#include "simulator/host/StateFile.h"

#include <cstdint>
#include <span>
#include <utility>

#include "simulator/host/WriteAll.h"

namespace orvane {

StateFile::StateFile(OutputFile file) : output_(std::move(file)) {
  if (output_.IsOrdinary()) {
    whole_.emplace(output_.TakePlace(), output_.Failing());
    whole_->Check();
  } else {
    plain_.emplace(output_.Open());
  }
}

void StateFile::Write(std::string_view text) const {
  if (whole_) {
    whole_->Write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  } else if (!WriteAll(plain_->Get(), text)) {
    output_.Fail();
  }
}

}  // namespace orvane
