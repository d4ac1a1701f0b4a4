#include "proofs/swarm/Shrink.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace swarm {

namespace {

template <typename T>
std::vector<T> Without(std::vector<T> all, std::size_t index) {
  all.erase(all.begin() + static_cast<std::ptrdiff_t>(index));
  return all;
}

template <typename T>
void AddWithoutEach(const World& world, std::vector<T> World::*list, std::vector<World>& smaller) {
  for (std::size_t i = 0; i < (world.*list).size(); ++i) {
    World next = world;
    next.*list = Without(world.*list, i);
    smaller.push_back(std::move(next));
  }
}

void AddSmallerHolds(const World& world, std::size_t step, std::vector<World>& smaller) {
  const std::vector<Hold>& holds = world.steps[step].holds;
  for (std::size_t i = 0; i < holds.size(); ++i) {
    World next = world;
    next.steps[step].holds = Without(holds, i);
    smaller.push_back(next);
    for (std::size_t j = 0; holds[i].inside.size() > 1 && j < holds[i].inside.size(); ++j) {
      next = world;
      next.steps[step].holds[i].inside = Without(holds[i].inside, j);
      smaller.push_back(next);
    }
  }
}

void AddPlain(const World& world, std::vector<World>& smaller) {
  constexpr std::size_t kFewBytes = 1'000;
  const auto add = [&](Contents World::*which, const Contents& plain) {
    if (world.*which != plain) {
      World next = world;
      next.*which = plain;
      smaller.push_back(std::move(next));
    }
  };
  add(&World::a, {"plain", world.a.bytes});
  add(&World::a, {world.a.kind, kFewBytes});
  add(&World::b, {"plain", kFewBytes});
  add(&World::flash, {"old", world.flash.bytes});
  add(&World::flash, {world.flash.kind, kFewBytes});
}

/// The faults come first: a world has to have few of them, above all.
std::vector<World> SmallerThan(const World& world) {
  std::vector<World> smaller;
  AddWithoutEach(world, &World::faults, smaller);
  AddWithoutEach(world, &World::keys, smaller);
  AddWithoutEach(world, &World::stays, smaller);
  AddWithoutEach(world, &World::starts, smaller);
  AddWithoutEach(world, &World::steps, smaller);
  for (std::size_t step = 0; step < world.steps.size(); ++step) {
    AddSmallerHolds(world, step, smaller);
  }
  AddPlain(world, smaller);
  return smaller;
}

}  // namespace

World Shrink(World world, const std::function<bool(const World&)>& fails) {
  for (bool isSmaller = true; isSmaller;) {
    isSmaller = false;
    for (World& next : SmallerThan(world)) {
      if (fails(next)) {
        world = std::move(next);
        isSmaller = true;
        break;
      }
    }
  }
  return world;
}

}  // namespace swarm
