#include "plat/DynamicLibrary.h"

#include <dlfcn.h>

#include "plat/Report.h"

namespace plat {

namespace {

// The log source; levels as LogSrc has them.
constexpr const char* kSource = "DynamicFn";
constexpr int kInfo = 30;
constexpr int kDebug = 100;

}  // namespace

DynamicLibrary::DynamicLibrary(const char* name)
    : name_(name), handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
  if (handle_) {
    report(kSource, kDebug, "Opened %s", name);
  } else {
    const char* const reason = dlerror();
    report(kSource, kDebug, "Cannot open %s: %s", name, reason ? reason : "unknown reason");
  }
}

DynamicLibrary::~DynamicLibrary() {
  if (handle_) dlclose(handle_);
}

void* DynamicLibrary::symbol(const char* name, bool needed) {
  if (!handle_) return nullptr;
  void* const address = dlsym(handle_, name);
  if (!address && needed) {
    missing_ = true;
    report(kSource, kInfo, "%s has no function %s", name_, name);
  }
  return address;
}

}  // namespace plat
