// Records a desktop as a file of raw pictures, ten a second: rows of red, green, blue and 255.
//
//   recording OUT.rgba SECONDS [DISPLAY]

#include <ruvohost/Agent.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

// Asks for the next update as soon as one has come, so that the framebuffer follows the screen.
class Follower : public ruvohost::Listener {
 public:
  void follow(ruvohost::Agent& agent) {
    agent_ = &agent;
    agent.requestUpdate();
  }

 private:
  void updated(const ruvohost::Update&) override { agent_->requestUpdate(); }
  void framebufferChanged(const ruvohost::Framebuffer& screen) override {
    std::printf("the desktop has %d x %d pixels\n", screen.width(), screen.height());
  }

  ruvohost::Agent* agent_ = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s OUT.rgba SECONDS [DISPLAY]\n", argv[0]);
    return 2;
  }
  ruvohost::Launch launch;
  if (argc > 3) launch.display = argv[3];
  if (const char* agent = getenv("RUVOAGENT")) launch.agent = agent;
  std::FILE* const file = std::fopen(argv[1], "wb");
  if (!file) {
    std::perror(argv[1]);
    return 1;
  }
  int status = 0;
  try {
    Follower follower;
    ruvohost::Agent agent(launch, follower);
    const ruvohost::Outcome started = agent.await([&](auto answer) { agent.start(answer); });
    if (!started.isDone()) throw ruvohost::Error(started.text);
    follower.follow(agent);
    const int pictures = std::atoi(argv[2]) * 10;
    for (int i = 0; i < pictures && agent.isConnected(); ++i) {
      const std::vector<uint8_t> rgba = agent.framebuffer().rgba();
      std::fwrite(rgba.data(), 1, rgba.size(), file);
      agent.processUntil([] { return false; }, 100);
    }
    status = agent.finish(5000).value_or(1);
  } catch (const ruvohost::Error& e) {
    std::fprintf(stderr, "%s\n", e.what());
    status = 1;
  }
  return std::fclose(file) == 0 ? status : 1;
}
