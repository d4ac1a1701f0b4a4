#include "simulator/trace/SummaryJson.h"

#include <algorithm>
#include <cstddef>

#include <nlohmann/json.hpp>

namespace orvane {

namespace {

using Json = nlohmann::ordered_json;

std::string Key(Cause cause) {
  std::string key(CauseName(cause));
  std::replace(key.begin(), key.end(), ' ', '_');
  return key;
}

// Objects are filled key by key: of a list in braces, each element would be built and taken apart.

Json CausesJson(const TimeTotals& times) {
  Json object;
  for (std::size_t i = 0; i < kCauses; ++i) {
    const auto cause = static_cast<Cause>(i);
    object[Key(cause)] = times.Of(cause).count();
  }
  return object;
}

Json StepsJson(const RunFigures& figures) {
  Json list = Json::array();
  for (const StepTimes& step : figures.steps) {
    Json object;
    object["name"] = step.name;
    object["total_ns"] = step.times.Sum().count();
    object["causes"] = CausesJson(step.times);
    list.push_back(std::move(object));
  }
  return list;
}

Json CommandsJson(const RunFigures& figures) {
  Json list = Json::array();
  for (const CommandCount& command : figures.commands) {
    Json object;
    object["name"] = command.name;
    object["messages"] = command.messages;
    object["bytes"] = command.bytes;
    list.push_back(std::move(object));
  }
  return list;
}

}  // namespace

std::string SummaryJson(const RunFigures& figures) {
  const std::int64_t total = figures.times.Sum().count();
  Json object;
  object["timing"] = Word(figures.timing);
  object["total_ns"] = total;
  object["causes"] = CausesJson(figures.times);
  object["steps"] = StepsJson(figures);
  object["commands"] = CommandsJson(figures);
  object["i2c"]["transfers"] = figures.i2cTransfers;
  object["i2c"]["bytes"] = figures.i2cBytes;
  object["control_files"]["reads"] = figures.fileReads;
  object["control_files"]["writes"] = figures.fileWrites;
  object["dbus_calls"] = figures.dbusCalls;
  object["pages"] = figures.pages;
  object["sectors"] = figures.sectors;
  object["subsectors"] = figures.subsectors;
  object["chip_erases"] = figures.chipErases;
  object["hertz"] = figures.hertz;
  object["limit_ns"] = figures.limit.count();
  object["ratio"] = nullptr;
  if (figures.limit.count() > 0) {
    object["ratio"] = static_cast<double>(total) / static_cast<double>(figures.limit.count());
  }
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace orvane
