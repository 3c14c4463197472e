#pragma once

#include <stdexcept>
#include <string>

#include "plat/Assert.h"

// While it lives, a failed assertion throws AssertionFailed instead of ending the program.
struct AssertionFailed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class ThrowingAsserts {
 public:
  ThrowingAsserts()
      : former_(plat::setAssertHandler([](const char* line) { throw AssertionFailed(line); })) {}
  ~ThrowingAsserts() { plat::setAssertHandler(former_); }
  ThrowingAsserts(const ThrowingAsserts&) = delete;
  ThrowingAsserts& operator=(const ThrowingAsserts&) = delete;

 private:
  plat::AssertHandler former_;
};

// The line of the assertion that fails in f; empty if none does.
template <class F>
std::string assertionOf(F&& f) {
  const ThrowingAsserts asserts;
  try {
    f();
  } catch (const AssertionFailed& e) {
    return e.what();
  }
  return "";
}
