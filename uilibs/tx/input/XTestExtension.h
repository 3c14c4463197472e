#pragma once

namespace plat {
class LogSrc;
}

namespace tx {

// Whether the X server has XTEST. Shared by all that inject input; asked once.
// When present, XTestGrabControl has been called, so that this client is served while another one
// grabs the server.
class XTestExtension {
 public:
  // The display must be open.
  static const XTestExtension& get();
  static bool present() { return get().isPresent; }
  // As get(), and says in the log what there is.
  static const XTestExtension& probe(plat::LogSrc& log);

  bool isPresent = false;
  int majorVersion = 0;
  int minorVersion = 0;

 private:
  friend class TXDisplay;
  XTestExtension();
};

}  // namespace tx
