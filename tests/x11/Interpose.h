#pragma once

// What the tests make of single Xlib calls, to see how the toolkit takes servers that are not at
// hand. All off at first; see InterposeScope.
struct Interpose {
  bool noShm = false;         // XShmQueryVersion: no extension
  bool noShmPixmaps = false;  // XShmQueryVersion: no shared pixmaps
  bool badAttach = false;     // XShmAttach: a segment that the server cannot attach
  int syncs = 0;              // counts XSync

  static Interpose& instance();
};

class InterposeScope {
 public:
  ~InterposeScope() { Interpose::instance() = Interpose(); }
  Interpose* operator->() { return &Interpose::instance(); }
};
