#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

struct LogLine;

// A request that an agent did not carry out.
struct Refusal {
  enum class Kind {
    kDisplaySize,    // setDisplayMode
    kMonitors,       // setMonitor, or the parameter `Monitor`
    kParameter,      // setParams
    kKeySymbol,      // keyEvent: the keyboard has no key to spare
    kClipboardText,  // clientCutText
    kInput,          // keyEvent, pointerEvent: the X server has no XTEST
    kLog,            // the parameter `Log` or the log file
  };

  Kind kind = Kind::kParameter;
  std::string text;     // the agent's words, with its reason
  uint32_t keysym = 0;  // of kKeySymbol
};

// Finds refusals in what agents log: they answer none of their requests otherwise. One for each
// agent.
class RefusalFinder {
 public:
  // What this line refuses, if anything.
  std::optional<Refusal> find(const LogLine& line);
  // The same for a line that the agent writes to its standard error.
  static std::optional<Refusal> findInErrors(std::string_view line);

 private:
  std::string reason_;  // what the display's resizer said before it says that it can't
};

}  // namespace host
