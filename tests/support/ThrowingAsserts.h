#pragma once

#include <string>

#include "plat/Assert.h"

// The line of the assertion that fails in f, thrown instead of ending the program; empty if none
// does.
template <class F>
std::string assertionOf(F&& f) {
  struct Failed {
    std::string line;
  };
  const plat::AssertHandler former =
      plat::setAssertHandler([](const char* line) { throw Failed{line}; });
  std::string line;
  try {
    f();
  } catch (const Failed& failed) {
    line = failed.line;
  }
  plat::setAssertHandler(former);
  return line;
}
