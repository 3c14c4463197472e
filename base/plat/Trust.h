#pragma once

#include <sys/types.h>

#include <string>

#include "plat/FileDescriptor.h"

namespace plat {

// Whoever can write what a process of root reads, or say where it writes, commands that process:
// root trusts only what no other user can write. All other processes trust everything.

// Throws Exception with the reason when what is open must not be trusted.
void requireTrusted(int fd);

// Opens a directory (relative to parent, unless the name is absolute) that may be trusted; links
// of other users are not followed. Throws SystemException "open", and Exception with the reason.
FileDescriptor openTrustedDirectory(int parent, const std::string& name);

// Opens a file for appending, made if need be with the mode; more flags may be given. For root it
// must be a regular file and no link, in a directory that may be trusted; or else root's very own
// in a sticky one, such as /tmp. Throws as openTrustedDirectory does. Never waits for a reader of a
// pipe.
FileDescriptor openTrustedLog(const std::string& path, mode_t mode, int flags = 0);

}  // namespace plat
