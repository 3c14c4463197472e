#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "plat/FileDescriptor.h"

namespace os {

// The connection to the process that launched this one, as told on the command line: either
// "-dummy" (no connection), or any of "-lppDebug", "-hash <SHA-256>" and "-fork" followed by the
// pipe name, which is an inherited descriptor in decimal or the path of a UNIX stream socket.
class LaunchedPipe {
 public:
  struct Settings {
    // Bounds connecting, and then the wait for the secret.
    std::chrono::milliseconds limit{10000};
    const char* debugFile = "/tmp/lppDebug.log";
    const char* nullFile = "/dev/null";
  };

  // Parses the pipe's arguments from argv[first] on. Throws plat::Exception.
  LaunchedPipe(int argc, const char* const* argv, int first);

  // The first argument after those of the pipe.
  int nextArgument() const { return next_; }
  const std::string& name() const { return name_; }

  // Opens the connection: non-blocking, close-on-exec, usable with select; no descriptor for
  // "-dummy". To be called once.
  //
  // With "-fork" the process that returns is a child in a session of its own; the one that called
  // has ended with status 0. For a socket, standard error is redirected to the null file, or to the
  // debug file with "-lppDebug", unless that is refused (a link, no regular file, for root not
  // plat::openTrustedLog), and stays so. When a hash was given, the peer must send the 32
  // bytes of which it is the SHA-256; nothing behind them is read. Throws plat::Exception.
  plat::FileDescriptor open(const Settings& settings);
  plat::FileDescriptor open() { return open(Settings()); }

 private:
  using Hash = std::array<uint8_t, 32>;

  plat::FileDescriptor openInherited() const;
  plat::FileDescriptor openSocket(const Settings& settings) const;
  void redirectErrors(const Settings& settings) const;
  plat::FileDescriptor connect(std::chrono::milliseconds limit) const;
  void checkHash(int fd, std::chrono::milliseconds limit) const;

  bool dummy_ = false;
  bool debug_ = false;
  bool fork_ = false;
  std::optional<Hash> hash_;
  std::string name_;
  int next_;
};

}  // namespace os
