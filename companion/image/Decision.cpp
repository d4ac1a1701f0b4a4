#include "companion/image/Decision.h"

#include <algorithm>
#include <array>
#include <string>

#include "companion/image/ModuleTypes.h"
#include "programmers/BootHeader.h"
#include "programmers/UserAccess.h"

namespace companion {

namespace {

bool HasBootHeader(std::string_view target) {
  return TypeOf(target).format == ImageFormat::kBootImage;
}

/// @return the build date as the program finds it, "" for none
std::string DateIn(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < boot_header::kHeaderBytes) {
    return "";
  }
  const auto field = bytes.subspan(boot_header::kUserFieldOffset, boot_header::kUserFieldBytes);
  const std::string text(field.begin(), field.end());
  return boot_header::BuildDateIn(text).value_or("");
}

/// @return the time stamp as the program finds it, 0 for none
std::uint32_t StampIn(std::span<const std::uint8_t> bytes) {
  return user_access::Find(bytes).value_or(0);
}

std::vector<std::uint8_t> PageWithDate(const std::string& date) {
  const std::string text = "tarnwickctl#" + date + "#";
  std::vector<std::uint8_t> page(kPageBytes, kErased);
  std::copy(text.begin(), text.end(), page.begin() + boot_header::kUserFieldOffset);
  return page;
}

std::vector<std::uint8_t> PageWithStamp(std::uint32_t stamp) {
  std::vector<std::uint8_t> page = {0x30, 0x01, 0xA0, 0x01};  // write one word to USR_ACCESS
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    page.push_back(static_cast<std::uint8_t>(stamp >> shift));
  }
  page.resize(kPageBytes, kErased);
  return page;
}

}  // namespace

std::size_t DumpedHeadBytes(std::string_view target) { return TypeOf(target).headBytes; }

bool FindsUpToDate(std::string_view target,
                   std::span<const std::uint8_t> head,
                   std::span<const std::uint8_t> image) {
  const auto dump = head.first(std::min(head.size(), DumpedHeadBytes(target)));
  if (HasBootHeader(target)) {
    return !boot_header::IsUpgradeRequired(DateIn(dump), DateIn(image));
  }
  return user_access::IsSameBuild(StampIn(dump), StampIn(image));
}

std::vector<std::uint8_t> PageThatDiffers(std::string_view target,
                                          std::span<const std::uint8_t> image) {
  if (HasBootHeader(target)) {
    // Neither is a text that stands for a missing date.
    const std::string date = "unfinished update";
    if (DateIn(image) == date) {
      return PageWithDate(date + " 2");
    }
    return PageWithDate(date);
  }
  constexpr std::uint32_t kFirstSecond = 0x08800000;  // 01/01/2000 00:00:00, not 0: that is none
  return PageWithStamp(StampIn(image) == kFirstSecond ? kFirstSecond + 1 : kFirstSecond);
}

std::optional<std::string> StampText(std::string_view target, std::span<const std::uint8_t> bytes) {
  if (HasBootHeader(target)) {
    const std::string date = DateIn(bytes);
    if (date.empty()) {
      return std::nullopt;
    }
    return date;
  }
  const std::optional<std::uint32_t> stamp = user_access::Find(bytes);
  if (!stamp) {
    return std::nullopt;
  }
  return user_access::Describe(*stamp);
}

}  // namespace companion
