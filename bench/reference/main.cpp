// Moves a file or a folder over TCP in the fastest way known on Linux, as a limit to judge vesko by: the same kind of
// stream, one thread, and none of the checks that a program for use needs.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "bench/reference/Receiver.h"
#include "bench/reference/Sender.h"

namespace {

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3 || (arguments[0] != "send" && arguments[0] != "receive")) {
    std::cerr << "usage: reference receive PORT FOLDER | reference send PORT PATH\n";
    return 2;
  }
  const auto transfer = arguments[0] == "send" ? vesko::reference::send : vesko::reference::receive;
  transfer(static_cast<std::uint16_t>(std::strtoul(arguments[1].c_str(), nullptr, 10)), arguments[2]);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "reference: " << error.what() << '\n';
    return 1;
  }
}
