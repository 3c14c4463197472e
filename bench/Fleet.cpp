// What desktops cost that nobody uses: fifty of them, each with an agent that has been started and
// asked for an update. The X servers do not count.
//
//   bench-fleet [--agent PATH] [NUMBER]

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "agent/Program.h"
#include "agent/Report.h"
#include "agent/Subject.h"
#include "support/XServer.h"

namespace bench {
namespace {

constexpr double kSettleS = 4, kWatchS = 10;

struct Desktop {
  explicit Desktop(const std::string& agent)
      : server(support::XServer::xvfb("800x600x24")), subject(agent, server->display(), "") {}

  std::unique_ptr<support::XServer> server;
  Subject subject;
};

void measure(const std::string& agent, int number) {
  std::vector<std::unique_ptr<Desktop>> desktops;
  for (int i = 0; i < number; ++i) desktops.push_back(std::make_unique<Desktop>(agent));
  const auto rest = [&](double seconds) { desktops.back()->subject.run(seconds); };
  rest(kSettleS);
  const auto used = [&] {
    double seconds = 0;
    for (const auto& desktop : desktops) seconds += cpuSeconds(desktop->subject.pid());
    return seconds;
  };
  const double before = used();
  rest(kWatchS);
  const double load = (used() - before) * 1000 / kWatchS;
  double memory = 0;
  for (const auto& desktop : desktops) {
    memory += double(ownMemory(desktop->subject.pid(), true)) / 1e6;
  }
  const std::string name = std::to_string(number) + " idle desktops, agents alone: ";
  printRow(name + "processor", "ms/s", load, 0.1 * number);
  printRow(name + "memory", "MB", memory, 3.0 * number);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string agent = bench::ownDirectory() + "ruvoagent";
  int number = 50;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else if ((number = std::atoi(argv[i])) < 1) {
      std::fprintf(stderr, "usage: bench-fleet [--agent PATH] [NUMBER]\n");
      return 2;
    }
  }
  return bench::runMain("bench-fleet", [&] { bench::measure(agent, number); });
}
