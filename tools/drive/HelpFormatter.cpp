#include "HelpFormatter.h"

#include <sstream>
#include <vector>

namespace drive {
namespace {

constexpr size_t kColumns = 80;
constexpr size_t kFirstColumn = 28;

std::string wrap(const std::string& text, size_t width) {
  std::istringstream words(text);
  std::string word;
  std::string line;
  std::string wrapped;
  while (words >> word) {
    if (!line.empty() && line.size() + 1 + word.size() > width) {
      wrapped += line + '\n';
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return wrapped + line;
}

void writeEntry(std::ostream& out, const std::string& name, const std::string& description) {
  CLI::detail::format_help(out, name, wrap(description, kColumns - kFirstColumn), kFirstColumn);
}

}  // namespace

HelpFormatter::HelpFormatter() {
  column_width(kFirstColumn);
  label("INT", "N");
  label("FLOAT", "SECONDS");
  label("SUBCOMMANDS", "COMMAND");
  label("SUBCOMMAND", "COMMAND");
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
  if (app->get_parent()) return Formatter::make_help(app, name, mode);
  std::ostringstream out;
  out << "Usage: " << name << " [OPTIONS] COMMAND [-- COMMAND]...; COMMAND --help has more\n";
  for (const CLI::Option* option : app->get_options()) {
    if (option != app->get_help_ptr()) out << make_option(option, false);
  }
  out << '\n';
  std::string group;
  for (const CLI::App* command : app->get_subcommands({})) {
    if (command->get_group() == "Subcommands") {
      out << make_subcommand(command);
    } else if (command->get_group() != group) {
      group = command->get_group();
      std::vector<std::string> names;
      for (const CLI::App* other : app->get_subcommands({})) {
        if (other->get_group() == group) names.push_back(other->get_name());
      }
      writeEntry(out, CLI::detail::join(names, ", "), group);
    }
  }
  return out.str();
}

std::string HelpFormatter::make_description(const CLI::App* app) const {
  return wrap(app->get_description(), kColumns) + '\n';
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  std::ostringstream out;
  writeEntry(out, command->get_name(), command->get_description());
  return out.str();
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
  if (option->get_positional() || option->get_type_size() == 0) return "";
  // Behind the colon stand the limits.
  const std::string type = option->get_type_name();
  return " " + get_label(type.substr(0, type.find(':')));
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
  std::string text = option->get_description();
  for (const CLI::Option* needed : option->get_needs()) {
    text += " (with " + needed->get_name() + ")";
  }
  for (const CLI::Option* other : option->get_excludes()) {
    text += " (not with " + other->get_name() + ")";
  }
  if (!option->get_default_str().empty()) text += " (default: " + option->get_default_str() + ")";
  return wrap(text, kColumns - kFirstColumn);
}

}  // namespace drive
