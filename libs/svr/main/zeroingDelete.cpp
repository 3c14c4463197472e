// Memory from the heap is zeroed when it is given back: it may hold texts of the clipboard or keys
// that were pressed. Libraries written in C, and what the memory's user keeps in its own buffers,
// are not covered.

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

void release(void* memory) noexcept {
  if (!memory) return;
  explicit_bzero(memory, malloc_usable_size(memory));
  std::free(memory);
}

}  // namespace

// The sizes given may be less than what was allocated, never more: all forms do the same.
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  release(memory);
}
