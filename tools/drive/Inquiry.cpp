#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "Commands.h"
#include "JsonOutput.h"
#include "host/ProgramOutput.h"
#include "loc/Localizer.h"
#include "loc/Messages.h"
#include "plat/Exception.h"
#include "ruvohost/Parameters.h"

namespace drive {

namespace {

// What doctor has to say of one thing.
struct Finding {
  std::string subject;
  std::string fact;
  std::string advice;  // what to do; empty when all is well
};

// Some descriptions are the ids of texts in several languages.
std::string descriptionOf(const ruvohost::Parameter& parameter) {
  if (!loc::findMessage(parameter.description.c_str())) return parameter.description;
  return loc::Localizer::instance().text(parameter.description.c_str()).str();
}

void listParameters(const SessionOptions& options, bool asJson) {
  const std::string agent = options.agent.empty() ? defaultAgent() : options.agent;
  Json list = Json::array();
  for (const ruvohost::Parameter& p : ruvohost::parametersOf(agent)) {
    if (asJson) {
      Json entry = {{"name", p.name},
                    {"type", p.typeName},
                    {"default", p.defaultValue},
                    {"description", descriptionOf(p)},
                    {"hidden", p.hidden}};
      if (!p.minimum.empty()) entry["minimum"] = p.minimum;
      if (!p.maximum.empty()) entry["maximum"] = p.maximum;
      if (!p.choices.empty()) entry["choices"] = p.choices;
      list.push_back(entry);
      continue;
    }
    if (p.hidden) continue;
    std::string limits;
    if (!p.minimum.empty()) limits = p.minimum + ".." + p.maximum;
    for (const std::string& choice : p.choices) limits += (limits.empty() ? "" : "|") + choice;
    std::printf("%-20s %-7s %-14s %-10s %s\n", p.name.c_str(), p.typeName.c_str(), limits.c_str(),
                p.defaultValue.empty() ? "-" : p.defaultValue.c_str(), descriptionOf(p).c_str());
  }
  if (asJson) printJsonLine(list);
}

// The first log line that begins with one of these texts; null without one.
const host::LogLine* lineOf(const host::Transcript& seen,
                            std::initializer_list<std::string_view> texts) {
  for (const host::LogLine& line : seen.log) {
    for (const std::string_view text : texts) {
      if (line.text.starts_with(text)) return &line;
    }
  }
  return nullptr;
}

// One X extension, and what is lost without it.
void addExtension(std::vector<Finding>& findings, const host::Transcript& seen,
                  const std::string& name, const std::string& prefix, const std::string& loss) {
  const host::LogLine* line = lineOf(seen, {prefix + " extension present"});
  const size_t version = line ? line->text.find("version ") : std::string::npos;
  findings.push_back({name, line ? line->text.substr(version) : "absent", line ? "" : loss});
}

std::string firstLines(const std::string& text, std::string_view wanted) {
  const size_t place = text.find(wanted);
  if (place == std::string::npos) return {};
  std::string value = text.substr(place + wanted.size());
  value.resize(std::min(value.find('\n'), value.size()));
  value.erase(0, std::min(value.find_first_not_of(' '), value.size()));
  return value;
}

void addKeyboard(std::vector<Finding>& findings, const std::string& display) {
  std::vector<std::string> layout{"setxkbmap", "-query"}, map{"xmodmap", "-pke"};
  if (!display.empty()) {
    for (auto* arguments : {&layout, &map}) {
      arguments->insert(arguments->begin() + 1, {"-display", display});
    }
  }
  const host::ProgramOutput query = host::runProgram(layout);
  findings.push_back({"keyboard layout",
                      query.status == 0 ? firstLines(query.output, "layout:")
                                        : "unknown (the program setxkbmap can't tell)",
                      ""});
  const host::ProgramOutput keys = host::runProgram(map);
  if (keys.status != 0) {
    findings.push_back({"spare keycodes", "unknown (the program xmodmap can't tell)", ""});
    return;
  }
  int spare = 0;
  for (size_t begin = 0; begin < keys.output.size();) {
    const size_t end = std::min(keys.output.find('\n', begin), keys.output.size());
    const std::string line = keys.output.substr(begin, end - begin);
    const size_t equals = line.find('=');
    if (equals != std::string::npos &&
        line.find_first_not_of(' ', equals + 1) == std::string::npos) {
      ++spare;
    }
    begin = end + 1;
  }
  findings.push_back({"spare keycodes", plat::format("%d", spare),
                      spare > 0 ? "" : "symbols that the layout lacks can't be typed"});
}

std::vector<Finding> examine(const SessionOptions& sessionOptions) {
  host::Transcript seen;
  Session session(sessionOptions, seen);
  session.startDesktop();
  const auto isDecided = [&] { return lineOf(seen, {"Damage test:", "Using polling"}) != nullptr; };
  session.agent().fbUpdateRequest();
  session.waitUntil(
      [&] {
        return lineOf(seen, {"Using damage extension", "Using polling"});
      },
      5000, "the capture's start");
  session.run(1, isDecided);

  std::vector<Finding> findings;
  const host::PixelBufferInfo& info = session.agent().pixelBuffer();
  findings.push_back(
      {"display", sessionOptions.display.empty() ? "as in DISPLAY" : sessionOptions.display, ""});
  addExtension(findings, seen, "XTEST", "XTest",
               "keys and buttons can't be pressed: enable XTEST in the X server");
  addExtension(findings, seen, "DAMAGE", "XDamage",
               "changes are found by comparing pixels, which costs time: enable DAMAGE");
  addExtension(findings, seen, "XFIXES", "XFixes",
               "cursor images are unknown and the clipboard is polled: enable XFIXES");
  addExtension(findings, seen, "RANDR", "XRandr",
               "the display's size can't be changed: enable RANDR");
  addExtension(findings, seen, "MIT-SHM", "XShm",
               "pixels are copied through the connection, which costs time: use a local X server "
               "with MIT-SHM");
  const host::LogLine* capture = lineOf(seen, {"Using shared memory", "Using non-shm"});
  findings.push_back(
      {"capture", (capture ? capture->text : "unknown") + ", " + info.format.str(), ""});
  const host::LogLine* test = lineOf(seen, {"Damage test:"});
  const bool polling = lineOf(seen, {"Using polling"}) != nullptr;
  findings.push_back(
      {"damage",
       seen.isCaptureBroken ? "incomplete: pixels are compared"
       : polling            ? "not used: pixels are compared"
       : test               ? "complete (" + test->text + ")"
                            : "used; nothing large was drawn to test it with",
       seen.isCaptureBroken ? "the X server or a compositor loses DAMAGE events" : ""});
  for (const host::MonitorsMessage& message : seen.monitors) {
    if (&message != &seen.monitors.back()) continue;
    for (const plat::DisplayInfo& monitor : message.monitors) {
      findings.push_back({"monitor",
                          monitor.name.str() +
                              plat::format(" %dx%d at %d,%d", monitor.right - monitor.left,
                                           monitor.bottom - monitor.top, monitor.left, monitor.top),
                          ""});
    }
  }
  addKeyboard(findings, sessionOptions.display);
  for (const host::LogLine& line : seen.log) {
    if (line.source == "Configuration" && line.text.find("(Default)") == std::string::npos &&
        line.text.find('=') != std::string::npos) {
      findings.push_back({"parameter", line.text, ""});
    } else if (line.level == 0) {
      findings.push_back({"error", line.source + ": " + line.text, "see docs/logging.md"});
    }
  }
  session.finish();
  return findings;
}

void doctor(const SessionOptions& options, bool asJson) {
  const std::vector<Finding> findings = examine(options);
  Json list = Json::array();
  int wrong = 0;
  for (const auto& [subject, fact, advice] : findings) {
    wrong += advice.empty() ? 0 : 1;
    list.push_back({{"subject", subject}, {"fact", fact}, {"advice", advice}});
    if (asJson) continue;
    std::printf("%-16s %s%s%s\n", subject.c_str(), fact.c_str(), advice.empty() ? "" : " - ",
                advice.c_str());
  }
  if (asJson) printJsonLine(list);
  if (wrong > 0) throw Failure(plat::format("%d things are wrong", wrong));
}

}  // namespace

void addInquiryCommands(CLI::App& app, SessionOptions& session) {
  auto asJson = std::make_shared<bool>(false);
  CLI::App* params = app.add_subcommand("params", "Lists the agent's parameters");
  params->add_flag("--json", *asJson, "As JSON, also hidden ones");
  setExamples(*params, "params", "params --json | jq -r '.[].name'");
  params->callback([&session, asJson] { listParameters(session, *asJson); });
  CLI::App* doctors =
      app.add_subcommand("doctor", "Says what works here, and what to do about the rest");
  doctors->add_flag("--json", *asJson, "As JSON");
  setExamples(*doctors, "doctor", "--display :1 doctor --json");
  doctors->callback([&session, asJson] { doctor(session, *asJson); });
}

}  // namespace drive
