#pragma once

#include <unistd.h>

#include "tests/support/ResourceLimit.h"

namespace vesko {

/// While it lives, the process can open only `count` more descriptors.
class FewDescriptors : ResourceLimit {
 public:
  explicit FewDescriptors(rlim_t count) : ResourceLimit(RLIMIT_NOFILE, lowestFree() + count) {}

 private:
  static rlim_t lowestFree() {
    const int descriptor = ::dup(0);
    ::close(descriptor);
    return static_cast<rlim_t>(descriptor);
  }
};

}  // namespace vesko
