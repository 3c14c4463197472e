#include "ruvohost/Parameters.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "host/ProgramOutput.h"
#include "plat/Exception.h"
#include "plat/NoCase.h"
#include "plat/Utf8.h"
#include "plat/config/XmlElement.h"
#include "ruvohost/Types.h"

namespace ruvohost {

namespace {

using Type = Parameter::Type;

Type typeOf(const std::string& name) {
  if (name == "bool") return Type::kBool;
  if (name == "int") return Type::kInt;
  if (name == "string") return Type::kString;
  if (name == "enum") return Type::kEnum;
  if (name == "binary") return Type::kBinary;
  return Type::kOther;
}

std::string attribute(const plat::XmlElement& element, const char* name) {
  const std::string* value = element.attribute(name);
  return value ? *value : std::string();
}

Parameter parameterOf(const plat::XmlElement& element) {
  Parameter parameter;
  parameter.name = attribute(element, "name");
  parameter.typeName = element.name;
  parameter.type = typeOf(element.name);
  parameter.description = attribute(element, "description");
  if (parameter.description.empty()) parameter.description = attribute(element, "locDesc");
  parameter.minimum = attribute(element, "min");
  parameter.maximum = attribute(element, "max");
  parameter.hidden = parameter.name.starts_with('_');
  for (const plat::XmlElement& child : element.children) {
    if (child.name == "opt") parameter.choices.push_back(attribute(child, "data"));
    if (child.name == "value" && attribute(child, "priority") == "0") {
      parameter.defaultValue = attribute(child, "data");
    }
  }
  return parameter;
}

bool isOneOf(std::string_view value, const std::vector<std::string>& words) {
  return std::any_of(words.begin(), words.end(),
                     [&](const std::string& word) { return plat::equalNoCase(value, word); });
}

}  // namespace

std::string Parameter::check(std::string_view value) const {
  const std::string text(value);
  const std::string quoted = name + ": '" + text + "' is ";
  if (!plat::isValidUtf8(text)) return name + ": the value is not UTF-8";
  switch (type) {
    case Type::kBool: {
      static const std::vector<std::string> words{"",  "1",   "on",    "true", "yes",
                                                  "0", "off", "false", "no"};
      return isOneOf(value, words) ? "" : quoted + "neither 1 nor 0";
    }
    case Type::kInt: {
      char* end = nullptr;
      errno = 0;
      const long long number = std::strtoll(text.c_str(), &end, 0);
      if (text.empty() || *end != '\0' || errno != 0) return quoted + "no number";
      const bool tooSmall = !minimum.empty() && number < std::atoll(minimum.c_str());
      const bool tooLarge = !maximum.empty() && number > std::atoll(maximum.c_str());
      return tooSmall || tooLarge ? quoted + "not between " + minimum + " and " + maximum : "";
    }
    case Type::kEnum: {
      if (isOneOf(value, choices)) return "";
      std::string all;
      for (const std::string& choice : choices) all += (all.empty() ? "" : ", ") + choice;
      return quoted + "none of " + all;
    }
    default:
      return "";
  }
}

std::vector<Parameter> parametersOf(const std::string& agent) {
  try {
    const host::ProgramOutput result = host::runProgram({agent, "user", "-paramsxml"});
    if (result.status != 0) throw Error("'" + agent + "' does not tell its parameters");
    std::vector<Parameter> parameters;
    for (const plat::XmlElement& element : plat::XmlElement::parse(result.output).children) {
      parameters.push_back(parameterOf(element));
    }
    return parameters;
  } catch (const plat::Exception& e) {
    throw Error("'" + agent + "' does not tell its parameters: " + e.text());
  }
}

std::string checkParameter(const std::vector<Parameter>& parameters, std::string_view name,
                           std::string_view value) {
  const Parameter* const parameter = findParameter(parameters, name);
  return parameter ? parameter->check(value) : "there is no parameter '" + std::string(name) + "'";
}

const Parameter* findParameter(const std::vector<Parameter>& parameters, std::string_view name) {
  const auto it = std::find_if(parameters.begin(), parameters.end(),
                               [&](const Parameter& p) { return plat::equalNoCase(p.name, name); });
  return it == parameters.end() ? nullptr : &*it;
}

}  // namespace ruvohost
