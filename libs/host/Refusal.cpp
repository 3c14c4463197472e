#include "host/Refusal.h"

#include <cstdlib>

#include "host/LogLine.h"

namespace host {

namespace {

using Kind = Refusal::Kind;

constexpr std::string_view kResizer = "Randr";

struct Beginning {
  std::string_view text;
  Kind kind;
};

constexpr Beginning kLogLines[] = {
    {"Unable to set display mode to ", Kind::kDisplaySize},
    {"Ignoring display mode ", Kind::kDisplaySize},
    {"XRandr extension not present", Kind::kDisplaySize},
    {"Invalid monitor selection", Kind::kMonitors},
    {"Bad Monitor param", Kind::kMonitors},
    {"Unknown parameter '", Kind::kParameter},
    {"Bad priority ", Kind::kParameter},
    {"Bad default for parameter '", Kind::kParameter},
    {"Bool parameter ", Kind::kParameter},
    {"Keyboard mapping full", Kind::kKeySymbol},
    {"Unable to offer ", Kind::kClipboardText},
    {"XTest extension not present", Kind::kInput},
};

constexpr Beginning kErrorLines[] = {
    {"Failed to parse log param element", Kind::kLog},
    {"No LogDest found", Kind::kLog},
    {"Error opening ", Kind::kLog},
};

template <size_t N>
std::optional<Refusal> findIn(const Beginning (&table)[N], std::string_view line) {
  for (const auto& [text, kind] : table) {
    if (line.starts_with(text)) return Refusal{kind, std::string(line)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<Refusal> RefusalFinder::find(const LogLine& line) {
  std::optional<Refusal> refusal = findIn(kLogLines, line.text);
  if (refusal && refusal->kind == Kind::kDisplaySize && line.level == 0 && !reason_.empty()) {
    refusal->text += ": " + reason_;
  }
  if (refusal && refusal->kind == Kind::kKeySymbol) {
    const size_t number = line.text.rfind("0x");
    if (number != std::string::npos) {
      refusal->keysym =
          static_cast<uint32_t>(std::strtoul(line.text.c_str() + number, nullptr, 16));
    }
  }
  if (line.source == kResizer) reason_ = line.text;
  return refusal;
}

std::optional<Refusal> RefusalFinder::findInErrors(std::string_view line) {
  return findIn(kErrorLines, line);
}

}  // namespace host
