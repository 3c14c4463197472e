// Asks an agent for its parameters, starts one that finds no display, and hears its end.
//
//   consumer AGENT
#include <ruvohost/Agent.h>
#include <ruvohost/Parameters.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::vector<ruvohost::Parameter> parameters = ruvohost::parametersOf(argv[1]);
  ruvohost::Launch launch;
  launch.agent = argv[1];
  launch.display = ":nonexistent";
  ruvohost::Listener nobody;
  ruvohost::Agent agent(launch, nobody);
  agent.processUntil([] { return false; }, 10000);
  const int status = agent.finish(10000).value_or(-1);
  std::printf("status %d\n", status);
  return status == 1 && ruvohost::findParameter(parameters, "Monitor") ? 0 : 1;
}
