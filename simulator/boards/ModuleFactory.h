#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "simulator/boards/Module.h"
#include "simulator/boards/ModuleOptions.h"
#include "simulator/chips/ModuleSelectorModel.h"

namespace orvane {

/// Builds the class for options.type.
/// @param flashContents  what the flash holds at power-on, at most NorFlashModel::kBytes
/// @param selector  borrowed; outlives the module
std::unique_ptr<Module> MakeModule(const ModuleOptions& options,
                                   std::span<const std::uint8_t> flashContents,
                                   const ModuleSelectorModel& selector);

}  // namespace orvane
