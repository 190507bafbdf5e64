#include "Platform/process/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace vesko {

void assertionFailure([[maybe_unused]] const std::string& message) {
#ifndef NDEBUG
  fatalError("Assertion failed: " + message);
#endif
}

void fatalError(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::abort();
}

}  // namespace vesko
