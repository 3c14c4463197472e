#include "plat/config/ConfigParameter.h"

#include <algorithm>
#include <string_view>

#include "plat/Exception.h"
#include "plat/config/ParameterChangedCallback.h"
#include "plat/config/ParameterRegistry.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("ConfigParameter");

const char kNoPolicyTag[] = "noPolicy";

std::set<std::string> splitTags(const char* tags) {
  std::set<std::string> result;
  if (!tags) return result;
  std::string_view rest = tags;
  while (!rest.empty()) {
    const size_t comma = std::min(rest.find(','), rest.size());
    if (comma > 0) result.emplace(rest.substr(0, comma));
    rest.remove_prefix(std::min(comma + 1, rest.size()));
  }
  return result;
}

ParameterRegistry* orGlobal(ParameterRegistry* registry) {
  return registry ? registry : &ParameterRegistry::global();
}

}  // namespace

ConfigParameter::ConfigParameter(const char* name, const char* description, bool advanced,
                                 const char* tags, ParameterRegistry* registry)
    : registry_(orGlobal(registry)),
      name_(name),
      description_(description),
      descriptionId_(nullptr),
      advanced_(advanced),
      tags_(splitTags(tags)) {
  registry_->add(*this);
}

ConfigParameter::ConfigParameter(const char* name, MessageId description, bool advanced,
                                 const char* tags, ParameterRegistry* registry)
    : registry_(orGlobal(registry)),
      name_(name),
      description_(nullptr),
      descriptionId_(description.id),
      advanced_(advanced),
      tags_(splitTags(tags)) {
  registry_->add(*this);
}

ConfigParameter::ConfigParameter(const ConfigParameter& other, ParameterRegistry* registry)
    : registry_(orGlobal(registry)),
      name_(other.name_),
      description_(other.description_),
      descriptionId_(other.descriptionId_),
      advanced_(other.advanced_),
      tags_(other.tags_) {
  registry_->add(*this);
}

ConfigParameter::~ConfigParameter() {
  if (registry_) registry_->remove(*this);
}

bool ConfigParameter::setParam(int, int) {
  return false;
}

int ConfigParameter::getValueInt() const {
  return 0;
}

String ConfigParameter::intToStr(int value) const {
  return format("%d", value);
}

String ConfigParameter::getDescription() const {
  return description_ ? String(description_) : translate(MessageId{descriptionId_});
}

bool ConfigParameter::isAdvanced() const {
  return advanced_ || std::string_view(getTypeName()) == "s64";
}

void ConfigParameter::addCallback(ParameterChangedCallback* callback) {
  callbacks_.push_back(callback);
}

void ConfigParameter::removeCallback(ParameterChangedCallback* callback) {
  callbacks_.erase(std::remove(callbacks_.begin(), callbacks_.end(), callback), callbacks_.end());
}

void ConfigParameter::notifyCallbacks(int priority) {
  // A callback may add or remove callbacks, itself included.
  const std::vector<ParameterChangedCallback*> callbacks = callbacks_;
  for (ParameterChangedCallback* callback : callbacks) {
    if (std::find(callbacks_.begin(), callbacks_.end(), callback) != callbacks_.end()) {
      callback->paramChanged(this, priority);
    }
  }
}

LogSrc& ConfigParameter::log() {
  return vlog;
}

bool ConfigParameter::acceptsPriority(int priority) const {
  return priority != kPriorityPolicy || !hasTag(kNoPolicyTag);
}

void ConfigParameter::valueSet(int priority) {
  if (registry_ && registry_->logChanges()) {
    vlog.write(priority < 1 ? 110 : 100, "set %s(%s) to %s, priority %d", name_, getTypeName(),
               getValueStrAt(priority).c_str(), priority);
  }
  notifyCallbacks(priority);
}

void ConfigParameter::valueUnset(int priority, bool notify) {
  if (registry_ && registry_->logChanges()) {
    vlog.debug("unset %s(%s) priority %d, now %s, priority %d", name_, getTypeName(), priority,
               getValueStr().c_str(), getPriority());
  }
  if (notify) notifyCallbacks(priority);
}

}  // namespace plat
