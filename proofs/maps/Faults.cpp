#include "proofs/maps/Faults.h"

#include <utility>

namespace maps {

namespace {

/// A rule for this event only.
std::string Once(const Event& event, const std::string& action) {
  return event.kind + "#" + std::to_string(event.ordinal) + ":" + action;
}

/// A rule for this event only that names it: the kind alone does not tell which answers it can have.
std::string OnceByText(const Event& event, const std::string& action) {
  return event.kind + ":" + event.text + "#" + std::to_string(event.sameText) + ":" + action;
}

/// A rule for this event and all later ones of its kind.
std::string FromHereOn(const Event& event, const std::string& action) {
  return event.kind + "#" + std::to_string(event.ordinal) + "+:" + action;
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// The errno with which the event is made to fail.
std::string Errno(const Event& event) {
  if (event.kind == "open") {
    return Contains(event.text, "/sys/") ? "ENOENT" : "EACCES";
  }
  if (event.kind == "write" && !Contains(event.text, "/sys/")) {
    return "ENOSPC";
  }
  if (event.kind == "sleep") {
    return "EINTR";
  }
  return event.kind == "i2c" ? "ENXIO" : "EIO";
}

bool IsOfFile(const Event& event) {
  return (event.kind == "open" || event.kind == "close" || event.kind == "write" ||
          event.kind == "file") &&
         !Contains(event.text, "/sys/") && !Contains(event.text, "/dev/");
}

class FaultList {
 public:
  explicit FaultList(const Event& event) : event_(event) {}

  void Add(const std::string& what, const std::string& action) {
    faults_.push_back({.step = event_.step,
                       .event = event_.label,
                       .what = what,
                       .keys = "",
                       .rules = {Once(event_, action)},
                       .isOfFile = IsOfFile(event_)});
  }
  void AddAnswer(const std::string& shown, const std::string& data) {
    Add("answers " + shown, "data:" + data);
  }
  void AddAnswerByText(const std::string& shown, const std::string& data) {
    faults_.push_back(
        {event_.step, event_.label, "answers " + shown, "", {OnceByText(event_, "data:" + data)}});
  }
  void AddLasting(const std::string& what, const std::string& rule) {
    faults_.push_back({event_.step, event_.label, what, "", {rule}, true});
  }
  void AddKey(const std::string& what,
              const std::string& key,
              std::size_t number,
              bool lasts = false) {
    faults_.push_back(
        {event_.step, event_.label, what, "," + key + "=" + std::to_string(number), {}, lasts});
  }

  std::vector<MappedFault> Take() { return std::move(faults_); }

 private:
  const Event& event_;
  std::vector<MappedFault> faults_;
};

void AddSpi(const Event& event, FaultList& list) {
  list.Add("lost", "lost");
  list.AddLasting("EIO from here on", FromHereOn(event, "EIO"));
  if (event.statusRead != 0) {
    list.AddAnswer("03", R"(\x03)");
    list.AddAnswer("ff", R"(\xff)");
    list.AddLasting("busy for ever",
                    "spi:RDSR#" + std::to_string(event.statusRead) + R"(+:data:\x03)");
  } else if (event.label == "RDID") {
    list.AddAnswer("ff ff ff", R"(\xff\xff\xff)");
    list.AddAnswer("the other chip",
                   event.result.starts_with("20") ? R"(\xc2\x20\x18)" : R"(\x20\xba\x18)");
  } else if (event.label == "RDCR") {
    list.AddAnswer("ff", R"(\xff)");
  } else if (event.label == "READ") {
    list.AddAnswer("garbage", "garbage");
  } else if (event.program != 0) {
    list.AddKey("not done by the chip", "program-lost", event.program);
    list.AddKey("busy for ever", "busy-after", event.operation, true);
  } else if (event.erase != 0) {
    list.AddKey("not done by the chip", "erase-lost", event.erase);
    list.AddKey("busy for ever", "busy-after", event.operation, true);
  } else if (event.registerWrite != 0) {
    list.AddKey("not done by the chip", "register-lost", event.registerWrite);
  }
}

void AddDBus(const Event& event, FaultList& list) {
  list.Add("error", "error");
  list.Add("no reply", "error:org.freedesktop.DBus.Error.NoReply");
  list.AddAnswerByText("nothing", "");
  list.AddAnswerByText(event.label == "GetModuleLocations" ? "another module" : "another bus",
                       event.label == "GetModuleLocations" ? "9" : "i2c-0");
}

void AddRead(const Event& event, FaultList& list) {
  list.AddAnswer("nothing", "");
  if (Contains(event.text, "bufsiz")) {
    list.AddAnswer("1", "1");
    list.AddAnswer("x", "x");
  } else if (Contains(event.text, "zynq_done")) {
    list.AddAnswer("x", "x");
  } else if (Contains(event.text, "/enable")) {
    list.AddAnswer("0", R"(0\n)");
  } else if (Contains(event.text, "/module_selector/")) {
    list.AddAnswer("SPIFIFO", R"(SPIFIFO\n)");
  } else if (Contains(event.text, "/address")) {
    list.AddAnswer("another address", R"(0000:77:00\n)");
  } else {
    list.AddAnswer("another name", R"(another\n)");
  }
}

}  // namespace

std::vector<MappedFault> FaultsOf(const Event& event) {
  FaultList list(event);
  if (event.kind == "dbus") {
    AddDBus(event, list);
    return list.Take();
  }
  list.Add(Errno(event), Errno(event));
  if (event.kind == "spi") {
    AddSpi(event, list);
  } else if (event.kind == "i2c") {
    list.Add("lost", "lost");
    list.AddLasting("ENXIO from here on", FromHereOn(event, "ENXIO"));
    if (Contains(event.text, " r ")) {
      list.AddAnswer("ff ff", R"(\xff\xff)");
    }
  } else if (event.kind == "read") {
    AddRead(event, list);
  } else if (event.kind == "ioctl" && Contains(event.label, "RD_")) {
    list.AddAnswerByText("1000", "1000");
  } else if (event.kind == "write" || event.kind == "ioctl") {
    list.Add("lost", "lost");
  }
  return list.Take();
}

std::vector<MappedFault> StuckLines(const Scenario& scenario) {
  std::vector<MappedFault> faults;
  const auto add = [&faults](const std::string& line, const std::string& what, std::string keys) {
    faults.push_back({"all along", line, what, std::move(keys), {}, true});
  };
  add("DONE", "low for ever", ",done=low");
  add("DONE", "high for ever", ",done=high");
  if (scenario.target == "wend") {
    return faults;
  }
  constexpr int kLines = 16;
  for (int line = 0; line < kLines; ++line) {
    for (const char* const level : {"0", "1"}) {
      add("line " + std::to_string(line) + " of the expander",
          std::string("stuck at ") + level,
          ",held=" + std::to_string(line) + ":" + level);
    }
  }
  return faults;
}

}  // namespace maps
