#pragma once

#include <initializer_list>

namespace plat {

// A shared library that is looked for at run time. Its code stays in the process until the end,
// even when this object goes: libraries leave hooks in others.
class DynamicLibrary {
 public:
  // Opens the first of the names that can be opened. None is no error; see ok().
  DynamicLibrary(std::initializer_list<const char*> names);
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // True when the library is open and no function was missed in it so far.
  bool ok() const { return handle_ != nullptr && !missing_; }

  // The symbol's address; null, and not ok() from then on, when there is none.
  void* symbol(const char* name);

 private:
  void* handle_ = nullptr;
  const char* name_ = nullptr;
  bool missing_ = false;
};

}  // namespace plat
