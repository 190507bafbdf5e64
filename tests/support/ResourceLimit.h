#pragma once

#include <sys/resource.h>

namespace vesko {

/// While it lives, another limit of the process is in force. `resource`: as setrlimit(2) has it.
class ResourceLimit {
 public:
  using Kind = decltype(RLIMIT_NOFILE);

  ResourceLimit(Kind resource, rlim_t value) : resource_(resource), before_(present(resource)) {
    const rlimit changed{.rlim_cur = value, .rlim_max = before_.rlim_max};
    ::setrlimit(resource_, &changed);
  }
  ~ResourceLimit() { ::setrlimit(resource_, &before_); }
  ResourceLimit(const ResourceLimit&) = delete;
  ResourceLimit& operator=(const ResourceLimit&) = delete;

  /// What the process may allow itself.
  [[nodiscard]] static rlim_t maximum(Kind resource) { return present(resource).rlim_max; }

 private:
  static rlimit present(Kind resource) {
    rlimit limit{};
    ::getrlimit(resource, &limit);
    return limit;
  }

  Kind resource_;
  rlimit before_;
};

}  // namespace vesko
