#pragma once

#include <functional>

#include "proofs/swarm/World.h"

namespace swarm {

/// Takes faults, keys, steps and what happens in them away from a world as long as it still fails.
/// @param fails  whether a world still shows what the first one showed; asked only about worlds that
///               are smaller than `world`
/// @return a world from which nothing can be taken away; `world` itself when nothing could
World Shrink(World world, const std::function<bool(const World&)>& fails);

}  // namespace swarm
