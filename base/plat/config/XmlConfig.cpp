#include "plat/config/XmlConfig.h"

#include <charconv>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "plat/config/ConfigParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/EnumParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/XmlElement.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("Configuration");

// An attribute value. Line ends and tabs are references because XML readers make blanks of them.
std::string escaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\t':
        result += "&#9;";
        break;
      case '\n':
        result += "&#10;";
        break;
      case '\r':
        result += "&#13;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

const char* descriptionAttribute(const ConfigParameter& param) {
  return param.descriptionId() ? "locDesc" : "description";
}

std::string descriptionText(const ConfigParameter& param) {
  return String(param.descriptionId() ? param.descriptionId() : param.literalDescription()).str();
}

const char* advancedText(const ConfigParameter& param) {
  return param.isAdvanced() ? "true" : "false";
}

std::string joinedTags(const ConfigParameter& param) {
  std::string joined;
  for (const std::string& tag : param.tags()) {
    if (!joined.empty()) joined += ',';
    joined += tag;
  }
  return joined;
}

void writeParam(std::ostream& out, const ConfigParameter& param) {
  out << format("<%-6s name=\"%s\"\n        %s=\"%s\"\n        advanced=\"%s\"",
                param.getTypeName(), escaped(param.name()).c_str(), descriptionAttribute(param),
                escaped(descriptionText(param)).c_str(), advancedText(param));
  if (!param.tags().empty()) {
    out << format("\n        flags=\"%s\"", escaped(joinedTags(param)).c_str());
  }
  if (const auto* number = dynamic_cast<const IntParameter*>(&param)) {
    out << format("\n        min=\"%i\"\n        max=\"%i\"", number->min(), number->max());
  }
  out << ">\n";
  for (const auto& [priority, shown] : param.getAllValues()) {
    const std::string data = escaped(param.getStoredTextAt(priority).view());
    out << format("    <value data=\"%s\" priority=\"%i\"/>\n", data.c_str(), priority);
  }
  if (const auto* choice = dynamic_cast<const EnumParameter*>(&param)) {
    for (const char* const* name = choice->names(); *name; ++name) {
      out << format("    <opt data=\"%s\"/>\n", escaped(*name).c_str());
    }
  }
  out << format("</%s>\n", param.getTypeName());
}

struct Setting {
  ConfigParameter* param;
  std::string text;
  int priority;
};

void require(bool condition, const std::string& subject) {
  if (!condition) throw Exception("Mismatch at %s", subject.c_str());
}

bool hasOnlyAttributes(const XmlElement& element, std::initializer_list<std::string_view> names) {
  for (const auto& [key, value] : element.attributes) {
    bool known = false;
    for (const std::string_view name : names) known = known || key == name;
    if (!known) return false;
  }
  return true;
}

bool attributeIs(const XmlElement& element, std::string_view name, std::string_view expected) {
  const std::string* value = element.attribute(name);
  return value && *value == expected;
}

int parsePriority(const XmlElement& element) {
  const std::string* text = element.attribute("priority");
  require(text, element.name);
  int priority = 0;
  const auto [last, error] = std::from_chars(text->data(), text->data() + text->size(), priority);
  require(error == std::errc() && last == text->data() + text->size(), *text);
  return priority;
}

// Checks the start tag against the parameter that it names.
ConfigParameter* matchParam(const XmlElement& element, const Configuration& configuration) {
  const std::string* name = element.attribute("name");
  require(name, element.name);
  ConfigParameter* param = configuration.findParam(*name);
  require(param && element.name == param->getTypeName(), *name);
  const bool isNumber = dynamic_cast<const IntParameter*>(param) != nullptr;
  require(hasOnlyAttributes(element, {"name", descriptionAttribute(*param), "advanced", "flags",
                                      isNumber ? "min" : "name", isNumber ? "max" : "name"}),
          *name);
  require(attributeIs(element, descriptionAttribute(*param), descriptionText(*param)), *name);
  require(attributeIs(element, "advanced", advancedText(*param)), *name);
  const std::string* flags = element.attribute("flags");
  require((flags ? *flags : "") == joinedTags(*param), *name);
  return param;
}

std::vector<Setting> matchDocument(const XmlElement& root, const Configuration& configuration) {
  require(root.name == "config" && root.attributes.empty(), root.name);
  std::vector<Setting> settings;
  for (const XmlElement& element : root.children) {
    ConfigParameter* param = matchParam(element, configuration);
    for (const XmlElement& child : element.children) {
      require(child.children.empty() && child.attribute("data"), child.name);
      if (child.name == "opt" && element.name == "enum") {
        require(hasOnlyAttributes(child, {"data"}), child.name);
      } else {
        require(child.name == "value" && hasOnlyAttributes(child, {"data", "priority"}),
                child.name);
        settings.push_back({param, *child.attribute("data"), parsePriority(child)});
      }
    }
  }
  return settings;
}

// Sets the values on copies of the parameters, to learn whether they are accepted.
void tryOut(const std::vector<Setting>& settings) {
  Configuration scratch("Scratch");
  scratch.setLogChanges(false);
  std::map<ConfigParameter*, std::unique_ptr<ConfigParameter>> copies;
  for (const Setting& setting : settings) {
    std::unique_ptr<ConfigParameter>& copy = copies[setting.param];
    if (!copy) copy = setting.param->clone(&scratch);
    require(copy->setParam(setting.text.c_str(), setting.priority), setting.param->name());
  }
}

}  // namespace

void XmlConfig::write(std::ostream& out, const Configuration& configuration) {
  out << "<?xml version=\"1.0\"?>\n<config>\n";
  for (const ConfigParameter* param : configuration.parameters(true)) writeParam(out, *param);
  out << "</config>\n";
}

void XmlConfig::read(std::string_view document, Configuration& configuration) {
  std::vector<Setting> settings;
  try {
    settings = matchDocument(XmlElement::parse(document), configuration);
    tryOut(settings);
  } catch (const Exception& e) {
    vlog.debug("XML config refused: %s", e.text());
    throw Exception("Incompatible XML config");
  }
  for (const Setting& setting : settings) {
    setting.param->setParam(setting.text.c_str(), setting.priority);
  }
}

}  // namespace plat
