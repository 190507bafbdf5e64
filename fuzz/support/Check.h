#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vesko::fuzz {

/// What an input broke: the message goes to standard error and the process stops, which keeps the input. In every
/// build, unlike assertions.
[[noreturn]] inline void broken(const std::string& property) {
  std::fprintf(stderr, "Broken: %s\n", property.c_str());
  std::abort();
}

inline void check(bool holds, const char* property) {
  if (!holds) broken(property);
}

/// For what takes more words: `describe` makes them only when they are needed.
template <class Describe>
requires requires(Describe describe) { std::string(describe()); }
void check(bool holds, const char* property, Describe describe) {
  if (!holds) broken(property + (": " + std::string(describe())));
}

}  // namespace vesko::fuzz
