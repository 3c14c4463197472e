#include "Xregion/Box.h"

#include <cstdlib>
#include <new>

namespace mi {

namespace {

constexpr int32_t kMaxBoxes = 1 << 27;  // 1 GB, so that sizes in bytes fit 32 bits

// Null when there is no memory.
Data* resized(Data* block, size_t count) noexcept {
  void* memory = std::realloc(block, sizeof(Data) + count * sizeof(Box));
  if (!memory) return nullptr;
  Data* data = static_cast<Data*>(memory);
  data->size = static_cast<int32_t>(count);
  return data;
}

}  // namespace

Data* allocateData(Data* block, size_t count) {
  Data* data = count > static_cast<size_t>(kMaxBoxes) ? nullptr : resized(block, count);
  if (!data) throw std::bad_alloc();
  return data;
}

Data* shrinkData(Data* block, size_t count) noexcept {
  Data* data = resized(block, count);
  return data ? data : block;
}

void freeData(Data* block) noexcept {
  std::free(block);
}

}  // namespace mi
