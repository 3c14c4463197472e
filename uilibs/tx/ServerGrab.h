#pragma once

namespace tx {

// Keeps all other clients from making requests while it lives. With the parameter `_NoGrab` set it
// does nothing.
class ServerGrab {
 public:
  ServerGrab();
  ~ServerGrab();
  ServerGrab(const ServerGrab&) = delete;
  ServerGrab& operator=(const ServerGrab&) = delete;

 private:
  bool grabbed_;
};

}  // namespace tx
