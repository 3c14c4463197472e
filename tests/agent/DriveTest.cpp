#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "agent/SharedDisplay.h"
#include "support/InputWitness.h"
#include "support/TempDir.h"

// The command line of ruvodrive: what it writes, and with which status it ends.

namespace {

class DriveTest : public SharedDisplay {
 protected:
  static std::string run(std::vector<std::string> arguments, const std::string& input = {},
                         const std::string& where = display()) {
    arguments.insert(arguments.begin(), RUVO_DRIVE);
    support::Program::Options options = programOptions(where);
    if (!input.empty()) options.input = input;
    return outcomeOf(arguments, options);
  }
};

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(DriveTest, NothingDoneIsNoSuccess) {
  const std::string where = " (display " + display() + ")\n";
  EXPECT_EQ(run({"click", "1", "1", "9"}), "1 |ruvodrive: button 9: agents press buttons 1 to 8\n");
  EXPECT_EQ(run({"--param", "Log=*:nowhere:30", "move", "1", "1"}),
            "1 |ruvodrive: No LogDest found: 'nowhere'" + where);
  EXPECT_EQ(run({"monitors", "select", "9", "shot", "x.png"}).substr(0, 41),
            "1 |ruvodrive: Invalid monitor selection: ");
  EXPECT_EQ(run({"shot", "x.gif"}),
            "1 |ruvodrive: x.gif: pictures are PNG, JPEG or WebP files (.png, .jpg, .webp)\n");
  // Nothing is started for these.
  for (const std::string parameter : {"NoSuch=1", "UpdatePeriod=x"}) {
    EXPECT_EQ(run({"--agent", RUVO_AGENT, "--param", parameter, "move", "1", "1"}).substr(0, 12),
              "2 |--param: ");
  }
  EXPECT_EQ(run({"--nonsense"}).substr(0, 2), "2 ");

  const auto blind = support::XServer::xvfb("64x64x24", {"-extension", "XTEST"});
  EXPECT_EQ(run({"--display", blind->display(), "key", "a"}),
            "1 |ruvodrive: XTest extension not present - unable to inject events or display while "
            "server is grabbed (display " +
                blind->display() + ")\n");
}

TEST_F(DriveTest, KeysAndButtons) {
  const auto own = support::XServer::xvfb("200x100x24");
  own->run({"setxkbmap", "-option", "", "-layout", "us"});
  support::InputWitness witness(own->display());
  // What becomes of a command, and what another client gets.
  const auto act = [&](const std::vector<std::string>& arguments) {
    std::string all = run(arguments, {}, own->display());
    for (const std::string& event : witness.take()) all += "; " + event;
    return all;
  };
  EXPECT_EQ(act({"key", "Control_L+Shift_L+t"}),
            "0 |; +Control_L 37; +Shift_L 50 C; +T 28 SC; -T 28 SC; -Shift_L 50 SC; "
            "-Control_L 37 C");
  EXPECT_EQ(act({"key", "nonsense"}), "1 |ruvodrive: 'nonsense' is no key symbol\n");
  EXPECT_EQ(act({"click", "9", "8", "3"}), "0 |; 9,8; +3; -3");
  // More than there are keys for.
  std::string many = "Gr\u00fc\u00dfe, 5 \u20ac";
  for (char c = '\x90'; c < '\xc0'; ++c) many += std::string("\xd0") + c;
  const auto typing = own->start({RUVO_DRIVE, "type", many});
  EXPECT_EQ(witness.waitForText(many.size()), many);
  EXPECT_EQ(typing->wait(), 0);
  witness.take();
  EXPECT_EQ(act({"--param", "_ReuseGrafts=0", "type", "\u2660"}),
            "1 |ruvodrive: the keyboard has no key to spare for 1 of the symbols, first '\u2660' "
            "(display " +
                own->display() + ")\n");
}

TEST_F(DriveTest, CommandsInARow) {
  const support::TempDir directory;
  const std::string file = directory / "part-%02d.png";
  EXPECT_EQ(run({"move", "5", "5", "--", "shot", "--region", "10x10+2+2", "--every", "0.1",
                 "--count", "2", file}),
            "0 |");
  for (const char* name : {"part-01.png", "part-02.png"}) {
    EXPECT_EQ(contentsOf(directory / name).substr(16, 8), std::string("\0\0\0\x0a\0\0\0\x0a", 8));
  }
  // The rest is skipped after a failure.
  EXPECT_EQ(run({"key", "nonsense", "--", "monitors"}).substr(0, 4), "1 |r");
  EXPECT_EQ(run({"type", "-", "--", "shot", "-"}, "text").substr(0, 6), "0 \x89PNG");
  EXPECT_EQ(run({"monitors", "--json"}).substr(0, 26), "0 {\"monitors\":[{\"name\":\"1\"");
  EXPECT_EQ(run({"record", "--for", "0.3", "--rate", "10", "-"}).substr(0, 42),
            "0 YUV4MPEG2 W641 H480 F10:1 Ip A1:1 C444\nF");
}

TEST_F(DriveTest, RecordedSessions) {
  const support::TempDir directory;
  const std::string file = directory / "a.session";
  const auto shows = [&](const std::string& what) {
    const std::string text = run({"play-session", "--show", file});
    EXPECT_EQ(text[0], '0') << text;
    return text.find(what) != std::string::npos;
  };
  // A key's symbol stands in the message, and in the agent's log at level 100.
  const std::string pressQ = R"("server":"keyEvent","length":5,"body":"0000007101")";
  const std::string pressX = R"("server":"keyEvent","length":5,"body":"0000007801")";
  EXPECT_EQ(run({"record-session", file, "key", "q"}), "0 |");
  EXPECT_TRUE(shows(pressQ));
  EXPECT_TRUE(shows("keysym 0x0071"));
  EXPECT_TRUE(shows(R"("message":"init","magic")"));
  const std::string played = run({"play-session", "--fast", file});
  EXPECT_EQ(played[0], '0') << played;
  EXPECT_NE(played.find("keysym 0x0071"), std::string::npos);

  EXPECT_EQ(run({"record-session", "--redact", file, "key", "q"}), "0 |");
  EXPECT_TRUE(shows(pressX));
  EXPECT_FALSE(shows("keysym 0x0071"));
  EXPECT_EQ(run({"record-session", "--redact", "--for", "0.3", file, "clip", "set", "--for", "0.1"},
                "a secret")[0],
            '0');
  EXPECT_TRUE(shows(R"("server":"clientCutText","length":12)"));
  EXPECT_EQ(contentsOf(file).find("secret"), std::string::npos);

  // Whole or not at all, and told.
  const std::string before = contentsOf(file);
  EXPECT_EQ(run({"--agent", "/nonexistent", "record-session", file, "key", "q"})[0], '1');
  EXPECT_EQ(contentsOf(file), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
  std::ofstream(file, std::ios::binary) << before.substr(0, before.size() - 3);
  EXPECT_EQ(run({"play-session", "--show", file})[0], '1');
  std::ofstream(file, std::ios::binary) << "something else";
  EXPECT_EQ(run({"play-session", file}), "1 |ruvodrive: " + file + ": not a recorded session\n");

  EXPECT_EQ(run({"record-session", "--pixels", "--for", "0.3", file}), "0 |");
  EXPECT_EQ(run({"play-session", "--show", "--save-pixels", directory.path(), file})[0], '0');
  EXPECT_EQ(contentsOf(directory / "00001+0+0.png").substr(1, 3), "PNG");
}

TEST_F(DriveTest, ShowsAndMeasuresTheDesktop) {
  // Without a terminal there is no picture.
  EXPECT_EQ(run({"live"})[0], '1');

  const std::string figures =
      run({"watch", "--json", "--quiet", "--no-log", "--draw", "--for", "3"});
  // Of any second: the first can be over before an update has come.
  const std::string draws = "\"drawToUpdateMs\":{\"p50\":";
  double most = 0;
  for (size_t at = 0; (at = figures.find(draws, at)) != std::string::npos;) {
    at += draws.size();
    most = std::max(most, std::atof(figures.c_str() + at));
  }
  EXPECT_GT(most, 0) << figures;

  const std::string findings = run({"--param", "UpdatePeriod=30", "doctor"});
  EXPECT_NE(findings.find("complete (Damage test: any 1 all 1"), std::string::npos) << findings;
  EXPECT_NE(findings.find("UpdatePeriod=30 (Preference), from the command line"),
            std::string::npos);
}

TEST_F(DriveTest, InterruptedVideosAreWhole) {
  if (std::system("command -v ffmpeg ffprobe >/dev/null") != 0) GTEST_SKIP() << "no ffmpeg";
  const support::TempDir directory;
  const std::string file = directory / "a.mp4";
  support::Program recorder({RUVO_DRIVE, "record", file}, programOptions(display()));
  // The encoder makes the file with its first pictures.
  EXPECT_TRUE(support::waitFor([&] { return std::filesystem::exists(file); }));
  recorder.signal(SIGINT);
  EXPECT_EQ(recorder.wait(support::Milliseconds(30000)), 0);
  const std::string probed =
      server->run({"ffprobe", "-v", "error", "-show_entries", "stream=width", file});
  EXPECT_NE(probed.find("width=642"), std::string::npos) << probed;
}

TEST_F(DriveTest, HelpFitsAScreenAndShowsExamples) {
  // 24 lines of 80 columns, one of them for what is typed next.
  const std::string help = run({"--help"});
  EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 23) << help;
  EXPECT_FALSE(std::regex_search(help, std::regex("[^\n]{81}"))) << help;
  for (const char* command : {"shot", "cursor", "record", "live", "watch", "record-session",
                              "play-session", "raw", "type", "key", "move", "click", "drag",
                              "wheel", "clip", "monitors", "resize", "params", "doctor"}) {
    const std::string text = run({command, "--help"});
    const size_t examples = text.find("Examples:\n  ruvodrive ");
    ASSERT_NE(examples, std::string::npos) << text;
    EXPECT_NE(text.find("\n  ruvodrive ", examples + 20), std::string::npos) << text;
  }
}

}  // namespace
