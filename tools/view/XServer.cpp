#include "XServer.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/read_until.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <map>
#include <stdexcept>

#include "Log.h"

extern char** environ;

namespace view {

namespace {

using boost::system::error_code;

constexpr std::chrono::seconds kRetry{1};
constexpr int kNumberFd = 3;
constexpr int kEndMs = 3000;
// The screen can become as large as the X server's memory was made for.
constexpr int kRoomWidth = 2560, kRoomHeight = 1600;

// Waits for a process that was told to end, and ends it when it does not.
void waitFor(pid_t pid) {
  for (int waited = 0; waited < kEndMs; waited += 10) {
    if (waitpid(pid, nullptr, WNOHANG) != 0) return;
    usleep(10000);
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace

XServer::XServer(boost::asio::io_context& loop, int width, int height,
                 std::vector<std::string> session, Changed changed)
    : retry_(loop),
      numberPipe_(loop),
      width_(std::max(width, kRoomWidth)),
      height_(std::max(height, kRoomHeight)),
      session_(std::move(session)),
      changed_(std::move(changed)) {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  std::string folder = std::string(runtime && *runtime ? runtime : "/tmp") + "/ruvoview-XXXXXX";
  if (!mkdtemp(folder.data())) {
    throw std::runtime_error("can't make " + folder + ": " + std::strerror(errno));
  }
  folder_ = folder;
  authority_ = folder_ + "/Xauthority";
  start();
}

XServer::~XServer() {
  endSession();
  if (server_ > 0) {
    kill(server_, SIGTERM);
    waitFor(server_);
  }
  unlink(authority_.c_str());
  rmdir(folder_.c_str());
}

// One entry that fits each host and display: without it any local user could connect.
void XServer::writeAuthority() {
  std::array<unsigned char, 16> cookie;
  if (RAND_bytes(cookie.data(), cookie.size()) != 1) throw std::runtime_error("no random numbers");
  static constexpr char kName[] = "MIT-MAGIC-COOKIE-1";
  std::string entry("\xff\xff\0\0\0\0\0", 7);  // family "wild", no address, no number
  entry += static_cast<char>(sizeof kName - 1);
  entry.append(kName).append("\0\x10", 2);
  entry.append(reinterpret_cast<const char*>(cookie.data()), cookie.size());
  const int fd = open(authority_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool good =
      fd >= 0 && write(fd, entry.data(), entry.size()) == static_cast<ssize_t>(entry.size());
  if (fd >= 0) close(fd);
  if (!good) throw std::runtime_error("can't write " + authority_ + ": " + std::strerror(errno));
}

pid_t XServer::launch(const std::vector<std::string>& command, const Environment& environment,
                      int inherited) {
  std::map<std::string, std::string> merged;
  for (char** each = environ; *each; ++each) {
    const char* equals = std::strchr(*each, '=');
    if (equals) merged[std::string(*each, static_cast<size_t>(equals - *each))] = equals + 1;
  }
  for (const auto& [name, value] : environment) merged[name] = value;
  std::vector<std::string> lines;
  for (const auto& [name, value] : merged) lines.push_back(name + "=" + value);
  std::vector<char*> variables, arguments;
  for (std::string& line : lines) variables.push_back(line.data());
  variables.push_back(nullptr);
  std::vector<std::string> words = command;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  // Only what may be called in the child of a process with threads.
  setsid();
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(1);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  dup2(2, 1);  // ours is for the address
  if (inherited >= 0) {
    if (inherited == kNumberFd) {
      fcntl(inherited, F_SETFD, 0);
    } else {
      dup2(inherited, kNumberFd);
    }
  }
  environ = variables.data();
  execvp(arguments[0], arguments.data());
  const char* why = std::strerror(errno);
  for (const char* text :
       {"ruvoview: can't run ", static_cast<const char*>(arguments[0]), ": ", why, "\n"}) {
    if (write(2, text, std::strlen(text)) < 0) break;
  }
  _exit(127);
}

void XServer::start() {
  writeAuthority();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0) throw std::runtime_error("no pipe");
  const std::string screen = std::to_string(width_) + "x" + std::to_string(height_) + "x24";
  // The abstract socket, too: left free, another server there would be taken for this one.
  server_ = launch({"Xvfb", "-displayfd", std::to_string(kNumberFd), "-screen", "0", screen,
                    "-nolisten", "tcp", "-noreset", "-auth", authority_},
                   {}, ends[1]);
  close(ends[1]);
  numberText_.consume(numberText_.size());
  numberPipe_.assign(ends[0]);
  boost::asio::async_read_until(numberPipe_, numberText_, '\n', [this](error_code error, size_t) {
    if (error == boost::asio::error::operation_aborted) return;
    std::istream text(&numberText_);
    std::string line;
    if (!error) std::getline(text, line);
    error_code ignored;
    numberPipe_.close(ignored);
    if (!line.empty()) numberRead(line);
  });
}

void XServer::numberRead(const std::string& line) {
  display_ = ":" + line;
  log("display " + display_ + ", XAUTHORITY=" + authority_);
  changed_(display_, {{"XAUTHORITY", authority_}});
}

void XServer::startSession() {
  if (sessionStarted_ || session_.empty() || display_.empty()) return;
  sessionStarted_ = true;
  sessionLeader_ = launch(session_, {{"DISPLAY", display_}, {"XAUTHORITY", authority_}}, -1);
}

void XServer::endSession() {
  if (sessionLeader_ <= 0) return;
  kill(-sessionLeader_, SIGTERM);
  waitFor(sessionLeader_);
  sessionLeader_ = -1;
}

void XServer::reap() {
  if (sessionLeader_ > 0 && waitpid(sessionLeader_, nullptr, WNOHANG) == sessionLeader_) {
    log("the session has ended");
    sessionLeader_ = -1;
  }
  if (server_ <= 0 || waitpid(server_, nullptr, WNOHANG) != server_) return;
  server_ = -1;
  endSession();
  sessionStarted_ = false;
  if (numberPipe_.is_open()) {
    error_code ignored;
    numberPipe_.close(ignored);
  }
  log(display_.empty() ? "Xvfb can't be started" : "the X server has gone");
  display_.clear();
  changed_(display_, {});
  retry_.expires_after(kRetry);
  retry_.async_wait([this](error_code error) {
    if (!error) start();
  });
}

}  // namespace view
