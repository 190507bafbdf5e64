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

#include "tests/faults/SystemFaults.h"

namespace {

using vesko::SystemFaults;
using vesko::WrappedCalls::spelled;
namespace WrappedCalls = vesko::WrappedCalls;

/// Small enough to cut every stretch of a body many times, large enough not to take forever.
constexpr std::size_t fewBytes = 1000;

/// Makes the call, unless it is to fail: then its answer is `failure`.
template <class Call, class Result>
Result unlessItFails(std::string_view name, Result failure, Call call) {
  const auto error = WrappedCalls::fault(name);
  if (!error) return call();
  errno = *error;
  return failure;
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

int __real_accept4(int, sockaddr*, socklen_t*, int);
int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
  const int accepted = unlessItFails("accept4", -1, [&] { return __real_accept4(descriptor, address, length, flags); });
  if (accepted >= 0) WrappedCalls::countAccept();
  return accepted;
}

int __real_bind(int, const sockaddr*, socklen_t);
int __wrap_bind(int descriptor, const sockaddr* address, socklen_t length) {
  return unlessItFails("bind", -1, [&] { return __real_bind(descriptor, address, length); });
}

int __real_connect(int, const sockaddr*, socklen_t);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  return unlessItFails("connect", -1, [&] {
    WrappedCalls::countConnect();
    return __real_connect(descriptor, address, length);
  });
}

int __real_epoll_ctl(int, int, int, epoll_event*);
int __wrap_epoll_ctl(int poll, int operation, int descriptor, epoll_event* event) {
  const auto call = [&] { return __real_epoll_ctl(poll, operation, descriptor, event); };
  return operation == EPOLL_CTL_ADD ? unlessItFails("epoll_ctl", -1, call) : call();
}

int __real_faccessat(int, const char*, int, int);
int __wrap_faccessat(int folder, const char* name, int mode, int flags) {
  return unlessItFails("faccessat", -1, [&] { return __real_faccessat(folder, name, mode, flags); });
}

int __real_fchmod(int, mode_t);
int __wrap_fchmod(int descriptor, mode_t mode) {
  return unlessItFails("fchmod", -1, [&] { return __real_fchmod(descriptor, mode); });
}

int __real_fchmodat(int, const char*, mode_t, int);
int __wrap_fchmodat(int folder, const char* name, mode_t mode, int flags) {
  return unlessItFails("fchmodat", -1, [&] { return __real_fchmodat(folder, name, mode, flags); });
}

DIR* __real_fdopendir(int);
DIR* __wrap_fdopendir(int descriptor) {
  return unlessItFails("fdopendir", static_cast<DIR*>(nullptr), [&] { return __real_fdopendir(descriptor); });
}

int __real_flock(int, int);
int __wrap_flock(int descriptor, int operation) {
  return unlessItFails("flock", -1, [&] { return __real_flock(descriptor, operation); });
}

int __real_fstat(int, struct stat*);
int __wrap_fstat(int descriptor, struct stat* status) {
  return unlessItFails("fstat", -1, [&] { return __real_fstat(descriptor, status); });
}

int __real_fstatat(int, const char*, struct stat*, int);
int __wrap_fstatat(int folder, const char* name, struct stat* status, int flags) {
  return unlessItFails("fstatat", -1, [&] { return __real_fstatat(folder, spelled(name).c_str(), status, flags); });
}

int __real_fstatvfs(int, struct statvfs*);
int __wrap_fstatvfs(int descriptor, struct statvfs* status) {
  return unlessItFails("fstatvfs", -1, [&] { return __real_fstatvfs(descriptor, status); });
}

int __real_getsockname(int, sockaddr*, socklen_t*);
int __wrap_getsockname(int descriptor, sockaddr* address, socklen_t* length) {
  return unlessItFails("getsockname", -1, [&] { return __real_getsockname(descriptor, address, length); });
}

int __real_getsockopt(int, int, int, void*, socklen_t*);
int __wrap_getsockopt(int descriptor, int level, int name, void* value, socklen_t* length) {
  return unlessItFails("getsockopt", -1, [&] { return __real_getsockopt(descriptor, level, name, value, length); });
}

int __real_listen(int, int);
int __wrap_listen(int descriptor, int backlog) {
  return unlessItFails("listen", -1, [&] { return __real_listen(descriptor, backlog); });
}

int __real_mkdir(const char*, mode_t);
int __wrap_mkdir(const char* path, mode_t mode) {
  return unlessItFails("mkdir", -1, [&] { return __real_mkdir(path, mode); });
}

int __real_mkdirat(int, const char*, mode_t);
int __wrap_mkdirat(int folder, const char* name, mode_t mode) {
  return unlessItFails("mkdirat", -1, [&] { return __real_mkdirat(folder, spelled(name).c_str(), mode); });
}

int __real_open(const char*, int, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return unlessItFails("open", -1, [&] { return __real_open(path, flags, mode); });
}

int __real_openat(int, const char*, int, ...);
int __wrap_openat(int folder, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const bool creates = (flags & O_CREAT) != 0;
  const mode_t mode = creates ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  const auto* const call = creates ? "openat creating" : "openat";
  return unlessItFails(call, -1, [&] { return __real_openat(folder, spelled(name).c_str(), flags, mode); });
}

int __real_pipe2(int*, int);
int __wrap_pipe2(int* ends, int flags) {
  return unlessItFails("pipe2", -1, [&] { return __real_pipe2(ends, flags); });
}

ssize_t __real_pread(int, void*, std::size_t, off_t);
ssize_t __wrap_pread(int descriptor, void* buffer, std::size_t length, off_t offset) {
  return moving("pread", length, [&](std::size_t count) { return __real_pread(descriptor, buffer, count, offset); });
}

ssize_t __real_pwrite(int, const void*, std::size_t, off_t);
ssize_t __wrap_pwrite(int descriptor, const void* buffer, std::size_t length, off_t offset) {
  return moving("pwrite", length, [&](std::size_t count) { return __real_pwrite(descriptor, buffer, count, offset); });
}

dirent* __real_readdir(DIR*);
dirent* __wrap_readdir(DIR* stream) {
  return unlessItFails("readdir", static_cast<dirent*>(nullptr), [&] { return __real_readdir(stream); });
}

ssize_t __real_recv(int, void*, std::size_t, int);
ssize_t __wrap_recv(int descriptor, void* buffer, std::size_t length, int flags) {
  return moving("recv", length, [&](std::size_t count) { return __real_recv(descriptor, buffer, count, flags); });
}

int __real_renameat(int, const char*, int, const char*);
int __wrap_renameat(int from, const char* name, int to, const char* newName) {
  return unlessItFails("renameat", -1,
                       [&] { return __real_renameat(from, spelled(name).c_str(), to, spelled(newName).c_str()); });
}

int __real_renameat2(int, const char*, int, const char*, unsigned);
int __wrap_renameat2(int from, const char* name, int to, const char* newName, unsigned flags) {
  return unlessItFails("renameat2", -1, [&] {
    return __real_renameat2(from, spelled(name).c_str(), to, spelled(newName).c_str(), flags);
  });
}

ssize_t __real_send(int, const void*, std::size_t, int);
ssize_t __wrap_send(int descriptor, const void* buffer, std::size_t length, int flags) {
  return moving("send", length, [&](std::size_t count) { return __real_send(descriptor, buffer, count, flags); });
}

ssize_t __real_sendfile(int, int, off_t*, std::size_t);
ssize_t __wrap_sendfile(int to, int from, off_t* offset, std::size_t length) {
  return moving("sendfile", length, [&](std::size_t count) { return __real_sendfile(to, from, offset, count); });
}

int __real_setsockopt(int, int, int, const void*, socklen_t);
int __wrap_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length) {
  const auto call = [&] { return __real_setsockopt(descriptor, level, name, value, length); };
  return level == SOL_SOCKET && name == SO_LINGER ? call() : unlessItFails("setsockopt", -1, call);
}

int __real_socket(int, int, int);
int __wrap_socket(int domain, int type, int protocol) {
  return unlessItFails("socket", -1, [&] { return __real_socket(domain, type, protocol); });
}

ssize_t __real_splice(int, off_t*, int, off_t*, std::size_t, unsigned);
ssize_t __wrap_splice(int from, off_t* fromOffset, int to, off_t* toOffset, std::size_t length, unsigned flags) {
  const auto* const call = toOffset != nullptr ? "splice to file" : "splice";
  return moving(call, length,
                [&](std::size_t count) { return __real_splice(from, fromOffset, to, toOffset, count, flags); });
}

int __real_stat(const char*, struct stat*);
int __wrap_stat(const char* path, struct stat* status) {
  return unlessItFails("stat", -1, [&] { return __real_stat(path, status); });
}

int __real_unlinkat(int, const char*, int);
int __wrap_unlinkat(int folder, const char* name, int flags) {
  return unlessItFails("unlinkat", -1, [&] { return __real_unlinkat(folder, spelled(name).c_str(), flags); });
}

}  // extern "C"
