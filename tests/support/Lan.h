#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/RawDatagrams.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {

/// Machines on two networks of their own, all made up on this one: machine M is called machineM and has, in network N
/// (0 or 1), the device ethN with the address 10.83.N.M of 24 bits. They go away with their owner, which outlives what
/// runs on them.
class Lan {
 public:
  /// Throws std::runtime_error with the system's words where this is not permitted, as it is to root only.
  Lan();
  ~Lan();
  Lan(const Lan&) = delete;
  Lan& operator=(const Lan&) = delete;

  [[nodiscard]] static std::string address(int machine, int network = 0) {
    return "10.83." + std::to_string(network) + '.' + std::to_string(machine);
  }

  void addMachine(int machine) { addSpace(nameOf(machine)); }

  /// Returns once datagrams go through.
  void plug(int machine, int network);

  /// Has ip(8) do what `lines` say, on a machine.
  void configure(int machine, const std::string& lines) const { configure(nameOf(machine), lines); }

  /// The home of whoever works there.
  [[nodiscard]] std::string homeOf(int machine) const { return folder_.makeFolder(nameOf(machine)); }

  /// What runs a program there, as a user who is logged in: with that home, also for what runs.
  [[nodiscard]] Process::Setup setupFor(int machine, std::vector<std::string> arguments) const;

  /// Runs `task` in a machine's network, on a thread of its own. Sockets that it opens stay there.
  void inside(int machine, const std::function<void()>& task) const { inside(nameOf(machine), task); }

  /// A port of a machine.
  [[nodiscard]] RawDatagrams socketOn(int machine, std::uint16_t port) const;

 private:
  [[nodiscard]] static std::string nameOf(int machine) { return "machine" + std::to_string(machine); }
  [[nodiscard]] std::string spaceOf(const std::string& name) const { return prefix_ + name; }
  void addSpace(const std::string& name);
  void removeSpaces() const;
  void configure(const std::string& name, const std::string& lines) const;
  void inside(const std::string& name, const std::function<void()>& task) const;

  std::string prefix_;
  std::vector<std::string> names_;
  TemporaryFolder folder_;
};

}  // namespace vesko
