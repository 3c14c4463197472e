#include "support/XServer.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "plat/Exception.h"
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
)";
  std::string options;
  for (size_t i = 0; i < outputs.size(); ++i) {
    const auto& [width, height, x, y] = outputs[i];
    options += plat::format("  Option \"Monitor-DUMMY%zu\" \"monitor%zu\"\n", i, i);
    out << plat::format(
        R"(Section "Monitor"
  Identifier "monitor%zu"
  HorizSync 5-1000
  VertRefresh 5-200
  Option "Enable" "%s"
  Option "PreferredMode" "%dx%d"
  Option "Position" "%d %d"
EndSection
)",
        i, width > 0 ? "true" : "false", width, height, x, y);
  }
  out << "Section \"Device\"\n  Identifier \"device\"\n  Driver \"dummy\"\n  VideoRam 270000\n"
      << options << "EndSection\n";
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

std::unique_ptr<Program> XServer::start(const std::vector<std::string>& arguments,
                                        Program::Options options) const {
  options.environment["DISPLAY"] = display_;
  return std::make_unique<Program>(arguments, options);
}

std::string XServer::run(const std::vector<std::string>& arguments,
                         Program::Options options) const {
  options.captureOutput = true;
  const std::unique_ptr<Program> program = start(arguments, std::move(options));
  if (!program->wait()) throw std::runtime_error(arguments[0] + " does not end");
  return program->output();
}

}  // namespace support
