#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "plat/config/ConfigParameter.h"
#include "plat/config/ParameterRegistry.h"

namespace plat {

// A named group of parameters. Names of parameters match in any case. Main thread only.
class Configuration : public ParameterRegistry {
 public:
  enum class HelpMode { kPlain = 0, kAll = 1, kXml = 2 };
  // Prints the help asked for and ends the process.
  using HelpHandler = std::function<void(HelpMode mode)>;

  // Both texts must have static storage; the id may be null.
  explicit Configuration(const char* name, const char* descriptionId = nullptr);
  ~Configuration();

  // The process-wide configuration, created on first use and never destroyed.
  static Configuration& global();

  const char* name() const { return name_; }
  const char* descriptionId() const { return descriptionId_; }

  // Not owned; a child must outlive this configuration.
  void addChild(Configuration* child);
  const std::vector<Configuration*>& children() const { return children_; }

  // The parameters of this configuration, and with recurse those of its children, sorted by name.
  std::vector<ConfigParameter*> parameters(bool recurse) const;
  // Null when there is none.
  ConfigParameter* findParam(std::string_view name, bool recurse = true) const;
  // Throws Exception when there is none.
  ConfigParameter& getParam(std::string_view name, bool recurse = true) const;
  // Sets the parameter, or each parameter that the name is an alias for, from text (null turns a
  // bool parameter on). False when nothing was set. Throws BadUtf8.
  bool setParam(std::string_view name, const char* value, int priority);

  // Sets parameters from command-line arguments: args points behind the program's name, into an
  // array that ends with a null pointer. Throws an Exception of kind "BadCmdLineArg" for the first
  // argument that is none, and BadUtf8.
  void processArgs(const char* const* args, const HelpHandler& helpHandler = {});

  // Lists the parameters of this configuration, children not included, wrapped to the width.
  void printHelp(std::ostream& out, bool all, bool showDefaults = true, size_t width = 80) const;
  // The whole usage screen: how to write parameters, the listings of this configuration and its
  // children, and with all the names known to the log system.
  void printUsage(std::ostream& out, bool all, const std::vector<std::string>& logNames,
                  const std::vector<std::string>& logDestinations) const;
  // Logs the effective values of this configuration and its children.
  void logValues() const;

 private:
  bool setFromArgument(const char* argument);

  const char* name_;
  const char* descriptionId_;
  std::vector<Configuration*> children_;
};

}  // namespace plat
