#include "plat/config/Configuration.h"

#include <algorithm>

#include "plat/Exception.h"
#include "plat/config/ParameterAlias.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("Configuration");

bool isHelpArgument(std::string_view argument) {
  return equalNoCase(argument, "-help") || equalNoCase(argument, "--help") ||
         equalNoCase(argument, "-h") || argument == "/?";
}

std::string priorityLabel(const ConfigParameter& param) {
  switch (const int priority = param.getPriority()) {
    case kPriorityDefault:
      return "Default";
    case kPriorityPreference:
      return "Preference";
    case kPriorityPolicy:
      return param.hasValueAt(kPriorityPreference) ? "Policy overriding preference" : "Policy";
    default:
      return format("Priority %d", priority);
  }
}

}  // namespace

Configuration::Configuration(const char* name, const char* descriptionId)
    : name_(name), descriptionId_(descriptionId) {}

Configuration::~Configuration() {
  for (ConfigParameter* param : params_) param->registry_ = nullptr;
  for (const auto& [name, alias] : aliases_) alias->registry_ = nullptr;
}

Configuration& Configuration::global() {
  // Never destroyed: static parameters leave it while the program ends, in any order.
  static auto* const configuration =
      new Configuration("Global", "plat_configuration_global_params");
  return *configuration;
}

ParameterRegistry& ParameterRegistry::global() {
  return Configuration::global();
}

void Configuration::addChild(Configuration* child) {
  children_.push_back(child);
}

std::vector<ConfigParameter*> Configuration::parameters(bool recurse) const {
  std::vector<ConfigParameter*> result(params_.rbegin(), params_.rend());
  if (recurse) {
    for (const Configuration* child : children_) {
      const auto more = child->parameters(true);
      result.insert(result.end(), more.begin(), more.end());
    }
  }
  std::stable_sort(result.begin(), result.end(),
                   [](const ConfigParameter* a, const ConfigParameter* b) {
                     return compareNoCase(a->name(), b->name()) < 0;
                   });
  return result;
}

ConfigParameter* Configuration::findParam(std::string_view name, bool recurse) const {
  // The newest stands.
  for (auto it = params_.rbegin(); it != params_.rend(); ++it) {
    if (equalNoCase((*it)->name(), name)) return *it;
  }
  if (recurse) {
    for (const Configuration* child : children_) {
      if (ConfigParameter* param = child->findParam(name, true)) return param;
    }
  }
  return nullptr;
}

ConfigParameter& Configuration::getParam(std::string_view name, bool recurse) const {
  ConfigParameter* param = findParam(name, recurse);
  if (!param) throw Exception("Parameter %s not found", std::string(name).c_str());
  return *param;
}

bool Configuration::setParam(std::string_view name, const char* value, int priority) {
  const auto alias = aliases_.find(name);
  if (alias == aliases_.end()) {
    ConfigParameter* param = findParam(name);
    return param && param->setParam(value, priority);
  }
  ParameterAlias::ValueMap targets;
  alias->second->expand(alias->first.c_str(), String(value), targets);
  bool anySet = false;
  for (const auto& [target, text] : targets) {
    ConfigParameter* param = findParam(target);
    if (param && param->setParam(text.get(), priority)) anySet = true;
  }
  return anySet;
}

bool Configuration::setFromArgument(const char* argument) {
  std::string_view rest = argument;
  const bool dashed = rest.starts_with('-');
  if (dashed) rest.remove_prefix(rest.starts_with("--") ? 2 : 1);
  const size_t equals = rest.find('=');
  if (equals != std::string_view::npos) {
    return setParam(rest.substr(0, equals), rest.data() + equals + 1, kPriorityPreference);
  }
  return dashed && setParam(rest, nullptr, kPriorityPreference);
}

void Configuration::processArgs(const char* const* args, const HelpHandler& helpHandler) {
  while (*args) {
    if (setFromArgument(*args)) {
      ++args;
    } else if (**args == '-' && args[1] && setParam(*args + 1, args[1], kPriorityPreference)) {
      args += 2;
    } else {
      break;
    }
  }
  if (!*args) return;
  if (helpHandler && isHelpArgument(*args)) {
    const std::string_view mode = args[1] ? args[1] : "";
    helpHandler(mode == "all" ? HelpMode::kAll : mode == "xml" ? HelpMode::kXml : HelpMode::kPlain);
  }
  std::string message = translate(MessageId{"plat_bad_argument"}, *args).str();
  if (helpHandler) message += "  " + translate(MessageId{"plat_run_with_help"}).str();
  throw Exception::ofKind("BadCmdLineArg", message);
}

void Configuration::logValues() const {
  std::vector<ConfigParameter*> params = parameters(true);
  std::stable_sort(params.begin(), params.end(),
                   [](const ConfigParameter* a, const ConfigParameter* b) {
                     return a->getPriority() > b->getPriority();
                   });
  for (const ConfigParameter* param : params) {
    if (param->isHidden()) continue;
    vlog.write(param->getPriority() == kPriorityDefault ? 100 : 30, "%s=%s (%s)", param->name(),
               param->getValueStr().c_str(), priorityLabel(*param).c_str());
  }
}

}  // namespace plat
