#include "proofs/maps/Events.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string_view>
#include <utility>

namespace maps {

namespace {

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::string FirstWord(std::string_view text) { return std::string(text.substr(0, text.find(' '))); }

std::string AfterFirstWord(std::string_view text) {
  const std::size_t space = text.find(' ');
  return std::string(space == std::string_view::npos ? "" : text.substr(space + 1));
}

/// The step of an update after a line of the console.
std::string StepAfter(std::string_view console, const std::string& step) {
  constexpr std::pair<std::string_view, const char*> kOpeners[] = {
      {"SPI clock rate", "set-up"},
      {"Connecting ...", "connect"},
      {"Flash Memory Capacity", "compare"},
      {"Unlocking flash memory", "unlock"},
      {"Erasing device", "erase"},
      {"Programming device", "program"},
      {"Toggling reset", "reset"},
  };
  for (const auto& [text, opened] : kOpeners) {
    if (Contains(console, text)) {
      return opened;
    }
  }
  if (Contains(console, "done.\\n") && step == "program") {
    return "after the write";
  }
  return Contains(console, "done.\\n") && step == "reset" ? "end" : step;
}

/// The names that the companion gives its files.
std::string OwnName(const std::string& path) {
  const std::map<std::string, std::string> names = {
      {"lock", "the lock"}, {"work", "the work folder"}, {"ctl", "the state folder"}};
  const auto found = names.find(path);
  return found == names.end() ? path : found->second;
}

std::string ShortPath(std::string_view path) {
  constexpr std::pair<std::string_view, const char*> kNames[] = {
      {".unfinished", "the mark"},
      {"/qspi_prg/", "qspi_prg"},
      {"/zynq_hw_reset_n/", "zynq_hw_reset_n"},
      {"/zynq_done/", "zynq_done"},
      {"/module_selector/", "the module selector"},
      {"/bufsiz", "bufsiz"},
      {"/address", "the PCIe address"},
      {"/remove", "PCIe remove"},
      {"/rescan", "PCIe rescan"},
      {"/enable", "PCIe enable"},
      {"/name", "the adapter's name"},
      {"/dev/spidev", "the spidev node"},
      {"/dev/i2c", "the I2C node"},
      {"FlashDevice_verif.bin", "the second dump"},
      {"FlashDevice.bin", "the dump"},
      {"dumpflash.bin", "the dump"},
      {"image.bin", "the image"},
      {"-1", "descriptor -1"},
  };
  for (const auto& [part, name] : kNames) {
    if (Contains(path, part)) {
      return name;
    }
  }
  return OwnName(FirstWord(path));
}

/// "/dev/i2c-11 0x21 w 02 a0 3e" is "write the outputs a0 3e".
std::string ExpanderLabel(std::string_view text) {
  constexpr std::pair<std::string_view, const char*> kRegisters[] = {
      {" w 00", "inputs"}, {" w 02", "outputs"}, {" w 06", "directions"}};
  for (const auto& [start, name] : kRegisters) {
    const std::size_t at = text.find(start);
    if (at == std::string_view::npos) {
      continue;
    }
    const std::string_view rest = text.substr(at + start.size());
    return rest.starts_with(" r") ? std::string("read the ") + name
                                  : std::string("write the ") + name + std::string(rest);
  }
  return std::string(text);
}

/// Removes " = " and what follows.
/// @return what follows, "" without " = "
std::string CutResult(std::string& text) {
  const std::size_t at = text.rfind(" = ");
  std::string result = at == std::string::npos ? "" : text.substr(at + 3);
  text.resize(std::min(at, text.size()));
  return result;
}

std::string Label(const std::string& kind, const std::string& text) {
  if (kind == "open" || kind == "close" || kind == "read") {
    return kind + " " + ShortPath(text);
  }
  if (kind == "write") {
    const std::size_t value = text.find('"');
    return "write " + ShortPath(text) +
           (value == std::string::npos ? "" : " " + text.substr(value));
  }
  if (kind == "file") {
    const std::string file = AfterFirstWord(text);
    return FirstWord(text) + " " + (file.empty() ? "a folder" : ShortPath(file));
  }
  if (kind == "i2c") {
    return ExpanderLabel(text);
  }
  if (kind == "ioctl") {
    const std::string request = FirstWord(AfterFirstWord(text));
    return request.substr(std::string_view("SPI_IOC_").size());
  }
  if (kind == "dbus") {
    return FirstWord(text);
  }
  return kind == "spi" ? FirstWord(AfterFirstWord(text)) : kind + " " + text;
}

/// Whether this one of many is looked at: the first, the second, the middle and the last two.
bool IsSample(std::size_t number, std::size_t many) {
  return number <= 2 || number == many / 2 || number + 1 >= many;
}

/// The number before the first that is not 0.
std::size_t Before(const std::vector<Event>& events, std::size_t Event::*number) {
  const auto first = std::find_if(
      events.begin(), events.end(), [&](const Event& event) { return event.*number != 0; });
  return first == events.end() ? 0 : (*first).*number - 1;
}

/// Adds to the labels of SPI messages the sector or page, and to a write enable the command after
/// it.
class Placer {
 public:
  explicit Placer(std::vector<Event>& events)
      : events_(events),
        pagesBefore_(Before(events, &Event::program)),
        sectorsBefore_(Before(events, &Event::erase)) {
    pages_ = static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [](const Event& event) { return event.program != 0; }));
  }

  /// Drops the events of the pages that are not kept.
  void Place() {
    std::string place;
    bool isKept = true;
    std::vector<Event> kept;
    for (std::size_t i = 0; i < events_.size(); ++i) {
      Event& event = events_[i];
      const bool isSpi = event.kind == "spi";
      if (isSpi && event.label == "WREN") {
        const Event& aim = NextSpi(i);
        place = PlaceOf(aim);
        isKept = aim.program == 0 || IsSample(aim.program - pagesBefore_, pages_);
        event.label += " for " + aim.label;
      } else if (!isSpi) {
        place.clear();
        isKept = true;
      }
      event.label += place;
      if (isKept) {
        kept.push_back(event);
      }
    }
    events_ = std::move(kept);
  }

 private:
  const Event& NextSpi(std::size_t from) const {
    return *std::find_if(events_.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                         events_.end(),
                         [](const Event& event) { return event.kind == "spi"; });
  }

  std::string PlaceOf(const Event& event) const {
    if (event.erase != 0) {
      return ", sector " + std::to_string(event.erase - sectorsBefore_);
    }
    if (event.program == 0) {
      return "";
    }
    const std::map<std::size_t, std::string> names = {{1, ", first page"},
                                                      {2, ", second page"},
                                                      {pages_ / 2, ", middle page"},
                                                      {pages_ - 1, ", last page but one"},
                                                      {pages_, ", last page"}};
    const auto found = names.find(event.program - pagesBefore_);
    return found == names.end() ? "" : found->second;
  }

  std::vector<Event>& events_;
  std::size_t pagesBefore_;  // those of events that are left out
  std::size_t sectorsBefore_;
  std::size_t pages_;
};

/// Numbers the events of a log, one after the other.
class Counter {
 public:
  void Number(Event& event) {
    event.ordinal = ++ordinals_[event.kind];
    event.sameText = ++texts_[event.kind + " " + event.text];
    if (event.kind != "spi") {
      return;
    }
    if (event.label == "RDSR") {
      event.statusRead = ++statusReads_;
      event.label += event.result.ends_with('3') ? " busy" : " ready";
    } else if (event.label == "PP") {
      event.program = ++programs_;
      event.operation = programs_ + erases_;
    } else if (event.label == "SE") {
      event.erase = ++erases_;
      event.operation = programs_ + erases_;
    } else if (event.label == "WRSR") {
      event.registerWrite = ++registerWrites_;
    }
  }

 private:
  std::map<std::string, std::size_t> ordinals_;
  std::map<std::string, std::size_t> texts_;
  std::size_t statusReads_ = 0;
  std::size_t programs_ = 0;
  std::size_t erases_ = 0;
  std::size_t registerWrites_ = 0;
};

std::vector<Event> Read(const std::vector<std::string>& log, const StepOf& stepOf) {
  std::vector<Event> events;
  Counter counter;
  std::string step;
  for (const std::string& line : log) {
    Event event{.kind = FirstWord(line), .text = AfterFirstWord(line)};
    step = stepOf(line, step);
    const bool isEvent = event.kind != "stdout" && event.kind != "stderr" && event.kind != "exit";
    if (!isEvent || Contains(event.text, " speed ")) {
      continue;
    }
    event.step = step;
    event.result = CutResult(event.text);
    event.label = Label(event.kind, event.text);
    counter.Number(event);
    events.push_back(std::move(event));
  }
  return events;
}

/// Drops events that occur again and again in a step.
void KeepFiveOfEach(std::vector<Event>& events) {
  std::map<std::string, std::size_t> counts;
  for (const Event& event : events) {
    ++counts[event.step + "\t" + event.label];
  }
  std::map<std::string, std::size_t> seen;
  std::erase_if(events, [&](const Event& event) {
    const std::string key = event.step + "\t" + event.label;
    return !IsSample(++seen[key], counts[key]);
  });
}

}  // namespace

std::vector<Event> EventsOf(const std::vector<std::string>& log) {
  std::vector<Event> events = Read(log, [](const std::string& line, const std::string& step) {
    if (line.starts_with("stdout ") || line.starts_with("stderr ")) {
      return StepAfter(AfterFirstWord(line), step);
    }
    return step.empty() ? "discovery" : step;
  });
  Placer(events).Place();
  return events;
}

std::vector<Event> EventsOf(const std::vector<std::string>& log, const StepOf& stepOf) {
  std::vector<Event> events = Read(log, stepOf);
  std::erase_if(events, [](const Event& event) { return event.step.empty(); });
  Placer(events).Place();
  KeepFiveOfEach(events);
  return events;
}

}  // namespace maps
