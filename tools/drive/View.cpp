#include "View.h"

#include <climits>
#include <memory>

#include "Commands.h"

namespace drive {

void addViewCommands(CLI::App& app, SessionOptions& session) {
  const auto forOption = [](CLI::App& command, double& seconds) {
    command.add_option("--for", seconds, "Seconds (default: until interrupted)")
        ->check(checkSeconds);
  };

  auto shotOptions = std::make_shared<ShotOptions>();
  CLI::App* command = app.add_subcommand("shot", "Writes a picture of the desktop");
  command
      ->add_option("file", shotOptions->file,
                   "File to write: .png, .jpg or .webp; - is standard output")
      ->required();
  command->add_flag("--cursor", shotOptions->cursor, "Draw the cursor into it");
  CLI::Option* region =
      command->add_option("--region", shotOptions->region, "Only this part")
          ->type_name("WxH+X+Y")
          ->check([](const std::string& text) {
            rfb::Rect rect;
            return parseRegion(text, rect) ? "" : "'" + text + "' is not WIDTHxHEIGHT+X+Y";
          });
  command
      ->add_option("--window", shotOptions->window,
                   "Only the part of the screen where this window is")
      ->type_name("ID|NAME")
      ->excludes(region);
  CLI::Option* every = command
                           ->add_option("--every", shotOptions->every,
                                        "Seconds between pictures; FILE has a %d for their number")
                           ->check(checkSeconds);
  command->add_option("--count", shotOptions->count, "How many pictures")
      ->check(CLI::Range(1, INT_MAX))
      ->needs(every);
  setExamples(*command, "shot --cursor desktop.png",
              "shot --region 640x480+0+0 --every 2 --count 5 part-%03d.png");
  command->callback([&session, shotOptions] { shot(session, *shotOptions); });

  auto file = std::make_shared<std::string>();
  command = app.add_subcommand("cursor", "Writes a picture of the cursor");
  command->add_option("file", *file, "File to write: .png or .webp; - is standard output")
      ->required();
  setExamples(*command, "cursor pointer.png", "move 100 100 -- cursor pointer.png");
  command->callback([&session, file] { cursorShot(session, *file); });

  auto recordOptions = std::make_shared<RecordOptions>();
  command = app.add_subcommand("record", "Records the desktop as video");
  command
      ->add_option("file", recordOptions->file,
                   "File to write: .y4m (- is standard output), or .webm, .mp4, .mkv by ffmpeg")
      ->required();
  command->add_option("--rate", recordOptions->rate, "Pictures a second")
      ->check(CLI::Range(1, 60))
      ->capture_default_str();
  forOption(*command, recordOptions->seconds);
  setExamples(*command, "record --for 10 desktop.y4m", "record --rate 25 desktop.webm");
  command->callback([&session, recordOptions] { record(session, *recordOptions); });

  auto liveSeconds = std::make_shared<double>(0);
  command = app.add_subcommand("live", "Shows the desktop in the terminal");
  forOption(*command, *liveSeconds);
  setExamples(*command, "live", "monitors select 2 live --for 60");
  command->callback([&session, liveSeconds] { live(session, *liveSeconds); });

  auto watchOptions = std::make_shared<WatchOptions>();
  command = app.add_subcommand("watch", "Shows what the agent reports, as it comes");
  forOption(*command, watchOptions->seconds);
  command->add_flag("--no-log", watchOptions->noLog, "Leave the agent's log lines out");
  command->add_option("--log-level", watchOptions->logLevel, "Log lines up to this level only")
      ->check(CLI::Range(0, INT_MAX));
  command->add_flag("--quiet", watchOptions->quiet, "Only figures and log lines");
  command->add_flag("--json", watchOptions->json, "As JSON, one object a line");
  command->add_flag(
      "--draw", watchOptions->draw,
      "Draw into a small window of its own, to tell the time from that to the update");
  setExamples(*command, "watch --no-log --draw", "watch --quiet --log-level 0 --json --for 60");
  command->callback([&session, watchOptions] { watch(session, *watchOptions); });

  auto rawOptions = std::make_shared<RawOptions>();
  command = app.add_subcommand("raw", "Prints every message, one JSON object a line");
  forOption(*command, rawOptions->seconds);
  command->add_flag("--no-start", rawOptions->noStart, "Don't start the desktop");
  setExamples(*command, "raw --for 5", "raw --no-start --for 1");
  command->callback([&session, rawOptions] { raw(session, *rawOptions); });
}

}  // namespace drive
