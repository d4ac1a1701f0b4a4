#include <algorithm>
#include <array>
#include <random>

#include "proofs/swarm/World.h"

namespace swarm {

namespace {

/// Numbers that are the same with every library.
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t index) : engine_(seed * 1'000'003 + index) {}

  /// @return first..last
  std::size_t Number(std::size_t first, std::size_t last) {
    return first + static_cast<std::size_t>(engine_() % (last - first + 1));
  }
  bool IsOneIn(std::size_t count) { return Number(1, count) == 1; }
  template <typename T, std::size_t N>
  const T& Of(const std::array<T, N>& values) {
    return values.at(Number(0, N - 1));
  }
  /// 1..last; each doubling is as likely as the one before.
  std::size_t Ordinal(std::size_t last) {
    std::size_t limit = 2;
    while (limit < last && !IsOneIn(8)) {
      limit *= 2;
    }
    return Number(1, std::min(limit, last));
  }

 private:
  std::mt19937_64 engine_;
};

std::size_t DrawBytes(Random& random) {
  constexpr std::array<std::size_t, 10> kBorders = {
      512, 513, 768, 1'000, 1'024, 3'000, 4'096, 4'097, 65'536, 65'793};
  return random.IsOneIn(3) ? random.Of(kBorders)
                           : random.Number(600, random.IsOneIn(4) ? 9'000 : 3'000);
}

Contents DrawImage(Random& random, bool canBeUnfit) {
  constexpr std::array kFit = {"plain", "plain", "plain", "gzip", "unstamped", "namesake"};
  constexpr std::array kUnfit = {"empty", "short", "garbage", "cut", "damaged"};
  const char* const kind = canBeUnfit && random.IsOneIn(8) ? random.Of(kUnfit) : random.Of(kFit);
  return {.kind = kind, .bytes = DrawBytes(random)};
}

Contents DrawFlash(Random& random) {
  // An FPGA that cannot boot makes every reading wait for DONE: few of them, for speed.
  constexpr std::array kOften = {
      "old", "old", "old", "a", "a", "b", "oldunstamped", "flipped", "head"};
  constexpr std::array kSeldom = {"half", "blank"};
  const char* const kind = random.IsOneIn(10) ? random.Of(kSeldom) : random.Of(kOften);
  return {.kind = kind, .bytes = DrawBytes(random)};
}

std::vector<std::string> DrawStarts(Random& random, const World& world) {
  constexpr std::array kStarts = {"endpoint", "selector", "reset", "driven"};
  const std::string start = random.Of(kStarts);
  const bool isOfPyx = start == "endpoint" || start == "selector";
  const bool isPossible = (!isOfPyx || IsPyx(world)) && (start != "driven" || world.type != "wend");
  return random.IsOneIn(5) && isPossible ? std::vector{start} : std::vector<std::string>{};
}

std::vector<Step> DrawInside(Random& random) {
  constexpr std::array kInside = {'u', 'u', 'U', 'v', 't', 'T'};
  std::vector<Step> steps;
  for (std::size_t count = random.Number(1, 2); count > 0; --count) {
    steps.push_back({.what = random.Of(kInside), .holds = {}});
  }
  return steps;
}

Hold DrawHold(Random& random) {
  constexpr std::array kActions = {'k', 'k', 's', 's', 'i', 't', 'h', '[', '[', '['};
  Hold hold{.call = random.Ordinal(2'000), .action = random.Of(kActions), .inside = {}};
  if (hold.action == '[') {
    hold.inside = DrawInside(random);
  }
  return hold;
}

std::vector<Step> DrawSteps(Random& random) {
  constexpr std::array kSteps = {
      'u', 'u', 'u', 'u', 'u', 'U', 'U', 'r', 'v', 'v', 'V', 't', 't', 'T'};
  std::vector<Step> steps;
  if (random.IsOneIn(4)) {  // an update that was cut: busy chip, driven lines, half an image
    steps.push_back({.what = random.IsOneIn(2) ? 't' : 'T',
                     .holds = {{.call = random.Ordinal(1'500), .action = 'k', .inside = {}}}});
  }
  for (std::size_t count = random.Number(1, random.IsOneIn(3) ? 5 : 2); count > 0; --count) {
    Step step{.what = random.Of(kSteps), .holds = {}};
    if (random.IsOneIn(4)) {
      step.holds.push_back(DrawHold(random));
      if (random.IsOneIn(4)) {
        step.holds.push_back(DrawHold(random));
      }
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

std::string DrawKey(Random& random, const World& world) {
  constexpr std::array kCounted = {"program-lost", "erase-lost", "register-lost", "busy-after"};
  constexpr std::array kAddresses = {"worn-page", "worn-sector"};
  constexpr std::array kMissing = {"flash-chip=absent", "spidev=missing", "i2c=none", "spi=none"};
  switch (random.Number(0, 9)) {
    case 0:
      return random.Of(kMissing);
    case 1:
    case 2:
      return std::string(random.Of(kAddresses)) + "=" +
             std::to_string(random.Number(0, random.IsOneIn(2) ? 70'000 : 2'000));
    case 3:
      if (world.type != "wend") {
        return "held=" + std::to_string(random.Number(0, 15)) + ":" +
               std::to_string(random.Number(0, 1));
      }
      return "zynq-files=missing";
    case 4:
      return random.IsOneIn(2) ? "done=high" : "done=after:3000";
    default:
      return std::string(random.Of(kCounted)) + "=" + std::to_string(random.Ordinal(300));
  }
}

/// The place of a rule: which events.
struct Place {
  std::string kind;
  std::string text;  // "" or ":TEXT"
  std::size_t last;  // how many there may be
};

Place DrawPlace(Random& random, const World& world) {
  static const std::vector<Place> kAll = {{"spi", "", 1'500},         {"spi", ":PP", 300},
                                          {"spi", ":SE", 8},          {"spi", ":READ", 60},
                                          {"spi", ":RDSR", 900},      {"spi", ":RDID", 12},
                                          {"spi", ":WREN", 300},      {"open", "", 120},
                                          {"close", "", 120},         {"read", "", 40},
                                          {"write", "", 60},          {"ioctl", "", 60},
                                          {"dbus", "", 30},           {"dbus", ":GetI2CBus", 8},
                                          {"sleep", "", 60},          {"open", ":/dev/spidev", 10},
                                          {"open", ":image", 8},      {"write", ":image", 4},
                                          {"open", ":unfinished", 4}, {"file", "", 100},
                                          {"file", ":unlink", 12},    {"file", ":mkdir", 4},
                                          {"file", ":fsync", 12},     {"file", ":flock", 4}};
  static const std::vector<Place> kZynq = {{"write", ":qspi_prg", 12},
                                           {"write", ":zynq_hw_reset_n", 6},
                                           {"read", ":zynq_done", 30},
                                           {"open", ":zynq_hw_reset_n", 6},
                                           {"open", ":qspi_prg", 12}};
  static const std::vector<Place> kExpander = {
      {"i2c", "", 150}, {"i2c", ":w", 60}, {"i2c", ":r", 60}, {"open", ":/dev/i2c", 8}};
  static const std::vector<Place> kPyx = {{"write", ":/remove", 3},
                                          {"write", ":/rescan", 3},
                                          {"write", ":/enable", 3},
                                          {"write", ":slot", 8},
                                          {"read", ":/enable", 6},
                                          {"read", ":/address", 10},
                                          {"open", ":/address", 10},
                                          {"spi", ":RDCR", 6},
                                          {"spi", ":WRSR", 6}};
  std::vector<Place> places = kAll;
  const std::vector<Place>& board = world.type == "wend" ? kZynq : kExpander;
  places.insert(places.end(), board.begin(), board.end());
  places.insert(places.end(), board.begin(), board.end());
  if (IsPyx(world)) {
    places.insert(places.end(), kPyx.begin(), kPyx.end());
  }
  return places[random.Number(0, places.size() - 1)];
}

std::string DrawAnswer(Random& random, const Place& place) {
  constexpr std::array kBytes = {
      R"(\xff)", R"(\x03)", R"(\x00)", R"(\xff\xff\xff)", R"(\xc2\x20\x18)", R"(\x20\xba\x18)"};
  constexpr std::array kTexts = {"", "x", "0", "1", R"(0000:77:00\n)"};
  if (place.kind == "spi") {
    return random.Of(kBytes);
  }
  if (place.kind == "i2c") {
    return random.IsOneIn(2) ? R"(\xff\xff)" : R"(\x00\x00)";
  }
  return random.Of(kTexts);
}

std::string DrawAction(Random& random, const Place& place) {
  constexpr std::array kErrors = {"EIO", "EIO", "ENXIO", "EACCES", "ENOSPC", "EINTR"};
  if (place.kind == "dbus") {
    return random.IsOneIn(2) ? "error" : "error:org.freedesktop.DBus.Error.NoReply";
  }
  const std::size_t choice = random.Number(0, 9);
  const bool canBeLost =
      place.kind == "write" || place.kind == "ioctl" || place.kind == "spi" || place.kind == "i2c";
  const bool canAnswer = place.kind == "read" || place.kind == "spi" || place.kind == "i2c";
  if (choice < 4 && canBeLost) {
    return "lost";
  }
  if (choice < 6 && canAnswer) {
    return "data:" + DrawAnswer(random, place);
  }
  if (choice == 6) {
    return "kill";
  }
  if (choice == 7 && random.IsOneIn(2)) {
    return "kill-all";
  }
  return random.Of(kErrors);
}

std::string DrawFault(Random& random, const World& world) {
  if (random.IsOneIn(4)) {
    const bool isOfAll = random.IsOneIn(3);
    return "any#" + std::to_string(random.Ordinal(3'000)) + (isOfAll ? ":kill-all" : ":kill");
  }
  const Place place = DrawPlace(random, world);
  const std::string action = DrawAction(random, place);
  // No file below /sys is without an end, so no read has the same answer for ever; and what sleeps
  // again after EINTR has less to sleep then.
  const bool isText = place.kind == "read" && action.starts_with("data:");
  const bool canLast = !action.starts_with("kill") && !isText && action != "EINTR";
  const bool lasts = canLast && random.IsOneIn(5);
  return place.kind + place.text + "#" + std::to_string(random.Ordinal(place.last)) +
         (lasts ? "+" : "") + ":" + action;
}

void DrawWrongs(Random& random, World& world) {
  if (random.IsOneIn(25)) {
    constexpr std::array kStays = {"done=low", "done=high"};
    world.stays.emplace_back(random.Of(kStays));
  }
  for (std::size_t count = random.Number(1, random.IsOneIn(3) ? 5 : 2); count > 0; --count) {
    if (!random.IsOneIn(6)) {
      world.faults.push_back(DrawFault(random, world));
      continue;
    }
    const std::string key = DrawKey(random, world);
    const std::string name = key.substr(0, key.find('='));
    const auto hasName = [&](const std::string& other) { return other.starts_with(name + "="); };
    const bool isThere = std::any_of(world.keys.begin(), world.keys.end(), hasName) ||
                         std::any_of(world.stays.begin(), world.stays.end(), hasName);
    if (!isThere) {
      world.keys.push_back(key);
    }
  }
}

/// The program alone runs for ever on some images.
void AvoidEndlessRuns(const World& world, std::vector<Step>& steps) {
  if (world.a.kind != "damaged" && world.a.kind != "cut") {
    return;
  }
  for (Step& step : steps) {
    step.what = step.what == 't' ? 'T' : step.what;
    for (Hold& hold : step.holds) {
      AvoidEndlessRuns(world, hold.inside);
    }
  }
}

}  // namespace

World Draw(std::uint64_t seed, std::uint64_t index) {
  constexpr std::array kTypes = {"wend", "dax", "pyx1", "pyx2"};
  constexpr std::array kChips = {"micron", "macronix"};
  Random random(seed, index);
  World world;
  world.type = random.Of(kTypes);
  world.chip = random.Of(kChips);
  world.a = DrawImage(random, true);
  world.b = DrawImage(random, false);
  world.flash = DrawFlash(random);
  constexpr std::array kRegisters = {"00:00", "24:08", "24:08", "0c:08"};
  if (world.chip == "macronix") {
    world.registers = random.Of(kRegisters);
  }
  world.starts = DrawStarts(random, world);
  world.steps = DrawSteps(random);
  AvoidEndlessRuns(world, world.steps);
  DrawWrongs(random, world);
  world.endsHere = world.keys.empty() && !random.IsOneIn(4);
  return world;
}

}  // namespace swarm
