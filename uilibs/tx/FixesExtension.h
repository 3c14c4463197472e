#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

#include "plat/DynamicFn.h"

namespace plat {
class LogSrc;
}

namespace tx {

// The XFIXES extension, version 2 or later, looked up at run time in its client library.
class FixesExtension {
  plat::DynamicLibrary library_{"libXfixes.so.3"};

 public:
  // The extension of the open display, or null when the library, one of its functions or the
  // server's extension is missing or older. Asked once; the version has been
  // negotiated. Cursor events are eventBase + XFixesCursorNotify, selection events
  // eventBase + XFixesSelectionNotify.
  static const FixesExtension* get();
  // As get(), but null unless it is to be used, and says in the log what there is.
  static const FixesExtension* probe(plat::LogSrc& log, bool use);

  int majorOpcode = -1;
  int eventBase = -1;
  int errorBase = -1;
  int majorVersion = 0;
  int minorVersion = 0;

  // Call these as the functions of Xfixes.h.
  plat::DynamicFn<decltype(::XFixesQueryExtension)> queryExtension{library_,
                                                                   "XFixesQueryExtension"};
  plat::DynamicFn<decltype(::XFixesQueryVersion)> queryVersion{library_, "XFixesQueryVersion"};
  plat::DynamicFn<decltype(::XFixesCreateRegion)> createRegion{library_, "XFixesCreateRegion"};
  plat::DynamicFn<decltype(::XFixesDestroyRegion)> destroyRegion{library_, "XFixesDestroyRegion"};
  plat::DynamicFn<decltype(::XFixesFetchRegionAndBounds)> fetchRegionAndBounds{
      library_, "XFixesFetchRegionAndBounds"};
  plat::DynamicFn<decltype(::XFixesSetGCClipRegion)> setGCClipRegion{library_,
                                                                     "XFixesSetGCClipRegion"};
  plat::DynamicFn<decltype(::XFixesSelectCursorInput)> selectCursorInput{library_,
                                                                         "XFixesSelectCursorInput"};
  plat::DynamicFn<decltype(::XFixesSelectSelectionInput)> selectSelectionInput{
      library_, "XFixesSelectSelectionInput"};

 private:
  friend class TXDisplay;
  FixesExtension();
  bool query(Display* display);

  bool present_;
};

}  // namespace tx
