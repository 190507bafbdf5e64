#pragma once

#include <sys/resource.h>
#include <unistd.h>

namespace vesko {

/// While it lives, the process can open only `count` more descriptors.
class FewDescriptors {
 public:
  explicit FewDescriptors(rlim_t count) {
    const int lowestFree = ::dup(0);
    ::close(lowestFree);
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{.rlim_cur = static_cast<rlim_t>(lowestFree) + count, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace vesko
