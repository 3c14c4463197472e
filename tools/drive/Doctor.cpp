#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Doctor.h"
#include "JsonOutput.h"
#include "XClient.h"
#include "host/ProgramOutput.h"
#include "plat/Exception.h"
#include "plat/NoCase.h"
#include "plat/config/ConfigStoreFile.h"

namespace drive {

namespace {

constexpr double kDamageTestSeconds = 11;
constexpr int kDrawnSize = 32;

// What doctor has to say of one thing.
struct Finding {
  std::string subject;
  std::string fact;
  std::string advice;  // what to do; empty when all is well
};

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

// A line "name = value" of a configuration file.
std::string nameIn(const std::string& line) {
  const size_t begin = line.find_first_not_of(" \t");
  const size_t equals = line.find('=');
  if (begin == std::string::npos || line[begin] == '#' || equals == std::string::npos) return {};
  const std::string name = line.substr(begin, equals - begin);
  return name.substr(0, name.find_last_not_of(" \t") + 1);
}

// The configuration files that there are, and the parameters that are not at their defaults with
// where they come from: the agent's listing at its start names the kind of place.
void addParameters(std::vector<Finding>& findings, const host::Transcript& seen,
                   const SessionOptions& options) {
  struct Setting {
    std::string name, place;
    bool policy;
  };
  std::vector<Setting> settings;  // the later ones count
  const auto directories = nbutil::ConfigStoreFile::standardDirectories();
  const std::pair<std::string, bool> places[] = {{directories.program + "/config.d", false},
                                                 {directories.firstScope + "/config.d", false},
                                                 {directories.secondScope + "/config.d", false},
                                                 {directories.firstScope + "/policy.d", true}};
  for (const auto& [directory, policy] : places) {
    if (directory[0] == '/' && directory.find('/', 1) == std::string::npos) continue;  // no base
    for (const char* leaf : {"common", "common.custom"}) {
      const std::string path = directory + "/" + leaf;
      std::ifstream file(path);
      if (!file) continue;
      findings.push_back({"configuration", path, ""});
      for (std::string line; std::getline(file, line);) {
        settings.push_back({nameIn(line), path, policy});
      }
    }
  }
  for (const std::string& parameter : options.parameters) {
    settings.push_back({parameter.substr(0, parameter.find('=')), "the command line", false});
  }
  int defaults = 0;
  for (const host::LogLine& line : seen.log) {
    const size_t equals = line.text.find('=');
    if (line.source != "Configuration" || equals == std::string::npos || line.level == 0) continue;
    if (line.text.ends_with("(Default)")) {
      ++defaults;
      continue;
    }
    const bool policy = line.text.ends_with("(Policy)");
    const auto setting = std::find_if(settings.rbegin(), settings.rend(), [&](const Setting& s) {
      return s.policy == policy && plat::equalNoCase(s.name, line.text.substr(0, equals));
    });
    findings.push_back({"parameter",
                        line.text + (setting == settings.rend() ? "" : ", from " + setting->place),
                        ""});
  }
  findings.push_back({"parameters", plat::format("%d more are at their defaults", defaults), ""});
}

std::vector<Finding> examine(const SessionOptions& sessionOptions) {
  host::Transcript seen;
  Session session(sessionOptions, seen);
  session.startDesktop();
  session.agent().fbUpdateRequest();
  session.waitUntil(
      [&] {
        return lineOf(seen, {"Using damage extension", "Using polling"});
      },
      5000, "the capture's start");
  const bool isTesting = lineOf(seen, {"Using damage extension"}) != nullptr;
  XClient client(sessionOptions.display);
  if (isTesting) {
    // The agent compares pixels every 5 s until it finds something changed.
    client.showWindow({0, 0, kDrawnSize, kDrawnSize});
    client.paint(true);
    session.run(kDamageTestSeconds, [&] { return lineOf(seen, {"Damage test:"}) != nullptr; });
  }

  std::vector<Finding> findings;
  const host::PixelBufferInfo& info = session.agent().pixelBuffer();
  const char* display = std::getenv("DISPLAY");
  findings.push_back({"display",
                      !sessionOptions.display.empty() ? sessionOptions.display
                      : display                       ? display
                                                      : "",
                      ""});
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
                            : "used, but the agent has not tested it",
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
  findings.push_back({"clipboard manager",
                      client.hasSelectionOwner("CLIPBOARD_MANAGER")
                          ? "one runs: it may copy what others have copied once more"
                          : "none",
                      ""});
  const host::LogLine* lock = lineOf(seen, {"No lock files in "});
  findings.push_back({"lock directory",
                      lock ? lock->text : plat::format("/tmp/.ruvo-%u", unsigned{geteuid()}),
                      lock ? "remove what is in its place, or make it yours" : ""});
  addParameters(findings, seen, sessionOptions);
  for (const host::LogLine& line : seen.log) {
    if (line.level == 0 && &line != lock) {
      findings.push_back({"error", line.source + ": " + line.text, "see docs/logging.md"});
    }
  }
  session.finish();
  return findings;
}

}  // namespace

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
  if (wrong > 0) {
    throw Failure(wrong == 1 ? std::string("one thing is wrong")
                             : plat::format("%d things are wrong", wrong));
  }
}

}  // namespace drive
