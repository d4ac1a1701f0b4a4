#include "simulator/host/StreamedFile.h"

#include <unistd.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "simulator/host/WriteAll.h"

namespace orvane {

namespace {

FileDescriptor OpenEmpty(OutputFile& file) {
  const bool isOrdinary = file.IsOrdinary();
  FileDescriptor descriptor = file.Open();
  if (isOrdinary && ::ftruncate(descriptor.Get(), 0) != 0) {
    file.Fail();
  }
  return descriptor;
}

}  // namespace

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

StreamedFile::StreamedFile(OutputFile& file) : std::ostream(nullptr), buffer_(OpenEmpty(file)) {
  rdbuf(&buffer_);
}

}  // namespace orvane
