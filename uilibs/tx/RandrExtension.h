#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <memory>

#include "plat/DynamicFn.h"

namespace plat {
class LogSrc;
}

namespace tx {

struct XRRResourcesDeleter {
  void operator()(XRRScreenResources* resources) const;
};
struct XRRCrtcInfoDeleter {
  void operator()(XRRCrtcInfo* info) const;
};
struct XRROutputInfoDeleter {
  void operator()(XRROutputInfo* info) const;
};
struct XRRModeInfoDeleter {
  void operator()(XRRModeInfo* info) const;
};
// Memory that the RANDR client library allocated; goes before the display does.
using XRRResources = std::unique_ptr<XRRScreenResources, XRRResourcesDeleter>;
using XRRCrtc = std::unique_ptr<XRRCrtcInfo, XRRCrtcInfoDeleter>;
using XRROutput = std::unique_ptr<XRROutputInfo, XRROutputInfoDeleter>;
using XRRMode = std::unique_ptr<XRRModeInfo, XRRModeInfoDeleter>;

// The RANDR extension, version 1.2 or later, looked up at run time in its client library.
class RandrExtension {
  plat::DynamicLibrary library_{"libXrandr.so.2"};

 public:
  // The extension of the open display, or null when the library, one of its needed functions or the
  // server's extension is missing or older. Asked once for each display; the version has been
  // negotiated.
  static const RandrExtension* get();
  // As get(), and says in the log what there is.
  static const RandrExtension* probe(plat::LogSrc& log);

  int majorOpcode = 0;
  int eventBase = -1;
  int errorBase = -1;
  int majorVersion = 0;
  int minorVersion = 0;

  // Call these as the functions of Xrandr.h.
  plat::DynamicFn<decltype(::XRRQueryExtension)> queryExtension{library_, "XRRQueryExtension"};
  plat::DynamicFn<decltype(::XRRQueryVersion)> queryVersion{library_, "XRRQueryVersion"};
  plat::DynamicFn<decltype(::XRRGetScreenResources)> getScreenResources{library_,
                                                                        "XRRGetScreenResources"};
  plat::DynamicFn<decltype(::XRRFreeScreenResources)> freeScreenResources{library_,
                                                                          "XRRFreeScreenResources"};
  plat::DynamicFn<decltype(::XRRGetCrtcInfo)> getCrtcInfo{library_, "XRRGetCrtcInfo"};
  plat::DynamicFn<decltype(::XRRFreeCrtcInfo)> freeCrtcInfo{library_, "XRRFreeCrtcInfo"};
  plat::DynamicFn<decltype(::XRRGetOutputInfo)> getOutputInfo{library_, "XRRGetOutputInfo"};
  plat::DynamicFn<decltype(::XRRFreeOutputInfo)> freeOutputInfo{library_, "XRRFreeOutputInfo"};
  plat::DynamicFn<decltype(::XRRSetCrtcConfig)> setCrtcConfig{library_, "XRRSetCrtcConfig"};
  plat::DynamicFn<decltype(::XRRSetScreenSize)> setScreenSize{library_, "XRRSetScreenSize"};
  plat::DynamicFn<decltype(::XRRGetScreenSizeRange)> getScreenSizeRange{library_,
                                                                        "XRRGetScreenSizeRange"};
  plat::DynamicFn<decltype(::XRRAllocModeInfo)> allocModeInfo{library_, "XRRAllocModeInfo"};
  plat::DynamicFn<decltype(::XRRFreeModeInfo)> freeModeInfo{library_, "XRRFreeModeInfo"};
  plat::DynamicFn<decltype(::XRRCreateMode)> createMode{library_, "XRRCreateMode"};
  plat::DynamicFn<decltype(::XRRDestroyMode)> destroyMode{library_, "XRRDestroyMode"};
  plat::DynamicFn<decltype(::XRRAddOutputMode)> addOutputMode{library_, "XRRAddOutputMode"};
  plat::DynamicFn<decltype(::XRRDeleteOutputMode)> deleteOutputMode{library_,
                                                                    "XRRDeleteOutputMode"};

  // The screen's resources; null on failure. fresh makes the server look at its outputs first,
  // which can take long; otherwise, from RANDR 1.3 on, it says what it knows.
  XRRResources resources(Display* display, Window window, bool fresh = false) const;

 private:
  friend XRRResourcesDeleter;
  friend XRRCrtcInfoDeleter;
  friend XRROutputInfoDeleter;
  friend XRRModeInfoDeleter;

  friend class TXDisplay;

  RandrExtension();
  static RandrExtension& instance();
  bool query(Display* display);

  plat::DynamicFn<decltype(::XRRGetScreenResourcesCurrent)> getScreenResourcesCurrent_{
      library_, "XRRGetScreenResourcesCurrent",
      plat::DynamicFn<decltype(::XRRGetScreenResourcesCurrent)>::kOptional};
  bool present_;
};

}  // namespace tx
