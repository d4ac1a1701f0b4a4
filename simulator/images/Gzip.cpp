#include "simulator/images/Gzip.h"

#include <zlib.h>

#include <limits>
#include <stdexcept>

namespace orvane {

std::vector<std::uint8_t> Gzip(std::span<const std::uint8_t> data) {
  constexpr int kGzipWindowBits = 15 + 16;  // the largest window, in a gzip wrapper
  constexpr int kDefaultMemoryLevel = 8;
  if (data.size() > std::numeric_limits<uInt>::max()) {
    throw std::runtime_error("too much data for one gzip member");
  }
  z_stream stream{};
  if (deflateInit2(&stream,
                   Z_DEFAULT_COMPRESSION,
                   Z_DEFLATED,
                   kGzipWindowBits,
                   kDefaultMemoryLevel,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("zlib cannot start");
  }
  std::vector<std::uint8_t> out(deflateBound(&stream, data.size()));
  // The interface of zlib is without const; it only reads from next_in.
  stream.next_in = const_cast<Bytef*>(data.data());
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  if (deflateEnd(&stream) != Z_OK || result != Z_STREAM_END) {
    throw std::runtime_error("zlib cannot compress");
  }
  return out;
}

}  // namespace orvane
