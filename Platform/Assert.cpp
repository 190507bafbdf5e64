#include "Platform/Assert.h"

#ifndef NDEBUG
#include <cstdio>
#include <cstdlib>
#endif

namespace vesko {

void assertionFailure([[maybe_unused]] const std::string& message) {
#ifndef NDEBUG
  std::fprintf(stderr, "Assertion failed: %s\n", message.c_str());
  std::abort();
#endif
}

}  // namespace vesko
