#include "support/XServer.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "plat/FileDescriptor.h"

namespace support {

namespace {

// Reads the display number that the server writes when it accepts connections.
std::string readDisplayNumber(int fd, Program& server) {
  std::string number;
  for (char c; read(fd, &c, 1) == 1;) {
    if (c == '\n') return number;
    number += c;
  }
  throw std::runtime_error("the X server does not start: " + server.errors());
}

void writeConfiguration(const std::string& path, const std::vector<XServer::Output>& outputs) {
  std::ofstream out(path);
  out << R"(
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AutoEnableDevices" "false"
  Option "AutoAddGPU" "false"
  Option "DontVTSwitch" "true"
EndSection
Section "Screen"
  Identifier "screen"
  Device "device"
  Monitor "monitor0"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Virtual 8192 8192
  EndSubSection
EndSection
Section "Device"
  Identifier "device"
  Driver "dummy"
  VideoRam 270000
)";
  for (size_t i = 0; i < outputs.size(); ++i) {
    out << "  Option \"Monitor-DUMMY" << i << "\" \"monitor" << i << "\"\n";
  }
  out << "EndSection\n";
  for (size_t i = 0; i < outputs.size(); ++i) {
    const XServer::Output& output = outputs[i];
    out << "Section \"Monitor\"\n  Identifier \"monitor" << i << "\"\n"
        << "  HorizSync 5-1000\n  VertRefresh 5-200\n";
    if (output.width > 0) {
      out << "  Option \"Enable\" \"true\"\n"
          << "  Option \"PreferredMode\" \"" << output.width << "x" << output.height << "\"\n"
          << "  Option \"Position\" \"" << output.x << " " << output.y << "\"\n";
    } else {
      out << "  Option \"Enable\" \"false\"\n";
    }
    out << "EndSection\n";
  }
}

}  // namespace

std::unique_ptr<XServer> XServer::xvfb(const std::string& screen,
                                       const std::vector<std::string>& extra) {
  std::vector<std::string> arguments = {"Xvfb", "-screen", "0", screen};
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  return std::unique_ptr<XServer>(new XServer(std::move(arguments)));
}

std::unique_ptr<XServer> XServer::dummy(const std::vector<Output>& outputs,
                                        const std::vector<std::string>& extra) {
  auto directory = std::make_unique<support::TempDir>();
  const support::TempDir& files = *directory;
  writeConfiguration(files / "xorg.conf", outputs);
  std::vector<std::string> arguments = {"/usr/lib/xorg/Xorg", "-config",      files / "xorg.conf",
                                        "-configdir",         files / "none", "-logfile",
                                        files / "xorg.log",   "-novtswitch",  "-sharevts"};
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  return std::unique_ptr<XServer>(new XServer(std::move(arguments), std::move(directory)));
}

XServer::XServer(std::vector<std::string> arguments, std::unique_ptr<support::TempDir> directory)
    : directory_(std::move(directory)) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
  const plat::FileDescriptor ours(ends[0]);
  plat::FileDescriptor theirs(ends[1]);
  for (const char* argument : {"-noreset", "-nolisten", "tcp", "-displayfd", "9"}) {
    arguments.push_back(argument);
  }
  Program::Options options;
  options.captureErrors = true;
  options.descriptors[9] = theirs.get();
  program_ = std::make_unique<Program>(arguments, options);
  theirs.reset();
  display_ = ":" + readDisplayNumber(ours.get(), *program_);
}

XServer::~XServer() {
  stop();
}

void XServer::stop(bool abruptly) {
  if (!program_->isRunning()) return;
  if (abruptly) program_->signal(SIGKILL);
  program_->end();
  if (!abruptly) return;
  // A killed server leaves its socket. If somebody answers there, another has taken the number
  // since.
  const std::string path = "/tmp/.X11-unix/X" + display_.substr(1);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(path.begin(), path.end(), address.sun_path);
  const plat::FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return;
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

XConnection XServer::connect() const {
  return connectTo(display_);
}

XConnection connectTo(const std::string& display) {
  XConnection connection(XOpenDisplay(display.c_str()));
  if (!connection) throw std::runtime_error("no connection to " + display);
  // When the server goes first, the tests go on.
  XSetIOErrorExitHandler(
      connection.get(), [](Display*, void*) {}, nullptr);
  return connection;
}

void XServer::setDisplayVariable() const {
  setenv("DISPLAY", display_.c_str(), 1);
}

std::unique_ptr<Program> XServer::start(const std::vector<std::string>& arguments,
                                        Program::Options options) const {
  options.environment["DISPLAY"] = display_;
  return std::make_unique<Program>(arguments, options);
}

std::string XServer::run(const std::vector<std::string>& arguments,
                         Program::Options options) const {
  options.environment["DISPLAY"] = display_;
  return Program::run(arguments, options);
}

}  // namespace support
