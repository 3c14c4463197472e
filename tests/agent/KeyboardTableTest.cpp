#include "agent/Agent.h"

#include <X11/XKBlib.h>
#include <X11/keysym.h>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "support/Composer.h"
#include "support/InputWitness.h"

// Types every symbol of real layouts, and others, through the agent into another client. With
// RUVO_KEYBOARD_TABLE set the counts are written to that file, for scripts/gen-keyboards.

namespace {

// Something to type, and what has to come out.
struct Item {
  enum Kind { kSymbol, kDead, kLatin1, kUnicode };
  Kind kind;
  std::vector<uint32_t> keysyms;
  std::string text;
};
constexpr const char* kKindNames[] = {"symbols", "dead keys", "Latin-1", "Unicode"};

struct Layout {
  std::string layout, variant = {};
  unsigned groups = 1;
};
const Layout kLayouts[] = {
    {"us"}, {"de"}, {"de", "nodeadkeys"}, {"fr"}, {"us", "intl"}, {"gb"}, {"gr"}, {"ru"},
    {"cz"}, {"jp"}, {"us,ru", "", 2}};

// clang-format off
constexpr char32_t kUnicode[] =
    U"€„“”–—…•‰™₽₹₿∞≠≤√∑πΩжЯїłŐșğẞŵ←↑→↓─█✓☃♥漢あア한אعกअ"
    U"𝄞"
    U"𝔸"
    U"😀"
    U"🎉";
// clang-format on

class KeyboardTableTest : public testing::Test {
 protected:
  // The symbols of the loaded layout's keys at levels 0 to 3.
  std::set<uint32_t> readMap(unsigned group) {
    const support::XConnection fresh = server->connect();
    std::set<uint32_t> keysyms;
    for (int i = 8 * 4; i < 256 * 4; ++i) {
      const auto keycode = static_cast<KeyCode>(i / 4);
      KeySym keysym = XkbKeycodeToKeysym(fresh.get(), keycode, static_cast<int>(group), i % 4);
      // Most keys with one group have the same symbols in all.
      if (keysym == NoSymbol) keysym = XkbKeycodeToKeysym(fresh.get(), keycode, 0, i % 4);
      if (keysym != NoSymbol) keysyms.insert(static_cast<uint32_t>(keysym));
    }
    return keysyms;
  }

  std::vector<Item> itemsFor(const std::vector<std::set<uint32_t>>& map) {
    std::vector<Item> items;
    std::set<uint32_t> known;
    for (const std::set<uint32_t>& group : map) {
      for (const uint32_t keysym : group) {
        if (!known.insert(keysym).second) continue;
        if (keysym >= XK_dead_grave && keysym <= XK_dead_longsolidusoverlay) {
          // Before the first symbol that makes something of it.
          for (const uint32_t base : {0x20u, uint32_t{'a'}, uint32_t{'o'}, uint32_t{'d'}}) {
            const std::string text = composer.compose(keysym, base);
            if (text.empty()) continue;
            items.push_back({Item::kDead, {keysym, base}, text});
            break;
          }
        } else if (!support::textOf(keysym).empty()) {
          items.push_back({Item::kSymbol, {keysym}, support::textOf(keysym)});
        }
      }
    }
    for (uint32_t c = 0x20; c <= 0xff; ++c) {
      if (!support::textOf(c).empty()) items.push_back({Item::kLatin1, {c}, support::textOf(c)});
    }
    for (const char32_t c : kUnicode) {
      if (c == 0) continue;
      // Xlib has no text for the older keysym of this one.
      const uint32_t keysym = c == U'─' ? 0x1000000u + c : xkb_utf32_to_keysym(c);
      items.push_back({Item::kUnicode, {keysym}, support::textOf(0x1000000u + c)});
    }
    return items;
  }

  // Types the items, one a line, and returns the lines that have come out.
  std::vector<std::string> type(const std::vector<Item>& items) {
    for (const Item& item : items) {
      std::vector<uint32_t> keysyms = item.keysyms;
      keysyms.push_back(XK_Return);
      for (const uint32_t keysym : keysyms) {
        agent.connection->keyEvent(keysym, true);
        agent.connection->keyEvent(keysym, false);
      }
    }
    std::string typed;
    support::waitFor(
        [&] {
          agent.connection->process(1);
          witness->take();
          typed += witness->text();
          return std::count(typed.begin(), typed.end(), '\r') == std::ssize(items);
        },
        support::Milliseconds(120000));
    std::vector<std::string> lines;
    std::istringstream in(typed);
    for (std::string line; std::getline(in, line, '\r');) lines.push_back(line);
    lines.resize(items.size());
    return lines;
  }

  const support::Composer composer;
  const std::unique_ptr<support::XServer> server = support::XServer::xvfb("64x64x24");
  const support::XConnection client = server->connect();
  std::optional<support::InputWitness> witness{server->display()};
  Agent agent{server->display()};
};

// The spacing accents for which there is a dead key on the layout and nothing else: they are
// spelled as that key and a space, of which applications make ASCII's apostrophe and quotation
// mark.
std::string composedInstead(uint32_t keysym, const std::set<uint32_t>& map) {
  if (map.count(keysym)) return "";
  if (keysym == XK_acute && map.count(XK_dead_acute)) return "'";
  if (keysym == XK_diaeresis && map.count(XK_dead_diaeresis)) return "\"";
  return "";
}

TEST_F(KeyboardTableTest, EverySymbolOfEveryLayout) {
  std::ostringstream table;
  for (const Layout& layout : kLayouts) {
    const std::string name =
        layout.variant.empty() ? layout.layout : layout.layout + "(" + layout.variant + ")";
    SCOPED_TRACE(name);
    server->run({"setxkbmap", "-option", "", "-layout", layout.layout, "-variant", layout.variant});
    std::vector<std::set<uint32_t>> map;
    for (unsigned group = 0; group < layout.groups; ++group) map.push_back(readMap(group));
    const std::vector<Item> items = itemsFor(map);
    std::map<int, std::pair<int, int>> counts;
    std::set<std::string> exceptions;
    for (unsigned group = 0; group < layout.groups; ++group) {
      XkbLockGroup(client.get(), XkbUseCoreKbd, group);
      XSync(client.get(), False);
      XSync(client.get(), False);
      std::vector<std::string> lines = type(items);
      // On a crowded machine a client at times has a former map: what was lost is typed once more,
      // for somebody who begins with the present one.
      std::vector<Item> lost;
      for (size_t i = 0; i < items.size(); ++i) {
        if (lines[i] != items[i].text) lost.push_back(items[i]);
      }
      if (!lost.empty()) {
        witness.emplace(server->display());
        std::vector<std::string> again = type(lost);
        for (size_t i = items.size(); i-- > 0;) {
          if (lines[i] == items[i].text) continue;
          lines[i] = again.back();
          again.pop_back();
        }
      }
      for (size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        auto& [right, all] = counts[item.kind];
        ++all;
        right += lines[i] == item.text;
        const std::string instead = composedInstead(item.keysyms[0], map[group]);
        if (!instead.empty() && lines[i] == instead) {
          exceptions.insert(item.text);
        } else if (lines[i] != item.text) {
          ADD_FAILURE() << kKindNames[item.kind] << " 0x" << std::hex << item.keysyms[0]
                        << " in group " << group << ": '" << lines[i] << "' instead of '"
                        << item.text << "'";
        }
      }
    }
    table << name;
    for (const auto& [kind, count] : counts) {
      table << "\t" << kKindNames[kind] << "=" << count.first << "/" << count.second;
    }
    table << "\texceptions=";
    for (const std::string& text : exceptions) table << text;
    table << "\n";
  }
  if (const char* file = getenv("RUVO_KEYBOARD_TABLE")) std::ofstream(file) << table.str();
}

}  // namespace
