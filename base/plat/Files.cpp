#include "plat/Files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "plat/Exception.h"

namespace plat {

void requireRegularFile(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) throw SystemException("fstat", errno);
  if (S_ISDIR(status.st_mode)) throw SystemException("open", EISDIR);
  if (!S_ISREG(status.st_mode)) throw Exception("not a regular file");
}

std::string readUpTo(int fd, size_t limit) {
  std::string content;
  char piece[8192];
  while (content.size() < limit) {
    const ssize_t n = read(fd, piece, std::min(sizeof piece, limit - content.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw SystemException("read", errno);
    if (n == 0) break;
    content.append(piece, static_cast<size_t>(n));
  }
  return content;
}

std::string findProgram(std::string_view name) {
  const char* path = std::getenv("PATH");
  if (!path || name.empty()) return {};
  std::string_view rest = path;
  for (bool more = true; more;) {
    const size_t colon = rest.find(':');
    more = colon != std::string_view::npos;
    // An empty entry is the working directory.
    std::string candidate(colon == 0 || rest.empty() ? "." : rest.substr(0, colon));
    candidate.append("/").append(name);
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
    if (more) rest.remove_prefix(colon + 1);
  }
  return {};
}

}  // namespace plat
