#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

namespace plat {

// An allocator whose memory is zeroed when it is given back, for containers of what may be secret.
template <typename T>
class WipingAllocator {
 public:
  using value_type = T;

  WipingAllocator() = default;
  template <typename U>
  // NOLINTNEXTLINE(google-explicit-constructor): containers convert their allocators.
  WipingAllocator(const WipingAllocator<U>&) {}

  T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, size_t count) {
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of a deque's map of pointers, too.
    explicit_bzero(static_cast<void*>(memory), count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }
  friend bool operator==(const WipingAllocator&, const WipingAllocator&) { return true; }
};

}  // namespace plat
