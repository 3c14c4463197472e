#include "plat/shm/LockDir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("LockFile");

constexpr const char* kBase = "/tmp";

std::string& base() {
  static std::string base = kBase;
  return base;
}

std::set<std::string>& used() {
  static std::set<std::string> used;
  return used;
}

// Each fault is told once, however often it is met.
std::set<std::string>& told() {
  static std::set<std::string> told;
  return told;
}

void tell(const std::string& line) {
  if (told().insert(line).second) vlog.error("%s", line.c_str());
}

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

struct Place {
  std::string parent;
  std::string name;  // of our directory in it
};

std::vector<Place> places() {
  std::vector<Place> places{{base(), format(".ruvo-%u", unsigned{geteuid()})}};
  if (geteuid() == 0) {
    places.push_back({"/run", "ruvo"});
  } else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime == '/') {
    places.push_back({runtime, "ruvo"});
  }
  return places;
}

// Opens a directory below another (or at an absolute path), made if need be when asked to. Relative
// to its parent's descriptor, so that nothing can be put in the place of what was checked.
FileDescriptor openOwn(int parent, const std::string& name, const std::string& path, bool make) {
  if (make && mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) {
    throw SystemException("mkdir " + path, errno);
  }
  FileDescriptor fd(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) throw SystemException("open " + path, errno);
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) throw SystemException("fstat " + path, errno);
  if (status.st_uid != geteuid()) throw SystemException("open " + path, EPERM);
  if ((status.st_mode & 07777) != 0700 && fchmod(fd.get(), 0700) != 0) {
    throw SystemException("chmod " + path, errno);
  }
  return fd;
}

// The path of a kind's directory. Throws SystemException.
std::string openPlace(const Place& place, const char* kind, bool make) {
  std::string path = place.parent + "/" + place.name;
  FileDescriptor fd = openOwn(AT_FDCWD, path, path, make);
  for (const char* name : {"shm", kind}) {
    path.append("/").append(name);
    fd = openOwn(fd.get(), name, path, make);
  }
  return path;
}

}  // namespace

std::unique_ptr<LockFile> LockDir::lock(const char* kind, const std::string& name) {
  for (const Place& place : places()) {
    std::string path;
    std::unique_ptr<LockFile> file;
    try {
      path = openPlace(place, kind, true) + "/" + name;
      file = LockFile::create(path);
    } catch (const SystemException& e) {
      tell(
          format("No lock files in %s/%s: %s", place.parent.c_str(), place.name.c_str(), e.text()));
      continue;
    }
    if (!file) throw SystemException("lock " + path, EWOULDBLOCK);
    return file;
  }
  tell("Shared memory goes without lock files");
  return nullptr;
}

void LockDir::clean(
    const char* kind, const std::function<bool(const std::string& name)>& wanted,
    const std::function<void(const LockFile& lock, const std::string& name)>& remove) {
  for (const Place& place : places()) {
    try {
      const std::string path = openPlace(place, kind, false);
      const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path.c_str()));
      // Without memory the standard library's iterator ends the program.
      while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (!wanted(name)) continue;
        if (const auto lock = LockFile::openStale(path + "/" + name)) remove(*lock, name);
      }
    } catch (const SystemException&) {
    }
  }
}

bool LockDir::firstUse(const char* kind) {
  return used().insert(kind).second;
}

void LockDir::setBase(const std::string& directory) {
  base() = directory.empty() ? kBase : directory;
  used().clear();
  told().clear();
}

}  // namespace plat
