#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace drive {

/// Help texts in lines of 80 columns. That of the program itself fits a terminal of 24 lines:
/// commands of one group of their own share a line, with the group's name as its description.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_description(const CLI::App* app) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
};

}  // namespace drive
