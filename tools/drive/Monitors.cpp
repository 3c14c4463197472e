#include <cstdio>
#include <memory>

#include "Commands.h"

namespace drive {

namespace {

class MonitorsRecorder : public Recorder {
 public:
  void monitorsUpdated(const host::MonitorsMessage& message) override { monitors = message; }

  host::MonitorsMessage monitors;
};

void list(const SessionOptions& options) {
  MonitorsRecorder recorder;
  Session session(options, recorder);
  session.startDesktop();
  session.waitUntil([&] { return !recorder.monitors.monitors.empty(); }, 5000, "the monitors");
  for (const plat::DisplayInfo& monitor : recorder.monitors.monitors) {
    std::printf("%s  %dx%d at %d,%d%s\n", monitor.name.c_str(), monitor.right - monitor.left,
                monitor.bottom - monitor.top, monitor.left, monitor.top,
                monitor.primary ? "  primary" : "");
  }
  session.finish();
}

}  // namespace

void addMonitorCommands(CLI::App& app, SessionOptions& session) {
  CLI::App* monitors = app.add_subcommand("monitors", "Lists the monitors");
  CLI::App* select = monitors->add_subcommand(
      "select", "Restricts the commands that follow on the line, such as shot, to these monitors");
  select->add_option("numbers", session.monitors, "Numbers, with commas between")->required();
  monitors->callback([&app, &session, select] {
    if (!*select) {
      list(session);
    } else if (app.get_subcommands().size() < 2) {
      throw CLI::RequiredError("A command after the monitors, such as shot,");
    }
  });
}

}  // namespace drive
