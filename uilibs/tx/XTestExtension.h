#pragma once

namespace tx {

// Whether the X server has XTEST. Shared by all that inject input; asked once.
// When present, XTestGrabControl has been called, so that this client is served while another one
// grabs the server. Logs nothing.
class XTestExtension {
 public:
  // The display must be open.
  static const XTestExtension& get();
  static bool present() { return get().isPresent; }

  bool isPresent = false;
  int majorVersion = 0;
  int minorVersion = 0;

 private:
  friend class TXDisplay;
  XTestExtension();
};

}  // namespace tx
