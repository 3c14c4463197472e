#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace plat {

// A queue in a ring of storage that grows on need and is kept.
template <typename T>
class CircularVector {
 public:
  bool empty() const { return size_ == 0; }
  size_t size() const { return size_; }

  T& operator[](size_t index) { return ring_[(first_ + index) % ring_.size()]; }
  const T& operator[](size_t index) const { return ring_[(first_ + index) % ring_.size()]; }

  void pushBack(const T& value) {
    if (size_ == ring_.size()) grow();
    ++size_;
    (*this)[size_ - 1] = value;
  }

  // The queue must not be empty.
  T popFront() {
    const T value = (*this)[0];
    first_ = (first_ + 1) % ring_.size();
    --size_;
    return value;
  }

  // Removes every item that equals the value; the others keep their order.
  void remove(const T& value) {
    size_t kept = 0;
    for (size_t i = 0; i < size_; ++i) {
      if ((*this)[i] == value) continue;
      if (kept != i) (*this)[kept] = (*this)[i];
      ++kept;
    }
    size_ = kept;
  }

 private:
  void grow() {
    std::vector<T> larger(std::max<size_t>(8, 2 * ring_.size()));
    for (size_t i = 0; i < size_; ++i) larger[i] = (*this)[i];
    ring_.swap(larger);
    first_ = 0;
  }

  std::vector<T> ring_;
  size_t first_ = 0;
  size_t size_ = 0;
};

}  // namespace plat
