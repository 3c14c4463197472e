#pragma once

#include "plat/Assert.h"

namespace rdr {

// A resumable parser of an object: one of its member functions is the current step. A step returns
// true when the machine is to go on at once, with the step that is then current, and false to wait
// for more input. It ends the machine's work by clearing the current step.
template <typename Owner>
class StateMachine {
 public:
  using StateFn = bool (Owner::*)();

  StateMachine() = default;
  explicit StateMachine(StateFn first) : stateFn_(first) {}

  StateFn current() const { return stateFn_; }
  void setStateFn(StateFn next) { stateFn_ = next; }
  void clear() { stateFn_ = nullptr; }
  bool isIdle() const { return stateFn_ == nullptr; }

  // Runs steps until one waits (false) or none is left (true). There must be one to begin with.
  bool run(Owner& owner) {
    PLAT_ASSERT_TEXT(stateFn_, "stateFn");
    while (stateFn_) {
      if (!(owner.*stateFn_)()) return false;
    }
    return true;
  }

 private:
  StateFn stateFn_ = nullptr;
};

}  // namespace rdr
