#pragma once

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace vesko::bench {

/// What `main` does: calls `run` with the arguments, and says what went wrong. The program's exit code.
template <class Run>
int runProgram(const char* name, int argc, char** argv, Run run) {
  try {
    run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name, error.what());
    return 1;
  }
  return 0;
}

}  // namespace vesko::bench
