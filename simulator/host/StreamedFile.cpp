#include "simulator/host/StreamedFile.h"

#include <unistd.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "simulator/host/WriteAll.h"

namespace orvane {

StreamedFile::Buffer::Buffer(FileDescriptor file) : file_(std::move(file)) {
  setp(waiting_.data(), waiting_.data() + waiting_.size());
}

StreamedFile::Buffer::~Buffer() { static_cast<void>(StreamedFile::Buffer::sync()); }

StreamedFile::Buffer::int_type StreamedFile::Buffer::overflow(int_type letter) {
  if (StreamedFile::Buffer::sync() != 0) {
    return traits_type::eof();
  }
  if (!traits_type::eq_int_type(letter, traits_type::eof())) {
    sputc(traits_type::to_char_type(letter));
  }
  return traits_type::not_eof(letter);
}

int StreamedFile::Buffer::sync() {
  const std::string_view waiting(pbase(), static_cast<std::size_t>(pptr() - pbase()));
  const bool isWritten = WriteAll(file_.Get(), waiting);
  setp(waiting_.data(), waiting_.data() + waiting_.size());
  return isWritten ? 0 : -1;
}

StreamedFile::StreamedFile(OutputFile file)
    : std::ostream(nullptr),
      file_(std::move(file)),
      isOrdinary_(file_.IsOrdinary()),
      isToBeRemoved_(isOrdinary_ && !file_.Place().Status()),
      buffer_(file_.Open()) {
  rdbuf(&buffer_);
}

StreamedFile::~StreamedFile() {
  if (isToBeRemoved_) {
    ::unlinkat(file_.Place().Folder(), file_.Place().Name().c_str(), 0);
  }
}

void StreamedFile::Empty() {
  if (isOrdinary_ && ::ftruncate(buffer_.Descriptor(), 0) != 0) {
    file_.Fail();
  }
  isToBeRemoved_ = false;
}

}  // namespace orvane
