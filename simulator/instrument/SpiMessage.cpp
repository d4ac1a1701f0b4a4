#include "simulator/instrument/SpiMessage.h"

#include <string>

namespace orvane {

SpiTotals Total(std::span<const SpiTransfer> transfers) {
  SpiTotals totals;
  for (const SpiTransfer& transfer : transfers) {
    totals.all += transfer.length;
    totals.sent += transfer.sends ? transfer.length : 0;
    totals.received += transfer.receives ? transfer.length : 0;
  }
  return totals;
}

bool FitsInto(const SpiBuffers& buffers, const SpiMessage& message) {
  const std::uint64_t alignment = message.isPlain ? 1 : buffers.alignment;
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
  for (const SpiTransfer& transfer : message.transfers) {
    const std::uint64_t taken = (transfer.length + alignment - 1) / alignment * alignment;
    sent += transfer.sends ? taken : 0;
    received += transfer.receives ? taken : 0;
  }
  return sent <= buffers.bytes && received <= buffers.bytes;
}

std::vector<ChipSelect> ChipSelects(std::span<const SpiTransfer> transfers,
                                    std::span<const std::uint8_t> sent) {
  std::vector<ChipSelect> selects(1);
  for (const SpiTransfer& transfer : transfers) {
    ChipSelect& select = selects.back();
    const std::size_t at = select.mosi.size();
    if (transfer.sends) {
      const auto bytes = sent.first(transfer.length);
      select.mosi.insert(select.mosi.end(), bytes.begin(), bytes.end());
      select.sentBytes = select.mosi.size();
      sent = sent.subspan(transfer.length);
    } else {
      select.mosi.resize(at + transfer.length);
    }
    if (transfer.receives) {
      select.received.push_back({at, transfer.length});
    }
    if (transfer.changesChipSelect && &transfer != &transfers.back()) {
      selects.emplace_back();
    }
  }
  return selects;
}

SpiDescription Describe(std::span<const ChipSelect> selects) {
  SpiDescription all;
  for (const ChipSelect& select : selects) {
    const SpiDescription one = DescribeSpi(std::span(select.mosi).first(select.sentBytes),
                                           select.mosi.size() - select.sentBytes);
    all.command += (all.command.empty() ? "" : " / ") + one.command;
    all.answersShown = all.answersShown || one.answersShown;
  }
  return all;
}

SpiDescription DescribeLength(const SpiTotals& totals) {
  return {"message of " + std::to_string(totals.all) + " bytes"};
}

}  // namespace orvane
