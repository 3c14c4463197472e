// The help and usage texts of a Configuration.

#include <algorithm>
#include <ostream>

#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/Configuration.h"

namespace plat {

namespace {

// Descriptions keep at least this width, however long the names are.
constexpr size_t kMinTextWidth = 20;

// Takes the next line of at most width characters off the text, broken at a blank where possible.
std::string_view takeLine(std::string_view& text, size_t width) {
  size_t end = 0;  // where the line is broken
  size_t characters = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    const bool atBlank = i == text.size() || text[i] == ' ';
    if (atBlank && (characters <= width || end == 0)) end = i;
    if (characters > width && end != 0) break;
    if (i < text.size() && (text[i] & 0xC0) != 0x80) ++characters;
  }
  std::string_view line = text.substr(0, end);
  while (line.ends_with(' ')) line.remove_suffix(1);
  text.remove_prefix(end);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return line;
}

void printNames(std::ostream& out, MessageId title, const std::vector<std::string>& names) {
  out << "\n" << translate(title).str() << "\n";
  for (const std::string& name : names) out << "  " << name << "\n";
}

void printListings(std::ostream& out, const Configuration& configuration, bool all) {
  configuration.printHelp(out, all);
  for (const Configuration* child : configuration.children()) {
    out << "\n";
    printListings(out, *child, all);
  }
}

}  // namespace

void Configuration::printHelp(std::ostream& out, bool all, bool showDefaults, size_t width) const {
  if (descriptionId_) {
    out << translate(MessageId{descriptionId_}).str() << ":\n";
  } else {
    out << format("%s Parameters:\n", name_);
  }

  std::vector<ConfigParameter*> listed = parameters(false);
  std::erase_if(listed, [all](const ConfigParameter* param) {
    return param->isHidden() || (param->isAdvanced() && !all);
  });
  size_t nameWidth = 0;
  for (const ConfigParameter* param : listed) {
    nameWidth = std::max(nameWidth, std::string_view(param->name()).size());
  }
  const std::string entryStart = "  ";
  const std::string separator = " - ";
  const size_t column = entryStart.size() + nameWidth + separator.size();
  const size_t textWidth = std::max(width, column + kMinTextWidth) - column;
  const std::string defaultWord = translate(MessageId{"plat_configuration_help_default"}).str();

  for (const ConfigParameter* param : listed) {
    std::string description = param->getDescription().str();
    if (showDefaults) {
      if (!description.empty()) description += ' ';
      description +=
          format("(%s=%s)", defaultWord.c_str(), param->getValueStrAt(kPriorityDefault).c_str());
    }
    std::string_view rest = description;
    const std::string first(takeLine(rest, textWidth));
    out << format("  %-*s - %s", static_cast<int>(nameWidth), param->name(), first.c_str()) << "\n";
    while (!rest.empty()) {
      const std::string line(takeLine(rest, textWidth));
      out << format("%-*c%s", static_cast<int>(column), ' ', line.c_str()) << "\n";
    }
  }
}

void Configuration::printUsage(std::ostream& out, bool all,
                               const std::vector<std::string>& logNames,
                               const std::vector<std::string>& logDestinations) const {
  out << translate(MessageId{"plat_configuration_param_usage"}).str() << "\n\n";
  printListings(out, *this, all);
  if (all) {
    printNames(out, MessageId{"plat_configuration_log_names_title"}, logNames);
    printNames(out, MessageId{"plat_configuration_log_dests_title"}, logDestinations);
  }
}

}  // namespace plat
