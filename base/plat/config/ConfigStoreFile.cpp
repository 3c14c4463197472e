#include "plat/config/ConfigStoreFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/Files.h"
#include "plat/Text.h"
#include "plat/Trust.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogSrc.h"

namespace nbutil {

namespace {

plat::LogSrc vlog("FileConfig");

constexpr size_t kMaxFileSize = 1 << 20;
constexpr std::string_view kBlanks = " \t";
constexpr const char* kFileNames[] = {"common", "common.custom"};

std::string errorText(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

void report(const std::string& path, const std::string& reason) {
  vlog.error("Error reading %s: %s", path.c_str(), reason.c_str());
}

// Faults are reported; what does not exist is none.
plat::FileDescriptor openDirectory(int parent, const std::string& name, const std::string& path) {
  try {
    return plat::openTrustedDirectory(parent, name);
  } catch (const plat::SystemException& e) {
    if (e.code() != ENOENT) report(path, errorText(e.code()));
  } catch (const plat::Exception& e) {
    report(path, e.text());
  }
  return {};
}

// Reads a regular file of limited size. Throws Exception with the reason.
std::string readTrusted(int fd) {
  plat::requireRegularFile(fd);
  plat::requireTrusted(fd);
  std::string content = plat::readUpTo(fd, kMaxFileSize + 1);
  if (content.size() > kMaxFileSize) throw plat::SystemException("read", EFBIG);
  return content;
}

// False for a line that says nothing acceptable.
bool applyLine(std::string_view line, int priority, plat::Configuration& configuration) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos || line.find('\0') != std::string_view::npos) return false;
  const std::string value(plat::trimmed(line.substr(equals + 1), kBlanks));
  try {
    return configuration.setParam(plat::trimmed(line.substr(0, equals), kBlanks), value.c_str(),
                                  priority);
  } catch (const plat::BadUtf8&) {
    return false;
  }
}

}  // namespace

ConfigStoreFile::ConfigStoreFile(Directories directories) : directories_(std::move(directories)) {}

ConfigStoreFile::Directories ConfigStoreFile::standardDirectories() {
  const char* home = getenv("HOME");
  return {"", RUVO_CONFIG_DIR, home && *home ? std::string(home) + "/.ruvo" : ""};
}

void ConfigStoreFile::apply(std::string_view content, const std::string& path, int priority,
                            plat::Configuration& configuration) {
  for (int number = 1; !content.empty(); ++number) {
    const size_t end = std::min(content.find('\n'), content.size());
    std::string_view line = content.substr(0, end);
    content.remove_prefix(std::min(end + 1, content.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::string_view text = plat::trimmed(line, kBlanks);
    if (text.empty() || text[0] == '#') continue;
    if (!applyLine(text, priority, configuration)) {
      vlog.error("Bad line %d in %s", number, path.c_str());
    }
  }
}

void ConfigStoreFile::loadDirectory(const std::string& base, const char* subdirectory, int priority,
                                    plat::Configuration& configuration) const {
  if (base.empty()) return;
  const plat::FileDescriptor baseFd = openDirectory(AT_FDCWD, base, base);
  if (!baseFd) return;
  const std::string directory = base + "/" + subdirectory;
  const plat::FileDescriptor directoryFd = openDirectory(baseFd.get(), subdirectory, directory);
  if (!directoryFd) return;

  for (const char* name : kFileNames) {
    const std::string path = directory + "/" + name;
    // Not blocking, so that a FIFO cannot hold up the start.
    const plat::FileDescriptor file(
        openat(directoryFd.get(), name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
      if (errno != ENOENT) report(path, errorText(errno));
      continue;
    }
    try {
      const std::string content = readTrusted(file.get());
      vlog.info("Reading %s config from %s", name, directory.c_str());
      apply(content, path, priority, configuration);
    } catch (const plat::SystemException& e) {
      report(path, errorText(e.code()));
    } catch (const plat::Exception& e) {
      report(path, e.text());
    }
  }
}

void ConfigStoreFile::load(plat::Configuration& configuration) const {
  using plat::kPriorityPolicy;
  using plat::kPriorityPreference;
  loadDirectory(directories_.program, "config.d", kPriorityPreference, configuration);
  loadDirectory(directories_.program, "policy.d", kPriorityPolicy, configuration);
  loadDirectory(directories_.firstScope, "config.d", kPriorityPreference, configuration);
  loadDirectory(directories_.secondScope, "config.d", kPriorityPreference, configuration);
  loadDirectory(directories_.firstScope, "policy.d", kPriorityPolicy, configuration);
}

}  // namespace nbutil
