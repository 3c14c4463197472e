#include "agent/Agent.h"

#include <X11/XKBlib.h>
#include <X11/keysym.h>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "support/Composer.h"
#include "support/TempDir.h"

// Types every symbol of real layouts, and others, through the agent into a real terminal. With
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
  const char* name;
  std::string layout, variant;
  unsigned groups = 1;
};

const Layout kLayouts[] = {
    {"us", "us", ""}, {"de", "de", ""},           {"de(nodeadkeys)", "de", "nodeadkeys"},
    {"fr", "fr", ""}, {"us(intl)", "us", "intl"}, {"gb", "gb", ""},
    {"gr", "gr", ""}, {"ru", "ru", ""},           {"cz", "cz", ""},
    {"jp", "jp", ""}, {"us,ru", "us,ru", "", 2},
};

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
  void SetUp() override {
    server = support::XServer::xvfb("800x600x24");
    client = server->connect();
    support::Program::Options options;
    options.environment = {{"LC_ALL", "C.UTF-8"}, {"XMODIFIERS", {}}};
    terminal = server->start(
        {"xterm", "-u8", "-geometry", "80x24+0+0", "-e", "sh", "-c", "stty -echo; cat > " + file()},
        options);
    ASSERT_TRUE(support::waitFor([&] { return std::ifstream(file()).good() && focusTerminal(); }));
    agent = std::make_unique<Agent>(server->display());
    agent->sync();
  }
  std::string file() const { return directory.path() + "/typed"; }
  // The terminal is the only window.
  bool focusTerminal() {
    Window root, parent, *windows = nullptr;
    unsigned number = 0;
    XQueryTree(client.get(), DefaultRootWindow(client.get()), &root, &parent, &windows, &number);
    bool found = false;
    for (unsigned i = 0; i < number && !found; ++i) {
      XWindowAttributes attributes;
      found = XGetWindowAttributes(client.get(), windows[i], &attributes) &&
              attributes.map_state == IsViewable && attributes.width > 100;
      if (found) XSetInputFocus(client.get(), windows[i], RevertToPointerRoot, CurrentTime);
    }
    XFree(windows);
    XSync(client.get(), False);
    return found;
  }

  void load(const Layout& layout) {
    server->run({"setxkbmap", "-option", "", "-layout", layout.layout, "-variant", layout.variant});
  }
  void lockGroup(unsigned group) {
    XkbLockGroup(client.get(), XkbUseCoreKbd, group);
    XSync(client.get(), False);
    XSync(client.get(), False);
  }

  // The symbols of the layout's keys at levels 0 to 3.
  std::vector<std::set<uint32_t>> readMap(const Layout& layout) {
    std::vector<std::set<uint32_t>> groups(layout.groups);
    const XkbDescPtr map = XkbGetMap(client.get(), XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    for (unsigned key = map->min_key_code; key <= map->max_key_code; ++key) {
      for (unsigned group = 0; group < layout.groups; ++group) {
        // Keys with fewer groups use their last one here, as all but a few maps have it.
        const unsigned used =
            std::min(group + 1u, unsigned{static_cast<unsigned int>(XkbKeyNumGroups(map, key))});
        if (used == 0) continue;
        const unsigned index = used - 1;
        for (int level = 0; level < std::min<int>(4, XkbKeyGroupWidth(map, key, index)); ++level) {
          const KeySym keysym = XkbKeySymEntry(map, key, level, index);
          if (keysym != NoSymbol) groups[group].insert(static_cast<uint32_t>(keysym));
        }
      }
    }
    XkbFreeKeyboard(map, 0, True);
    return groups;
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
    const auto tap = [&](uint32_t keysym) {
      agent->connection->keyEvent(keysym, true);
      agent->connection->keyEvent(keysym, false);
    };
    for (const Item& item : items) {
      for (const uint32_t keysym : item.keysyms) tap(keysym);
      tap(XK_Return);
    }
    agent->sync();
    std::vector<std::string> lines;
    support::waitFor(
        [&] {
          agent->connection->process(1);
          lines.clear();
          std::ifstream in(file());
          in.seekg(typed_);
          std::string line;
          while (std::getline(in, line) && !in.eof()) lines.push_back(line);
          return lines.size() >= items.size();
        },
        support::Milliseconds(120000));
    for (const std::string& line : lines) typed_ += static_cast<std::streamoff>(line.size() + 1);
    lines.resize(items.size());
    return lines;
  }

  const support::Composer composer;
  support::TempDir directory;
  std::unique_ptr<support::XServer> server;
  support::XConnection client;
  std::unique_ptr<support::Program> terminal;
  std::unique_ptr<Agent> agent;

 private:
  std::streamoff typed_ = 0;
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
    SCOPED_TRACE(layout.name);
    load(layout);
    const std::vector<std::set<uint32_t>> map = readMap(layout);
    const std::vector<Item> items = itemsFor(map);
    std::map<int, std::pair<int, int>> counts;
    std::set<std::string> exceptions;
    for (unsigned group = 0; group < layout.groups; ++group) {
      lockGroup(group);
      const std::vector<std::string> lines = type(items);
      for (size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        std::pair<int, int>& count = counts[item.kind];
        count.second++;
        if (lines[i] == item.text) {
          count.first++;
          continue;
        }
        const std::string instead = composedInstead(item.keysyms[0], map[group]);
        if (!instead.empty() && lines[i] == instead) {
          exceptions.insert(item.text);
        } else {
          ADD_FAILURE() << kKindNames[item.kind] << " 0x" << std::hex << item.keysyms[0]
                        << " in group " << group << ": '" << lines[i] << "' instead of '"
                        << item.text << "'";
        }
      }
    }
    table << layout.name;
    for (const auto& [kind, count] : counts) {
      table << "\t" << kKindNames[kind] << "=" << count.first << "/" << count.second;
    }
    table << "\texceptions=";
    for (const std::string& text : exceptions) table << text;
    table << "\n";
  }
  if (const char* name = getenv("RUVO_KEYBOARD_TABLE")) std::ofstream(name) << table.str();
}

}  // namespace
