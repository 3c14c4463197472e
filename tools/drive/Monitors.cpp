#include <cstdio>
#include <memory>

#include "Commands.h"
#include "JsonOutput.h"

namespace drive {

namespace {

void list(const SessionOptions& options, bool asJson) {
  host::Transcript seen;
  Session session(options, seen);
  session.startDesktop();
  const auto known = [&] {
    return !seen.monitors.empty() && !seen.monitors.back().monitors.empty();
  };
  session.waitUntil(known, 5000, "the monitors");
  Json monitors = Json::array();
  for (const plat::DisplayInfo& monitor : seen.monitors.back().monitors) {
    monitors.push_back(monitorJson(monitor));
    if (asJson) continue;
    std::printf("%s  %dx%d at %d,%d%s\n", monitor.name.c_str(), monitor.right - monitor.left,
                monitor.bottom - monitor.top, monitor.left, monitor.top,
                monitor.primary ? "  primary" : "");
  }
  if (asJson) printJsonLine({{"monitors", monitors}});
  session.finish();
}

}  // namespace

void addMonitorCommands(CLI::App& app, SessionOptions& session) {
  CLI::App* monitors = app.add_subcommand("monitors", "Lists the monitors");
  auto asJson = std::make_shared<bool>(false);
  monitors->add_flag("--json", *asJson, "As JSON");
  CLI::App* select = monitors->add_subcommand(
      "select", "Restricts the commands that follow on the line, such as shot, to these monitors");
  select->add_option("numbers", session.monitors, "Numbers, with commas between")->required();
  setExamples(*monitors, "monitors", "monitors select 2 shot second.png");
  setExamples(*select, "monitors select 2 shot second.png", "monitors select 1,3 watch --for 10");
  monitors->callback([&app, &session, monitors, select, asJson] {
    if (!*select) {
      list(session, *asJson);
    } else if (app.get_subcommands().back() == monitors) {
      throw CLI::RequiredError("A command after the monitors, such as shot,");
    }
  });
}

}  // namespace drive
