#pragma once

#include <sys/mman.h>

#include <new>
#include <type_traits>

/// Memory that this process shares with those that it forks later: one object, whose bytes are zero
/// before its constructor runs. It needs no more memory than is written to.
namespace companion {

template <typename T>
class SharedMemory {
  static_assert(std::is_trivially_destructible_v<T>);

 public:
  /// @throw std::bad_alloc when there is no memory
  SharedMemory() : memory_(Map()), object_(::new (memory_) T) {}
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;
  ~SharedMemory() { ::munmap(memory_, sizeof(T)); }

  T& operator*() const { return *object_; }
  T* operator->() const { return object_; }

 private:
  static void* Map() {
    void* const memory = ::mmap(nullptr,
                                sizeof(T),
                                PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE,
                                -1,
                                0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();  // GCOVR_EXCL_LINE: counted in the copy that its test has
    }
    return memory;
  }

  void* memory_;
  T* object_;
};

}  // namespace companion
