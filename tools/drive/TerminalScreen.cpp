#include "TerminalScreen.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <vector>

#include "Terminal.h"

namespace drive {

namespace {

constexpr int kAnswerMs = 1000;
// How long an interrupted program waits for a terminal that takes nothing.
constexpr std::chrono::seconds kPatience{1};
// A signal may come just before a wait.
constexpr int kLookMs = 100;
// A character's size where the terminal does not tell.
constexpr int kCellWidth = 8, kCellHeight = 16;

volatile sig_atomic_t stopFlag = 0;

void onStop(int) {
  stopFlag = 1;
}

// Whether there are Kitty's graphics; 256 colours for Sixel pictures, please, and how large may
// they be; the size in pixels. The last one, the terminal's attributes, is answered by every
// terminal.
constexpr std::string_view kQuestions =
    "\033_Gi=31,s=1,v=1,a=q,t=d,f=24;AAAA\033\\"
    "\033[?1;3;256S\033[?2;1;0S\033[14t\033[c";
constexpr std::string_view kKittyAnswer = "\033_Gi=31;OK";
constexpr int kSixelAttribute = 4;

// The numbers in the first control sequence with that beginning and end; empty without one.
std::vector<int> numbersIn(const std::string& answers, std::string_view begin, char end) {
  const std::string head = "\033[" + std::string(begin);
  for (size_t at = 0; (at = answers.find(head, at)) != std::string::npos;) {
    at += head.size();
    const size_t last = answers.find_first_not_of("0123456789;", at);
    if (last == std::string::npos || answers[last] != end) continue;
    std::vector<int> numbers;
    while (at < last) {
      const size_t length = std::min(answers.find(';', at), last) - at;
      const long number = std::atol(answers.substr(at, length).c_str());
      numbers.push_back(static_cast<int>(std::clamp(number, 0l, 65535l)));
      at += length + 1;
    }
    return numbers;
  }
  return {};
}

bool isComplete(const std::string& answers) {
  return !numbersIn(answers, "?", 'c').empty();
}

std::string readAnswers() {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(kAnswerMs);
  std::string answers;
  while (!isComplete(answers)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    pollfd terminal{STDOUT_FILENO, POLLIN, 0};
    if (left.count() <= 0 || poll(&terminal, 1, static_cast<int>(left.count())) <= 0) break;
    char bytes[256];
    const ssize_t length = read(STDOUT_FILENO, bytes, sizeof bytes);
    if (length <= 0) break;
    answers.append(bytes, static_cast<size_t>(length));
  }
  return answers;
}

}  // namespace

TerminalScreen::TerminalScreen()
    : output_(open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
  // Another user's, perhaps. Writing may block then, until a signal comes.
  if (!output_) output_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  stopFlag = 0;
  struct sigaction action {};
  action.sa_handler = onStop;
  sigaction(SIGTSTP, nullptr, &formerStop_);
  if (formerStop_.sa_handler != SIG_IGN) sigaction(SIGTSTP, &action, nullptr);
  put("\033[?1049h\033[?25l");
  // A program in the background would be stopped for it.
  const pid_t foreground = tcgetpgrp(STDOUT_FILENO);
  if (foreground >= 0 && foreground != getpgrp()) return;
  if (tcgetattr(STDOUT_FILENO, &former_) != 0) return;
  termios quiet = former_;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  quiet.c_cc[VMIN] = 0;
  quiet.c_cc[VTIME] = 0;
  isQuiet_ = tcsetattr(STDOUT_FILENO, TCSANOW, &quiet) == 0;
  if (isQuiet_) ask();
}

TerminalScreen::~TerminalScreen() {
  put("\033[0m\033[?25h\033[?1049l");
  flush();
  if (isQuiet_) {
    // Answers that come late are not for the shell. Nor is there a wait for what nobody reads.
    tcflush(STDOUT_FILENO, TCIFLUSH);
    tcsetattr(STDOUT_FILENO, TCSANOW, &former_);
  }
  sigaction(SIGTSTP, &formerStop_, nullptr);
}

bool TerminalScreen::isStopWanted() const {
  return stopFlag != 0;
}

bool TerminalScreen::flush() {
  size_t at = 0;
  while (at < text_.size() && waitUntilWritable()) {
    const ssize_t length = write(output_.get(), text_.data() + at, text_.size() - at);
    if (length < 0 && errno != EINTR && errno != EAGAIN) break;
    at += static_cast<size_t>(std::max(length, ssize_t{0}));
  }
  const bool all = at == text_.size();
  // What follows is not to be taken for the rest of a picture.
  text_ = all ? "" : "\033\\";
  return all;
}

bool TerminalScreen::waitUntilWritable() {
  for (;;) {
    if (interrupted() && !patienceEnd_) patienceEnd_ = Clock::now() + kPatience;
    pollfd terminal{output_.get(), POLLOUT, 0};
    const int ready = poll(&terminal, 1, kLookMs);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (patienceEnd_ && Clock::now() >= *patienceEnd_) return false;
  }
}

void TerminalScreen::ask() {
  put(kQuestions);
  flush();
  const std::string answers = readAnswers();
  graphics_.kitty = answers.find(kKittyAnswer) != std::string::npos;
  const std::vector<int> attributes = numbersIn(answers, "?", 'c');
  // The first one is the kind of terminal.
  graphics_.sixel = attributes.size() > 1 && std::find(attributes.begin() + 1, attributes.end(),
                                                       kSixelAttribute) != attributes.end();
  if (const auto colours = numbersIn(answers, "?1;0;", 'S'); colours.size() == 1) {
    graphics_.sixelColours = std::clamp(colours[0], 2, 256);
  }
  if (const auto most = numbersIn(answers, "?2;0;", 'S'); most.size() == 2) {
    graphics_.maxSixelWidth = most[0];
    graphics_.maxSixelHeight = most[1];
  }
  sizeWhenAsked_ = size();
  if (const auto pixels = numbersIn(answers, "4;", 't'); pixels.size() == 2) {
    graphics_.heightWhenAsked = pixels[0];
    graphics_.widthWhenAsked = pixels[1];
  }
}

TerminalSize TerminalScreen::size() const {
  TerminalSize size;
  winsize told{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &told) == 0 && told.ws_col > 0 && told.ws_row > 0) {
    size.columns = told.ws_col;
    size.rows = told.ws_row;
  }
  const bool isAnswered = graphics_.widthWhenAsked > 0 && graphics_.heightWhenAsked > 0;
  if (told.ws_xpixel > 0 && told.ws_ypixel > 0) {
    size.width = told.ws_xpixel;
    size.height = told.ws_ypixel;
  } else if (isAnswered) {
    size.width = size.columns * graphics_.widthWhenAsked / sizeWhenAsked_.columns;
    size.height = size.rows * graphics_.heightWhenAsked / sizeWhenAsked_.rows;
  } else {
    size.width = size.columns * kCellWidth;
    size.height = size.rows * kCellHeight;
  }
  return size;
}

}  // namespace drive
