#pragma once

namespace tx {

// One part of the process asking for events of the root window. XSelectInput replaces a client's
// whole mask, so all parts ask through this class, which selects the union of what is asked. The
// display must be open.
class RootEventMask {
 public:
  RootEventMask() : RootEventMask(0) {}
  explicit RootEventMask(long mask);
  ~RootEventMask();
  RootEventMask(const RootEventMask&) = delete;
  RootEventMask& operator=(const RootEventMask&) = delete;

  // Event mask bits; 0 asks for nothing.
  void set(long mask);
  long mask() const { return mask_; }

 private:
  long mask_ = 0;
};

}  // namespace tx
