/* Makes one library call of a program fail: FAULT=KIND:N fails the N-th call of a kind, and the
 * file FAULT_MARK is made when that has happened. With OLD_XLIB set, Xlib seems to be one that
 * cannot go on when a connection is lost. Preloaded. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

static const char* wanted; /* "" once it has failed, or there is nothing to do */
static size_t wanted_length;
static atomic_long left;

__attribute__((constructor)) static void begin(void) {
  const char* fault = getenv("FAULT");
  const char* colon = fault ? strchr(fault, ':') : NULL;
  if (!colon) return;
  left = atol(colon + 1);
  wanted_length = (size_t)(colon - fault);
  wanted = fault;
}

static int running; /* main has begun: before, nobody could catch anything */
static int (*real_main)(int, char**, char**);

static int run_main(int argc, char** argv, char** environment) {
  running = 1;
  return real_main(argc, argv, environment);
}

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(void),
                      void (*fini)(void), void (*linker_fini)(void), void* stack_end) {
  real_main = main;
  __typeof__(&__libc_start_main) start = dlsym(RTLD_NEXT, "__libc_start_main");
  return start(run_main, argc, argv, init, fini, linker_fini, stack_end);
}

void* dlsym(void* library, const char* name) {
  static void* (*real_dlsym)(void*, const char*);
  if (!real_dlsym) {
    for (const char* version = "GLIBC_2.34\0GLIBC_2.2.5\0GLIBC_2.0\0"; *version && !real_dlsym;
         version += strlen(version) + 1)
      real_dlsym = dlvsym(RTLD_NEXT, "dlsym", version);
  }
  if (getenv("OLD_XLIB") && strcmp(name, "XSetIOErrorExitHandler") == 0) return NULL;
  return real_dlsym(library, name);
}

/* Whether this call of the kind is the one that fails. */
static int fails(const char* kind) {
  if (!running || !wanted || strlen(kind) != wanted_length ||
      strncmp(kind, wanted, wanted_length) != 0)
    return 0;
  if (atomic_fetch_sub(&left, 1) != 1) return 0;
  const char* mark = getenv("FAULT_MARK");
  if (mark) syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, mark, O_CREAT | O_WRONLY, 0600));
  return 1;
}

#define REAL(name) ((__typeof__(&name))real(#name))
static void* real(const char* name) {
  return dlsym(RTLD_NEXT, name);
}

#define FAIL(kind, number, result) \
  if (fails(kind)) return errno = (number), (result)

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);

/* Xlib and its companions do not survive that themselves: their own calls are left out. */
static int fails_memory(const void* caller) {
  if (!wanted || strncmp(wanted, "memory:", 7) != 0) return 0;
  Dl_info info;
  if (dladdr(caller, &info) && info.dli_fname &&
      (strstr(info.dli_fname, "/libX") || strstr(info.dli_fname, "/libxcb"))) {
    return 0;
  }
  return fails("memory");
}
#define FAIL_MEMORY \
  if (fails_memory(__builtin_return_address(0))) return errno = ENOMEM, NULL

void* malloc(size_t size) {
  FAIL_MEMORY;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  FAIL_MEMORY;
  return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
  FAIL_MEMORY;
  return __libc_realloc(memory, size);
}

#define READING(length)                \
  FAIL("read-interrupted", EINTR, -1); \
  FAIL("read-again", EAGAIN, -1);      \
  FAIL("read-reset", ECONNRESET, -1);  \
  if (length > 1 && fails("read-short")) length = 1
#define WRITING(length)                 \
  FAIL("write-interrupted", EINTR, -1); \
  FAIL("write-again", EAGAIN, -1);      \
  FAIL("write-broken", EPIPE, -1);      \
  FAIL("write-full", ENOSPC, -1);       \
  if (length > 1 && fails("write-short")) length = 1

ssize_t read(int fd, void* to, size_t length) {
  READING(length);
  return REAL(read)(fd, to, length);
}
ssize_t __read_chk(int fd, void* to, size_t length, size_t room) {
  (void)room;
  return read(fd, to, length);
}
ssize_t recv(int fd, void* to, size_t length, int flags) {
  READING(length);
  return REAL(recv)(fd, to, length, flags);
}
ssize_t __recv_chk(int fd, void* to, size_t length, size_t room, int flags) {
  (void)room;
  return recv(fd, to, length, flags);
}
ssize_t recvmsg(int fd, struct msghdr* message, int flags) {
  size_t length = 0;
  READING(length);
  return REAL(recvmsg)(fd, message, flags);
}
ssize_t write(int fd, const void* from, size_t length) {
  /* A single byte wakes the program's own loop, through a pipe that cannot break. */
  if (length == 1) return REAL(write)(fd, from, length);
  WRITING(length);
  return REAL(write)(fd, from, length);
}
ssize_t send(int fd, const void* from, size_t length, int flags) {
  WRITING(length);
  return REAL(send)(fd, from, length, flags);
}
ssize_t sendmsg(int fd, const struct msghdr* message, int flags) {
  size_t length = 0;
  WRITING(length);
  return REAL(sendmsg)(fd, message, flags);
}
ssize_t writev(int fd, const struct iovec* pieces, int count) {
  size_t length = 0;
  WRITING(length);
  return REAL(writev)(fd, pieces, count);
}

int __poll_chk(struct pollfd* entries, nfds_t count, int timeout, size_t room) {
  (void)room;
  return poll(entries, count, timeout);
}
int shmctl(int id, int command, struct shmid_ds* status) {
  if (command != IPC_RMID) FAIL("shmctl", EIDRM, -1);
  return REAL(shmctl)(id, command, status);
}
#if __SIZEOF_POINTER__ == 4 /* what a program with times of 64 bits calls there */
int __shmctl64(int id, int command, void* status) {
  if (command != IPC_RMID) FAIL("shmctl", EIDRM, -1);
  return ((int (*)(int, int, void*))real("__shmctl64"))(id, command, status);
}
int __select64(int count, fd_set* reads, fd_set* writes, fd_set* errors, void* timeout) {
  FAIL("select", EINTR, -1);
  return ((int (*)(int, fd_set*, fd_set*, fd_set*, void*))real("__select64"))(
      count, reads, writes, errors, timeout);
}
#endif
#define CALL(type, name, parameters, arguments, kind, number, result) \
  type name parameters {                                              \
    FAIL(kind, number, (type)result);                                 \
    return REAL(name) arguments;                                      \
  }
CALL(int, select, (int n, fd_set* r, fd_set* w, fd_set* e, struct timeval* timeout),
     (n, r, w, e, timeout), "select", EINTR, -1)
CALL(int, poll, (struct pollfd* entries, nfds_t count, int timeout), (entries, count, timeout),
     "poll", EINTR, -1)
CALL(int, shmget, (key_t key, size_t size, int flags), (key, size, flags), "shmget", ENOSPC, -1)
CALL(void*, shmat, (int id, const void* at, int flags), (id, at, flags), "shmat", ENOMEM, -1)
CALL(int, shm_open, (const char* name, int flags, mode_t mode), (name, flags, mode), "shm_open",
     EMFILE, -1)
CALL(int, ftruncate, (int fd, off_t length), (fd, length), "ftruncate", ENOSPC, -1)
CALL(int, ftruncate64, (int fd, off64_t length), (fd, length), "ftruncate", ENOSPC, -1)
CALL(void*, mmap, (void* at, size_t length, int protection, int flags, int fd, off_t offset),
     (at, length, protection, flags, fd, offset), "mmap", ENOMEM, -1)
CALL(void*, mmap64, (void* at, size_t length, int protection, int flags, int fd, off64_t offset),
     (at, length, protection, flags, fd, offset), "mmap", ENOMEM, -1)
CALL(int, mkdirat, (int at, const char* path, mode_t mode), (at, path, mode), "mkdir", ENOSPC, -1)
CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), "mkdir", ENOSPC, -1)
CALL(int, flock, (int fd, int operation), (fd, operation), "flock", ENOLCK, -1)
CALL(pid_t, fork, (void), (), "fork", EAGAIN, -1)
CALL(int, pipe2, (int ends[2], int flags), (ends, flags), "pipe", EMFILE, -1)
CALL(int, socket, (int domain, int type, int protocol), (domain, type, protocol), "socket", EMFILE,
     -1)
static mode_t mode_of(int flags, va_list list) {
  return flags & (O_CREAT | O_TMPFILE) ? va_arg(list, mode_t) : 0;
}
#define OPENS(name, parameters, call)         \
  int name parameters {                       \
    va_list list;                             \
    va_start(list, flags);                    \
    const mode_t mode = mode_of(flags, list); \
    va_end(list);                             \
    FAIL("open", EMFILE, -1);                 \
    return REAL(name) call;                   \
  }
OPENS(open, (const char* path, int flags, ...), (path, flags, mode))
OPENS(open64, (const char* path, int flags, ...), (path, flags, mode))
OPENS(openat, (int at, const char* path, int flags, ...), (at, path, flags, mode))
OPENS(openat64, (int at, const char* path, int flags, ...), (at, path, flags, mode))
