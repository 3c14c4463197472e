#include "rfb/DeadKeyUtil.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/Files.h"
#include "plat/config/Json.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogSrc.h"

namespace rfb {

namespace {

plat::LogSrc vlog("DeadKeyUtil");
plat::StringParameter deadKeyFile("DeadKeyFile", "File containing dead key information", "", true);

constexpr size_t kMaxFileSize = 1 << 20;

std::string readFile(const std::string& path) {
  // Without O_NONBLOCK the opening of a pipe would wait for a writer.
  const plat::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) throw plat::SystemException("open", errno);
  plat::requireRegularFile(file.get());
  std::string content = plat::readUpTo(file.get(), kMaxFileSize + 1);
  if (content.size() > kMaxFileSize) throw plat::Exception("more than %zu bytes", kMaxFileSize);
  return content;
}

uint32_t keysymOf(const plat::Json& value) {
  if (!value.isString()) throw plat::Exception("a keysym is not a string");
  const std::string& text = value.string();
  const size_t start = text.starts_with("0x") || text.starts_with("0X") ? 2 : 0;
  const char* const end = text.data() + text.size();
  uint32_t keysym = 0;
  const auto parsed = std::from_chars(text.data() + start, end, keysym, 16);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw plat::Exception("bad keysym '%s'", text.c_str());
  }
  return keysym;
}

// An array of arrays of `width` keysyms each.
std::vector<std::vector<uint32_t>> rowsOf(const plat::Json& value, size_t width,
                                          const std::string& name) {
  if (!value.isArray()) throw plat::Exception("\"%s\" is not an array", name.c_str());
  std::vector<std::vector<uint32_t>> rows;
  for (const plat::Json& row : value.array()) {
    if (!row.isArray() || row.array().size() != width) {
      throw plat::Exception("entry %zu of \"%s\" is not an array of %zu", rows.size() + 1,
                            name.c_str(), width);
    }
    std::vector<uint32_t>& keysyms = rows.emplace_back();
    for (const plat::Json& keysym : row.array()) keysyms.push_back(keysymOf(keysym));
  }
  return rows;
}

}  // namespace

DeadKeyUtil::DeadKeyUtil(const std::string& layout)
    : spacing_(kSpacingDeads.begin(), kSpacingDeads.end()) {
  for (const auto& list :
       {kLatin1Compositions, kLatin2Compositions, kLatin3Compositions, kLatin4Compositions,
        kWelshCompositions, kLatin9Compositions, kGreekCompositions}) {
    for (const Composition& c : list) compositions_[c.composed] = {c.dead, c.base};
  }

  const plat::String& path = deadKeyFile.value();
  if (path.empty()) return;
  vlog.info("Reading dead key info from %s", path.c_str());
  try {
    load(path.str(), layout);
  } catch (const plat::Exception& e) {
    vlog.error("Error reading dead key file: %s", e.text());
  }
}

void DeadKeyUtil::load(const std::string& path, const std::string& layout) {
  const plat::Json document = plat::Json::parse(readFile(path));
  if (!document.isObject()) throw plat::Exception("the document is not an object");

  std::string deadKeysName = "deadKeys";
  const plat::Json* deadKeys = nullptr;
  if (!layout.empty()) deadKeys = document.find("deadKeys-" + layout);
  if (deadKeys) {
    deadKeysName += "-" + layout;
  } else {
    deadKeys = document.find(deadKeysName);
  }
  const plat::Json* comps = document.find("comps");

  // A fault anywhere leaves the tables as they are.
  std::vector<std::vector<uint32_t>> spacingRows, compositionRows;
  if (deadKeys) spacingRows = rowsOf(*deadKeys, 2, deadKeysName);
  if (comps) compositionRows = rowsOf(*comps, 3, "comps");

  if (deadKeys) {
    vlog.debug("Got %d dead keys", static_cast<int>(spacingRows.size()));
    spacing_.clear();
    for (const auto& row : spacingRows) {
      vlog.debug("spacing 0x%x dead 0x%x", row[0], row[1]);
      spacing_.push_back({row[0], row[1]});
    }
  }
  if (comps) {
    vlog.debug("Got %d comps", static_cast<int>(compositionRows.size()));
    for (const auto& row : compositionRows) {
      vlog.debug("comb 0x%x dead 0x%x base 0x%x", row[0], row[1], row[2]);
      compositions_[row[0]] = {row[1], row[2]};
    }
  }
}

uint32_t DeadKeyUtil::deadKeysym(uint32_t spacing) const {
  const auto found = std::find_if(spacing_.begin(), spacing_.end(),
                                  [spacing](const SpacingDead& s) { return s.spacing == spacing; });
  return found == spacing_.end() ? 0 : found->dead;
}

const DeadKeyUtil::Spelling* DeadKeyUtil::spelling(uint32_t composed) const {
  const auto found = compositions_.find(composed);
  return found == compositions_.end() ? nullptr : &found->second;
}

}  // namespace rfb
