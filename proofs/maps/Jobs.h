#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace maps {

/// Calls `job` with 0 to count-1, on all cores, each number once. Nothing may be thrown.
inline void RunJobs(std::size_t count, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next = 0;
  std::vector<std::jthread> workers;
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  for (unsigned core = 0; core < cores; ++core) {
    workers.emplace_back([&] {
      for (std::size_t number = next++; number < count; number = next++) {
        job(number);
      }
    });
  }
}

}  // namespace maps
