#pragma once

namespace plat {

// A shared library that is looked for at run time. Its code stays in the process until the end,
// even when this object goes: libraries leave hooks in others.
class DynamicLibrary {
 public:
  // By its soname: another version would not fit the declarations compiled in. A library that
  // cannot be opened is no error; see ok().
  explicit DynamicLibrary(const char* name);
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // True when the library is open and no needed function was missed in it so far.
  bool ok() const { return handle_ != nullptr && !missing_; }

  // The symbol's address, or null. A needed one that is not there makes the library not ok().
  void* symbol(const char* name, bool needed = true);

 private:
  const char* const name_;
  void* const handle_;
  bool missing_ = false;
};

}  // namespace plat
