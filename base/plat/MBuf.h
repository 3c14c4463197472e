#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace plat {

// Owned buffer. When its contents are marked as sensitive they are zeroed before release.
template <typename T>
class MBuf {
 public:
  MBuf() = default;
  MBuf(const T* data, size_t size, bool sensitive = false)
      : data_(data, data + size), sensitive_(sensitive) {}
  MBuf(const MBuf&) = default;
  MBuf(MBuf&& other) noexcept : data_(std::move(other.data_)), sensitive_(other.sensitive_) {
    other.data_.clear();
  }
  MBuf& operator=(const MBuf& other) {
    if (this != &other) {
      clear();
      data_ = other.data_;
      sensitive_ = other.sensitive_;
    }
    return *this;
  }
  MBuf& operator=(MBuf&& other) noexcept {
    if (this != &other) {
      clear();
      data_.swap(other.data_);
      sensitive_ = other.sensitive_;
    }
    return *this;
  }
  ~MBuf() { clear(); }

  const T* data() const { return data_.data(); }
  T* data() { return data_.data(); }
  size_t size() const { return data_.size(); }
  bool sensitive() const { return sensitive_; }
  void setSensitive(bool sensitive) { sensitive_ = sensitive; }

  void clear() noexcept {
    if (sensitive_ && !data_.empty()) explicit_bzero(data_.data(), data_.size() * sizeof(T));
    data_.clear();
    data_.shrink_to_fit();
  }

  friend bool operator==(const MBuf& a, const MBuf& b) { return a.data_ == b.data_; }

 private:
  std::vector<T> data_;
  bool sensitive_ = false;
};

}  // namespace plat
