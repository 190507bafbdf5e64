#include "tests/faults/SystemFaults.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>

#include "tests/faults/WrappedCalls.h"

namespace vesko {
namespace {

struct Armed : SystemFaults::Fault {
  std::size_t met = 0;
  std::size_t struck = 0;
};

struct State {
  std::mutex mutex;
  std::condition_variable changed;
  bool isArmed = false;
  std::vector<Armed> faults;
  std::string (*spelling)(std::string) = nullptr;
  std::map<std::string, std::size_t, std::less<>> calls;
  std::size_t connects = 0;
  std::size_t accepts = 0;
};

/// The functions of the C library have no object to belong to, and neither have those that stand in for them.
State& state() {
  static State* state = new State;
  return *state;
}

thread_local bool isSpared = false;

std::optional<int> strike(Armed& fault, std::string_view call) {
  if (std::ranges::find(fault.calls, call) == fault.calls.end()) return std::nullopt;
  const std::size_t index = ++fault.met;
  if (index < fault.first || index - fault.first >= fault.count) return std::nullopt;
  ++fault.struck;
  return fault.error;
}

}  // namespace

SystemFaults::SystemFaults(std::vector<Fault> faults) {
  const std::scoped_lock lock(state().mutex);
  state().isArmed = true;
  state().spelling = nullptr;
  state().faults.clear();
  for (auto& fault : faults) state().faults.push_back({std::move(fault)});
  state().calls.clear();
  state().connects = state().accepts = 0;
  isSpared = true;
}

SystemFaults::~SystemFaults() {
  const std::scoped_lock lock(state().mutex);
  state().isArmed = false;
  isSpared = false;
}

void SystemFaults::spellNames(std::string (*spelling)(std::string name)) {
  const std::scoped_lock lock(state().mutex);
  state().spelling = spelling;
}

SystemFaults::AsProduct::AsProduct() { isSpared = false; }
SystemFaults::AsProduct::~AsProduct() { isSpared = true; }

std::size_t SystemFaults::strikes(std::size_t index) const {
  const std::scoped_lock lock(state().mutex);
  return state().faults.at(index).struck;
}

std::size_t SystemFaults::callsOf(std::string_view call) const {
  const std::scoped_lock lock(state().mutex);
  const auto found = state().calls.find(call);
  return found == state().calls.end() ? 0 : found->second;
}

bool SystemFaults::waitUntilAllAreAccepted() const {
  std::unique_lock lock(state().mutex);
  return state().changed.wait_for(lock, std::chrono::seconds(10), [] { return state().accepts == state().connects; });
}

std::vector<std::string> SystemFaults::wrappedCalls() {
  std::istringstream words(VESKO_WRAPPED_CALLS);
  std::vector<std::string> calls = {"openat creating", "splice to file"};
  for (std::string word; words >> word;) calls.push_back(word);
  return calls;
}

namespace WrappedCalls {

std::optional<int> fault(std::string_view call) {
  const std::scoped_lock lock(state().mutex);
  if (!state().isArmed || isSpared) return std::nullopt;
  auto found = state().calls.find(call);
  if (found == state().calls.end()) found = state().calls.emplace(call, 0).first;
  ++found->second;
  for (auto& armed : state().faults) {
    if (const auto error = strike(armed, call)) return error;
  }
  return std::nullopt;
}

std::string spelled(const char* name) {
  const std::scoped_lock lock(state().mutex);
  return !state().isArmed || isSpared || state().spelling == nullptr ? name : state().spelling(name);
}

void countConnect() {
  const std::scoped_lock lock(state().mutex);
  ++state().connects;
}

void countAccept() {
  const std::scoped_lock lock(state().mutex);
  ++state().accepts;
  state().changed.notify_all();
}

}  // namespace WrappedCalls
}  // namespace vesko
