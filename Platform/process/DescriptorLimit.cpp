#include "Platform/process/DescriptorLimit.h"

#include <sys/resource.h>

#include <algorithm>
#include <limits>

namespace vesko::DescriptorLimit {

std::uint64_t current() noexcept {
  rlimit limit{};
  const bool isBounded = ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  return isBounded ? limit.rlim_cur : std::numeric_limits<std::uint64_t>::max();
}

void raise(std::uint64_t wanted) noexcept {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace vesko::DescriptorLimit
