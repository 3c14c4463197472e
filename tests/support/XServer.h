#pragma once

#include <X11/Xlib.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Program.h"
#include "support/TempDir.h"

namespace support {

// A second connection, to draw with and to look at the screen.
struct DisplayCloser {
  void operator()(Display* display) const { XCloseDisplay(display); }
};
using XConnection = std::unique_ptr<Display, DisplayCloser>;
// A connection that may outlive its server. Throws std::runtime_error.
XConnection connectTo(const std::string& display);

// What an output shows at the start; 0 by 0 for one that is not connected.
struct DummyOutput {
  int width = 1024, height = 768, x = 0, y = 0;
};

// A private X server on a free display number, ended (this process alone) with its object.
class XServer {
 public:
  // Xvfb with further arguments, such as {"-extension", "DAMAGE"}.
  static std::unique_ptr<XServer> xvfb(const std::string& screen = "1024x768x24",
                                       const std::vector<std::string>& extra = {});
  // (With "-extension", "XFIXES" the server of Debian 12 aborts as soon as a client leaves it.)

  using Output = DummyOutput;
  // Xorg with the dummy driver, which has 16 outputs (DUMMY0 to DUMMY15) with real mode setting;
  // the given ones are connected and on. 24 bits deep.
  static std::unique_ptr<XServer> dummy(const std::vector<Output>& outputs = {{}},
                                        const std::vector<std::string>& extra = {});
  // For example ":5".
  const std::string& display() const { return display_; }
  pid_t pid() const { return program_->pid(); }

  // Throws std::runtime_error.
  XConnection connect() const;
  // Starts a client of this display.
  std::unique_ptr<Program> start(const std::vector<std::string>& arguments,
                                 Program::Options options = {}) const;
  // Runs a client to its end, for 10 s at most, and returns its standard output.
  std::string run(const std::vector<std::string>& arguments, Program::Options options = {}) const;

  // Ends the server under its clients.
  void stop() { program_->end(); }

 private:
  XServer(std::vector<std::string> arguments, std::unique_ptr<support::TempDir> directory = {});

  std::unique_ptr<support::TempDir> directory_;
  std::unique_ptr<Program> program_;
  std::string display_;
};

}  // namespace support
