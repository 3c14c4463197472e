// Serves several desktops from one loop of its own: prints what changes in each, for some seconds.
//
//   desktops SECONDS DISPLAY...

#include <ruvohost/Agent.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>

namespace {

class Desktop : public ruvohost::Listener {
 public:
  explicit Desktop(const std::string& display) : name_(display), agent_(launch(display), *this) {
    agent_.start([this](const ruvohost::Outcome& outcome) {
      std::printf("%s: %s\n", name_.c_str(), outcome.isDone() ? "started" : outcome.text.c_str());
    });
    agent_.requestUpdate();
  }
  ruvohost::Agent& agent() { return agent_; }

 private:
  static ruvohost::Launch launch(const std::string& display) {
    ruvohost::Launch launch;
    launch.display = display;
    if (const char* agent = getenv("RUVOAGENT")) launch.agent = agent;
    return launch;
  }
  void updated(const ruvohost::Update& update) override {
    std::printf("%s: %zu rectangles changed\n", name_.c_str(), update.changed.size());
    agent_.requestUpdate();
  }
  void disconnected() override { std::printf("%s: gone\n", name_.c_str()); }

  const std::string name_;
  ruvohost::Agent agent_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s SECONDS DISPLAY...\n", argv[0]);
    return 2;
  }
  try {
    std::list<Desktop> desktops;
    for (int i = 2; i < argc; ++i) desktops.emplace_back(argv[i]);
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    for (Desktop& desktop : desktops) {
      epoll_event event{};
      event.data.ptr = &desktop;
      epoll_ctl(epoll, EPOLL_CTL_ADD, desktop.agent().fd(), &event);
    }
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(std::atoi(argv[1]));
    while (Clock::now() < end) {
      int timeoutMs = 100;
      for (Desktop& desktop : desktops) {
        ruvohost::Agent& agent = desktop.agent();
        if (!agent.isConnected()) continue;  // closing its descriptor has removed it
        epoll_event event{};
        event.events = static_cast<uint32_t>(agent.events());  // poll's bits are epoll's
        event.data.ptr = &desktop;
        epoll_ctl(epoll, EPOLL_CTL_MOD, agent.fd(), &event);
        if (agent.msUntilNext() >= 0) timeoutMs = std::min(timeoutMs, agent.msUntilNext());
      }
      epoll_event ready[16];
      epoll_wait(epoll, ready, 16, timeoutMs);
      // Giving each a turn is cheap, and also serves its timers.
      for (Desktop& desktop : desktops) desktop.agent().process();
    }
    close(epoll);
    return 0;
  } catch (const ruvohost::Error& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
