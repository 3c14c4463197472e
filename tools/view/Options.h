#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace view {

// What the command line asks for.
struct Options {
  std::string display;               // of a desktop that is there; empty with a new one
  int newWidth = 0, newHeight = 0;   // of a new X server, in pixels; 0 for none
  std::vector<std::string> command;  // the new desktop's session
  std::string agent;
  std::vector<std::pair<std::string, std::string>> parameters;

  // Where pages are served: an address and a port, or the path of a UNIX socket.
  std::string address = "127.0.0.1";
  uint16_t port = 0;
  std::string socketPath;
  std::string origin;     // under which a proxy serves us, when it passes another Host
  std::string tokenFile;  // holds the token; written when it is not there
  std::string certificate, key;
  bool viewOnly = false;

  bool usesTls() const { return !certificate.empty(); }
};

}  // namespace view
