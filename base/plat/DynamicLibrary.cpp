#include "plat/DynamicLibrary.h"

#include <dlfcn.h>

#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("DynamicFn");

}  // namespace

DynamicLibrary::DynamicLibrary(const char* name)
    : name_(name), handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
  if (handle_) {
    vlog.debug("Opened %s", name);
  } else {
    const char* const reason = dlerror();
    vlog.debug("Cannot open %s: %s", name, reason ? reason : "unknown reason");
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
    vlog.info("%s has no function %s", name_, name);
  }
  return address;
}

}  // namespace plat
