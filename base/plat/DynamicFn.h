#pragma once

#include "plat/DynamicLibrary.h"

namespace plat {

template <typename Function>
class DynamicFn;

// A function of a library that was opened at run time, called like the function itself:
//
//   plat::DynamicLibrary library("libfoo.so.1");
//   plat::DynamicFn<decltype(fooCreate)> create{library, "fooCreate"};
//   if (library.ok()) create(1);
//
// One function that is missing makes the library not ok(), unless it is optional. The library must
// outlive its functions.
template <typename Result, typename... Args>
class DynamicFn<Result(Args...)> {
 public:
  enum Need { kNeeded, kOptional };

  DynamicFn(DynamicLibrary& library, const char* name, Need need = kNeeded)
      : function_(reinterpret_cast<Result (*)(Args...)>(library.symbol(name, need == kNeeded))) {}

  explicit operator bool() const { return function_ != nullptr; }
  Result operator()(Args... args) const { return function_(args...); }

 private:
  Result (*function_)(Args...);
};

}  // namespace plat
