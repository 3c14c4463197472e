#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/Xdamage.h>

#include "plat/DynamicFn.h"

namespace plat {
class LogSrc;
}

namespace tx {

// The DAMAGE extension, looked up at run time in its client library.
class DamageExtension {
  plat::DynamicLibrary library_{"libXdamage.so.1"};

 public:
  // The extension of the open display, or null when the library, one of its functions or the
  // server's extension is missing. Asked once; the version has been negotiated.
  static const DamageExtension* get();
  // As get(), but null unless it is to be used, and says in the log what there is.
  static const DamageExtension* probe(plat::LogSrc& log, bool use);

  int eventBase = -1;
  int errorBase = -1;
  int majorVersion = 0;
  int minorVersion = 0;

  // Call these as the functions of Xdamage.h.
  plat::DynamicFn<decltype(::XDamageQueryExtension)> queryExtension{library_,
                                                                    "XDamageQueryExtension"};
  plat::DynamicFn<decltype(::XDamageQueryVersion)> queryVersion{library_, "XDamageQueryVersion"};
  plat::DynamicFn<decltype(::XDamageCreate)> create{library_, "XDamageCreate"};
  plat::DynamicFn<decltype(::XDamageDestroy)> destroy{library_, "XDamageDestroy"};
  plat::DynamicFn<decltype(::XDamageSubtract)> subtract{library_, "XDamageSubtract"};

 private:
  friend class TXDisplay;
  DamageExtension();
  bool query(Display* display);

  bool present_;
};

}  // namespace tx
