#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "plat/String.h"
#include "plat/Translate.h"

namespace plat {

class LogSrc;
class ParameterChangedCallback;
class ParameterRegistry;

// Well-known priorities of values; any other integer is allowed as well. The value at the greatest
// priority present is the effective one.
enum Priority : int { kPriorityDefault = 0, kPriorityPreference = 10, kPriorityPolicy = 30 };

// A named, typed setting, normally a static object beside the code that reads it. It registers
// itself in its configuration when constructed and leaves it when destroyed. It holds one value for
// each priority; the default stands at priority 0 and cannot be removed. Main thread only.
class ConfigParameter {
 public:
  virtual ~ConfigParameter();
  ConfigParameter(const ConfigParameter&) = delete;
  ConfigParameter& operator=(const ConfigParameter&) = delete;

  // Parses the text and stores the value at the priority. False when the text or the priority is
  // refused; the values are then unchanged. Throws BadUtf8 for a string that is not UTF-8.
  virtual bool setParam(const char* text, int priority) = 0;
  // Removes the value at the priority. False for priority 0 and when there is none. The callbacks
  // are told only when notify is set.
  virtual bool unsetParam(int priority, bool notify) = 0;
  // Typed form for bool, int and enum parameters; false for all others.
  virtual bool setParam(int value, int priority);
  // The effective value as text.
  virtual String getValueStr() const = 0;
  // The effective value of bool, int and enum parameters; 0 for all others.
  virtual int getValueInt() const;
  // The highest priority that holds a value.
  virtual int getPriority() const = 0;
  virtual bool hasValueAt(int priority) const = 0;
  // The value at exactly this priority as text, null when there is none. The bytes of a binary
  // parameter are not shown: "<binary>".
  virtual String getValueStrAt(int priority) const = 0;
  // All values by priority, in the form of getValueStrAt. (TypedParameter::values() has them
  // typed.)
  virtual std::map<int, String> getAllValues() const = 0;
  virtual const char* getTypeName() const = 0;
  // A parameter of the same type, name, description, flags, limits and values (not callbacks),
  // registered in the given registry.
  virtual std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const = 0;
  // The text form of an int or enum value.
  virtual String intToStr(int value) const;
  // The value at exactly this priority in a form that setParam reads back, null when there is none.
  // Unlike getValueStrAt it contains the bytes of a binary parameter.
  virtual String getStoredTextAt(int priority) const { return getValueStrAt(priority); }

  const char* name() const { return name_; }
  // The literal description, or the translation of the description's message id.
  String getDescription() const;
  // Exactly one of these is not null.
  const char* literalDescription() const { return description_; }
  const char* descriptionId() const { return descriptionId_; }
  // Advanced parameters are listed only on request.
  bool isAdvanced() const;
  // Debugging switches, whose names begin with '_', are never listed.
  bool isHidden() const { return name_[0] == '_'; }
  const std::set<std::string>& tags() const { return tags_; }
  bool hasTag(const std::string& tag) const { return tags_.count(tag) != 0; }

  // Callbacks are told in the order in which they were added. They are not owned.
  void addCallback(ParameterChangedCallback* callback);
  void removeCallback(ParameterChangedCallback* callback);
  // Tells every callback.
  void notifyCallbacks(int priority);

 protected:
  // The name and description must have static storage. tags is a comma-separated list or null. A
  // null registry is the global one.
  ConfigParameter(const char* name, const char* description, bool advanced, const char* tags,
                  ParameterRegistry* registry);
  ConfigParameter(const char* name, MessageId description, bool advanced, const char* tags,
                  ParameterRegistry* registry);
  // For clones.
  ConfigParameter(const ConfigParameter& other, ParameterRegistry* registry);

  // The log source of all parameters.
  static LogSrc& log();
  // Whether a value may be stored at the priority at all.
  bool acceptsPriority(int priority) const;
  // To be called after each change: logs it and tells the callbacks.
  void valueSet(int priority);
  void valueUnset(int priority, bool notify);

 private:
  friend class Configuration;

  ParameterRegistry* registry_;  // null when it has gone before
  const char* name_;
  const char* description_;
  const char* descriptionId_;
  bool advanced_;
  std::set<std::string> tags_;
  std::vector<ParameterChangedCallback*> callbacks_;
};

}  // namespace plat
