#include "View.h"

#include <memory>

#include "Commands.h"

namespace drive {

void addViewCommands(CLI::App& app, SessionOptions& session) {
  auto shotOptions = std::make_shared<ShotOptions>();
  CLI::App* command = app.add_subcommand("shot", "Writes a picture of the desktop");
  command->add_option("file", shotOptions->file, "PNG file to write")->required();
  command->add_flag("--cursor", shotOptions->cursor, "Draw the cursor into it");
  command->callback([&session, shotOptions] { shot(session, *shotOptions); });

  auto watchOptions = std::make_shared<WatchOptions>();
  command = app.add_subcommand("watch", "Shows what the agent reports, as it comes");
  command
      ->add_option("--for", watchOptions->seconds, "Seconds to watch (default: until interrupted)")
      ->check(checkSeconds);
  command->add_flag("--no-log", watchOptions->noLog, "Leave the agent's log lines out");
  command->callback([&session, watchOptions] { watch(session, *watchOptions); });

  auto rawOptions = std::make_shared<RawOptions>();
  command = app.add_subcommand("raw", "Prints every message of the agent, one JSON object a line");
  command
      ->add_option("--for", rawOptions->seconds, "Seconds to listen (default: until interrupted)")
      ->check(checkSeconds);
  command->add_flag("--no-start", rawOptions->noStart, "Don't start the desktop");
  command->callback([&session, rawOptions] { raw(session, *rawOptions); });

  auto file = std::make_shared<std::string>();
  command = app.add_subcommand("cursor", "Writes a picture of the cursor");
  command->add_option("file", *file, "PNG file to write")->required();
  command->callback([&session, file] { cursorShot(session, *file); });
}

}  // namespace drive
