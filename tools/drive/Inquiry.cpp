#include <cstdio>
#include <memory>

#include "Commands.h"
#include "Doctor.h"
#include "JsonOutput.h"
#include "loc/Localizer.h"
#include "loc/Messages.h"
#include "ruvohost/Parameters.h"

namespace drive {

namespace {

// Some descriptions are the ids of texts in several languages.
std::string descriptionOf(const ruvohost::Parameter& parameter) {
  if (!loc::findMessage(parameter.description.c_str())) return parameter.description;
  return loc::Localizer::instance().text(parameter.description.c_str()).str();
}

void listParameters(const SessionOptions& options, bool asJson) {
  const std::string agent = agentOf(options);
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
