#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace swarm {

struct Step;

/// Something that happens while a step is under way: one of its processes is held at a call.
struct Hold {
  std::size_t call = 1;  ///< counted from the start of the step or from the hold before
  char action = 'k';     ///< k: the step's first process is killed; s: all of its session; i, t, h:
                         ///< it gets SIGINT, SIGTERM, SIGHUP; [: the steps inside are made
  std::vector<Step> inside;  ///< for '['

  bool operator==(const Hold&) const = default;
};

/// One run of a program, with image A in small and image B in capital letters.
struct Step {
  char what = 'u';  ///< u: update, r: update --restart, v: verify, t: bare tarnwick
  std::vector<Hold> holds;

  bool operator==(const Step&) const = default;
};

/// An image, or what a flash holds at the start: a kind and a size in bytes.
struct Contents {
  std::string kind;
  std::size_t bytes = 0;

  bool operator==(const Contents&) const = default;
};

/// A module, what is wrong with it, and what is done with it. Its text is one line:
///
///     pyx1 micron a=gzip:3000 b=plain:900 flash=half:3000 registers=00:00 start=reset
///     steps=u,v@120[t],U@40k end=here key=worn-page=0 stay=done=low fault=spi:PP#3:EIO
struct World {
  std::string type = "wend";
  std::string chip = "micron";
  Contents a{"plain", 1000};  ///< an image, fit or not
  Contents b{"plain", 1000};  ///< another one, fit
  Contents flash{"old", 2000};
  std::string registers = "00:00";  ///< of the chip, as the key of orvane-sim
  std::vector<std::string> starts;  ///< what else is not as after power-on
  std::vector<Step> steps;
  bool endsHere = false;            ///< the last update is made on the same instrument
  std::vector<std::string> keys;    ///< of the module, until the last update
  std::vector<std::string> stays;   ///< of the module, in the last update too
  std::vector<std::string> faults;  ///< rules, until the last update

  bool operator==(const World&) const = default;
};

unsigned SlotOf(const World& world);
bool HasBootHeader(const World& world);
bool IsPyx(const World& world);

/// Whether image A is one that `update` takes.
bool IsFit(const Contents& image);

/// The last update, with an image that is fit. After a bare `tarnwick` it restarts the FPGA: nobody else
/// can tell what that has loaded.
char LastUpdate(const World& world);

/// Whether a step, or one inside it, is of a kind.
bool Contains(const Step& step, char kind);

std::string Print(const World& world);

/// @throw std::invalid_argument, with a text for the user
World Parse(std::string_view text);

/// A world from a seed: the same everywhere for the same numbers.
World Draw(std::uint64_t seed, std::uint64_t index);

}  // namespace swarm
