#include "os/ProcessInfo.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <vector>

#include "plat/FileDescriptor.h"

namespace os {

namespace {

constexpr size_t kMaxStatus = 64 * 1024;

// As much of the file as can be read, up to a limit.
std::string readFile(const std::string& path, size_t limit) {
  std::string text;
  const plat::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return text;
  std::vector<char> piece(16 * 1024);
  while (text.size() < limit) {
    const ssize_t n = read(file.get(), piece.data(), std::min(piece.size(), limit - text.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(piece.data(), static_cast<size_t>(n));
  }
  return text;
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
