#include "os/ProcessInfo.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/Files.h"

namespace os {

namespace {

constexpr size_t kMaxStatus = 64 * 1024;

// The beginning of a file, empty when it cannot be read.
std::string readFile(const std::string& path, size_t limit) {
  const plat::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  try {
    return file ? plat::readUpTo(file.get(), limit) : std::string();
  } catch (const plat::SystemException&) {
    return {};
  }
}

// What follows the prefix in the first of the items, which end with the separator, that begins with
// it.
std::optional<std::string_view> findItem(std::string_view text, char separator,
                                         std::string_view prefix) {
  while (!text.empty()) {
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view item = text.substr(0, end);
    if (item.starts_with(prefix)) return item.substr(prefix.size());
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return std::nullopt;
}

}  // namespace

ProcessInfo::ProcessInfo(pid_t pid, const std::string& procDirectory)
    : directory_(procDirectory + "/" + std::to_string(pid)) {}

std::optional<uid_t> ProcessInfo::userId() const {
  const std::string status = readFile(directory_ + "/status", kMaxStatus);
  std::optional<std::string_view> ids = findItem(status, '\n', "Uid:");
  if (!ids) return std::nullopt;
  // Real, effective, saved and file system's id.
  ids->remove_prefix(std::min(ids->find_first_not_of(" \t"), ids->size()));
  uid_t id = 0;
  const auto result = std::from_chars(ids->data(), ids->data() + ids->size(), id);
  if (result.ec != std::errc()) return std::nullopt;
  return id;
}

std::string ProcessInfo::environment(std::string_view name) const {
  const std::string all = readFile(directory_ + "/environ", kMaxEnvironment);
  return std::string(findItem(all, '\0', std::string(name) + "=").value_or(""));
}

}  // namespace os
