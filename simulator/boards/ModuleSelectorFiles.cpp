#include "simulator/boards/ModuleSelectorFiles.h"

namespace orvane {

namespace {

using Attribute = ModuleSelectorModel::Attribute;

constexpr const char* kSlotA = "/sys/platform/module_selector/slotA";
constexpr const char* kSlotB = "/sys/platform/module_selector/slotB";

Attribute AttributeAt(std::string_view path) {
  return path == kSlotA ? Attribute::kSlotA : Attribute::kSlotB;
}

}  // namespace

std::vector<std::string> ModuleSelectorFiles::AttributePaths() const {
  return present_ ? std::vector<std::string>{kSlotA, kSlotB} : std::vector<std::string>{};
}

std::optional<std::string> ModuleSelectorFiles::ReadAttribute(std::string_view path) {
  return std::string(selector_.Read(AttributeAt(path))) + "\n";
}

int ModuleSelectorFiles::WriteAttribute(std::string_view path, std::string_view value) {
  selector_.Write(AttributeAt(path), WithoutNewline(value));
  return 0;
}

}  // namespace orvane
