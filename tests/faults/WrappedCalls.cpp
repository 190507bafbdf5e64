#include "tests/faults/WrappedCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <type_traits>

#include "tests/faults/SystemFaults.h"

namespace {

using vesko::SystemFaults;
using vesko::WrappedCalls::spelled;
namespace WrappedCalls = vesko::WrappedCalls;

/// Small enough to cut every stretch of a body many times, large enough not to take forever.
constexpr std::size_t fewBytes = 1000;

/// Makes the call, unless it is to fail: then its answer is -1, or none.
template <class Call>
auto unlessItFails(std::string_view name, Call call) -> decltype(call()) {
  const auto error = WrappedCalls::fault(name);
  if (!error) return call();
  errno = *error;
  if constexpr (std::is_pointer_v<decltype(call())>) {
    return nullptr;
  } else {
    return -1;
  }
}

/// The same for a call that moves up to `length` bytes.
template <class Call>
ssize_t moving(std::string_view name, std::size_t length, Call call) {
  const auto error = WrappedCalls::fault(name);
  if (!error) return call(length);
  if (*error == SystemFaults::fewerBytes) return call(std::min((length + 1) / 2, fewBytes));
  errno = *error;
  return -1;
}

}  // namespace

// The linker gives these names, and what the C library has is the interface.
extern "C" {

// A function needs a macro to be named after another one. The length that is moved may be cut, to `count`.
#define VESKO_WRAP(Result, name, parameters, arguments)                   \
  Result __real_##name parameters;                                        \
  Result __wrap_##name parameters {                                       \
    return unlessItFails(#name, [&] { return __real_##name arguments; }); \
  }
#define VESKO_WRAP_MOVING(name, parameters, arguments)                                        \
  ssize_t __real_##name parameters;                                                           \
  ssize_t __wrap_##name parameters {                                                          \
    return moving(#name, length, [&](std::size_t count) { return __real_##name arguments; }); \
  }

VESKO_WRAP(int, bind, (int descriptor, const sockaddr* address, socklen_t length), (descriptor, address, length))
VESKO_WRAP(int, faccessat, (int folder, const char* name, int mode, int flags), (folder, name, mode, flags))
VESKO_WRAP(int, fchmod, (int descriptor, mode_t mode), (descriptor, mode))
VESKO_WRAP(int, fchmodat, (int folder, const char* name, mode_t mode, int flags), (folder, name, mode, flags))
VESKO_WRAP(DIR*, fdopendir, (int descriptor), (descriptor))
VESKO_WRAP(int, flock, (int descriptor, int operation), (descriptor, operation))
VESKO_WRAP(int, fstat, (int descriptor, struct stat* status), (descriptor, status))
VESKO_WRAP(int, fstatat, (int folder, const char* name, struct stat* status, int flags),
           (folder, spelled(name).c_str(), status, flags))
VESKO_WRAP(int, fstatvfs, (int descriptor, struct statvfs* status), (descriptor, status))
VESKO_WRAP(int, getsockname, (int descriptor, sockaddr* address, socklen_t* length), (descriptor, address, length))
VESKO_WRAP(int, getsockopt, (int descriptor, int level, int name, void* value, socklen_t* length),
           (descriptor, level, name, value, length))
VESKO_WRAP(int, listen, (int descriptor, int backlog), (descriptor, backlog))
VESKO_WRAP(int, mkdir, (const char* path, mode_t mode), (path, mode))
VESKO_WRAP(int, mkdirat, (int folder, const char* name, mode_t mode), (folder, spelled(name).c_str(), mode))
VESKO_WRAP(int, pipe2, (int* ends, int flags), (ends, flags))
VESKO_WRAP_MOVING(pread, (int descriptor, void* buffer, std::size_t length, off_t offset),
                  (descriptor, buffer, count, offset))
VESKO_WRAP_MOVING(pwrite, (int descriptor, const void* buffer, std::size_t length, off_t offset),
                  (descriptor, buffer, count, offset))
VESKO_WRAP(dirent*, readdir, (DIR * stream), (stream))
VESKO_WRAP_MOVING(recv, (int descriptor, void* buffer, std::size_t length, int flags),
                  (descriptor, buffer, count, flags))
VESKO_WRAP(int, renameat, (int from, const char* name, int to, const char* newName),
           (from, spelled(name).c_str(), to, spelled(newName).c_str()))
VESKO_WRAP(int, renameat2, (int from, const char* name, int to, const char* newName, unsigned flags),
           (from, spelled(name).c_str(), to, spelled(newName).c_str(), flags))
VESKO_WRAP_MOVING(send, (int descriptor, const void* buffer, std::size_t length, int flags),
                  (descriptor, buffer, count, flags))
VESKO_WRAP_MOVING(sendfile, (int to, int from, off_t* offset, std::size_t length), (to, from, offset, count))
VESKO_WRAP(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
VESKO_WRAP(int, stat, (const char* path, struct stat* status), (path, status))
VESKO_WRAP(int, unlinkat, (int folder, const char* name, int flags), (folder, spelled(name).c_str(), flags))

int __real_accept4(int, sockaddr*, socklen_t*, int);
int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
  const int accepted = unlessItFails("accept4", [&] { return __real_accept4(descriptor, address, length, flags); });
  if (accepted >= 0) WrappedCalls::countAccept();
  return accepted;
}

int __real_connect(int, const sockaddr*, socklen_t);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  return unlessItFails("connect", [&] {
    WrappedCalls::countConnect();
    return __real_connect(descriptor, address, length);
  });
}

int __real_epoll_ctl(int, int, int, epoll_event*);
int __wrap_epoll_ctl(int poll, int operation, int descriptor, epoll_event* event) {
  const auto call = [&] { return __real_epoll_ctl(poll, operation, descriptor, event); };
  return operation == EPOLL_CTL_ADD ? unlessItFails("epoll_ctl", call) : call();
}

int __real_open(const char*, int, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return unlessItFails("open", [&] { return __real_open(path, flags, mode); });
}

int __real_openat(int, const char*, int, ...);
int __wrap_openat(int folder, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const bool creates = (flags & O_CREAT) != 0;
  const mode_t mode = creates ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  const auto* const call = creates ? "openat creating" : "openat";
  return unlessItFails(call, [&] { return __real_openat(folder, spelled(name).c_str(), flags, mode); });
}

int __real_setsockopt(int, int, int, const void*, socklen_t);
int __wrap_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length) {
  const auto call = [&] { return __real_setsockopt(descriptor, level, name, value, length); };
  return level == SOL_SOCKET && name == SO_LINGER ? call() : unlessItFails("setsockopt", call);
}

ssize_t __real_splice(int, off_t*, int, off_t*, std::size_t, unsigned);
ssize_t __wrap_splice(int from, off_t* fromOffset, int to, off_t* toOffset, std::size_t length, unsigned flags) {
  const auto* const call = toOffset != nullptr ? "splice to file" : "splice";
  return moving(call, length,
                [&](std::size_t count) { return __real_splice(from, fromOffset, to, toOffset, count, flags); });
}

#undef VESKO_WRAP
#undef VESKO_WRAP_MOVING

}  // extern "C"
