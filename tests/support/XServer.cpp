#include "support/XServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace support {

namespace {

std::string makeDirectory() {
  char name[] = "/tmp/xserver-XXXXXX";
  if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp");
  return name;
}

// Reads the display number that the server writes when it accepts connections.
std::string readDisplayNumber(int fd, Program& server) {
  std::string number;
  for (int waited = 0; waited < 60000; waited += 100) {
    pollfd poller{fd, POLLIN, 0};
    if (poll(&poller, 1, 100) > 0) {
      char c;
      const ssize_t n = read(fd, &c, 1);
      if (n == 1 && c == '\n') return number;
      if (n != 1) break;
      number += c;
      continue;
    }
    if (!server.isRunning()) break;
  }
  throw std::runtime_error("the X server does not start: " + server.errors());
}

std::string xorgPath() {
  for (const char* path : {"/usr/lib/xorg/Xorg", "/usr/libexec/Xorg", "/usr/bin/Xorg"}) {
    if (access(path, X_OK) == 0) return path;
  }
  return "Xorg";
}

void writeConfiguration(const std::string& path, const std::vector<XServer::Output>& outputs) {
  std::ofstream out(path);
  out << "Section \"ServerFlags\"\n"
         "  Option \"AutoAddDevices\" \"false\"\n"
         "  Option \"AutoEnableDevices\" \"false\"\n"
         "  Option \"AutoAddGPU\" \"false\"\n"
         "  Option \"DontVTSwitch\" \"true\"\n"
         "EndSection\n"
         "Section \"Device\"\n"
         "  Identifier \"device\"\n"
         "  Driver \"dummy\"\n"
         "  VideoRam 270000\n";
  for (size_t i = 0; i < outputs.size(); ++i) {
    out << "  Option \"Monitor-DUMMY" << i << "\" \"monitor" << i << "\"\n";
  }
  out << "EndSection\n";
  for (size_t i = 0; i < outputs.size(); ++i) {
    const XServer::Output& output = outputs[i];
    out << "Section \"Monitor\"\n"
        << "  Identifier \"monitor" << i << "\"\n"
        << "  HorizSync 5-1000\n"
        << "  VertRefresh 5-200\n";
    if (output.width > 0) {
      out << "  Option \"Enable\" \"true\"\n"
          << "  Option \"PreferredMode\" \"" << output.width << "x" << output.height << "\"\n"
          << "  Option \"Position\" \"" << output.x << " " << output.y << "\"\n";
    } else {
      out << "  Option \"Enable\" \"false\"\n";
    }
    out << "EndSection\n";
  }
  out << "Section \"Screen\"\n"
         "  Identifier \"screen\"\n"
         "  Device \"device\"\n"
         "  Monitor \"monitor0\"\n"
         "  DefaultDepth 24\n"
         "  SubSection \"Display\"\n"
         "    Depth 24\n"
         "    Virtual 8192 8192\n"
         "  EndSubSection\n"
         "EndSection\n"
         "Section \"ServerLayout\"\n"
         "  Identifier \"layout\"\n"
         "  Screen \"screen\"\n"
         "EndSection\n";
}

}  // namespace

std::unique_ptr<XServer> XServer::xvfb(const std::string& screen,
                                       const std::vector<std::string>& extra) {
  std::vector<std::string> arguments = {"Xvfb",     "-screen",   "0",  screen,
                                        "-noreset", "-nolisten", "tcp"};
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  return std::unique_ptr<XServer>(new XServer(std::move(arguments), {}));
}

std::unique_ptr<XServer> XServer::dummy(const std::vector<Output>& outputs,
                                        const std::vector<std::string>& extra) {
  const std::string directory = makeDirectory();
  const std::string config = directory + "/xorg.conf";
  writeConfiguration(config, outputs);
  std::vector<std::string> arguments = {xorgPath(),
                                        "-config",
                                        config,
                                        "-configdir",
                                        directory + "/none",
                                        "-logfile",
                                        directory + "/xorg.log",
                                        "-noreset",
                                        "-novtswitch",
                                        "-sharevts",
                                        "-nolisten",
                                        "tcp"};
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  return std::unique_ptr<XServer>(new XServer(std::move(arguments), directory));
}

XServer::XServer(std::vector<std::string> arguments, std::string directory)
    : directory_(std::move(directory)) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
  constexpr int kNumberFd = 9;
  arguments.push_back("-displayfd");
  arguments.push_back(std::to_string(kNumberFd));
  Program::Options options;
  options.captureErrors = true;
  options.descriptors[kNumberFd] = fds[1];
  try {
    program_ = std::make_unique<Program>(arguments, options);
    close(std::exchange(fds[1], -1));
    display_ = ":" + readDisplayNumber(fds[0], *program_);
    close(fds[0]);
  } catch (...) {
    close(fds[0]);
    if (fds[1] >= 0) close(fds[1]);
    stop();
    throw;
  }
}

XServer::~XServer() {
  stop();
}

void XServer::stop(bool abruptly) {
  if (program_ && program_->isRunning()) {
    if (abruptly) program_->signal(SIGKILL);
    program_->end();
    // A killed server leaves its lock and its socket.
    if (abruptly && display_.size() > 1) {
      std::error_code ignored;
      std::filesystem::remove("/tmp/.X" + display_.substr(1) + "-lock", ignored);
      std::filesystem::remove("/tmp/.X11-unix/X" + display_.substr(1), ignored);
    }
  }
  if (!directory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
    directory_.clear();
  }
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
