#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/instrument/SpiDecoder.h"

namespace orvane {

/// One transfer of an SPI message.
struct SpiTransfer {
  std::uint32_t length = 0;  // bytes
  std::uint32_t speedHz = 0;
  std::uint8_t bitsPerWord = 0;
  bool changesChipSelect = false;  // chip select rises after it, and falls again for the next one
  bool sends = false;              // zeros are sent otherwise
  bool receives = false;           // the program wants what comes back
};

/// What a program hands to an SPI device in one request.
struct SpiMessage {
  std::span<const SpiTransfer> transfers;
  /// The bytes of all transfers that send, in their order. None: there are too many bytes, and the
  /// message cannot be carried out.
  std::optional<std::span<const std::uint8_t>> sent;
  bool isPlain = false;  // a read() or write(): its transfer takes no more than its bytes
};

/// A longer message cannot be carried out.
inline constexpr std::uint64_t kMaxSpiMessageBytes = 64U << 20;

/// The buffers of the spidev driver, one for what is sent and one for what is received.
struct SpiBuffers {
  std::uint64_t bytes;          // of each
  std::uint32_t alignment = 1;  // a transfer takes a multiple of so many bytes, a power of two
};

/// How many bytes the transfers of a message have in total.
struct SpiTotals {
  std::uint64_t all = 0;
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
};
SpiTotals Total(std::span<const SpiTransfer> transfers);

/// Whether the driver takes the message: what is sent and what is received each fit into its buffer.
bool FitsInto(const SpiBuffers& buffers, const SpiMessage& message);

/// One chip select: what is sent, and the positions whose answer the program asked for.
struct ChipSelect {
  struct Window {
    std::size_t at;
    std::size_t length;
  };

  std::vector<std::uint8_t> mosi;
  std::size_t sentBytes = 0;  // from the start; the controller only receives after them
  std::vector<Window> received;
};

/// Joins the transfers: chip select stays low from the first to the last, unless one of them
/// changes it.
/// @return at least one
std::vector<ChipSelect> ChipSelects(std::span<const SpiTransfer> transfers,
                                    std::span<const std::uint8_t> sent);

/// "WREN / RDSR"; answers are shown when those of one chip select are.
SpiDescription Describe(std::span<const ChipSelect> selects);
/// "message of 67108865 bytes", for one that cannot be carried out.
SpiDescription DescribeLength(const SpiTotals& totals);

}  // namespace orvane
