#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ruvohost {

// A parameter of the agent, as the agent itself describes it.
struct Parameter {
  enum class Type { kBool, kInt, kString, kEnum, kBinary, kOther };

  std::string name;
  Type type = Type::kString;
  std::string typeName;
  std::string description;
  std::string defaultValue;
  std::vector<std::string> choices;  // of kEnum
  std::string minimum, maximum;      // of kInt; empty without one
  bool hidden = false;

  // What is wrong with this value; empty when nothing is.
  std::string check(std::string_view value) const;
};

// Runs the agent's program to ask for its parameters, which it prints without a display. Throws
// Error when it can't.
std::vector<Parameter> parametersOf(const std::string& agent);
// What is wrong with giving a parameter this value, also that there is none of this name; empty
// when nothing is.
std::string checkParameter(const std::vector<Parameter>& parameters, std::string_view name,
                           std::string_view value);
// Null when there is none of this name, upper and lower case alike.
const Parameter* findParameter(const std::vector<Parameter>& parameters, std::string_view name);

}  // namespace ruvohost
