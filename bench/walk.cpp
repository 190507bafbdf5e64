#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "VeskoKit/ItemWalk.h"

namespace vesko {
namespace {

constexpr int folderCount = 100;
constexpr int fileCount = 20'000;
constexpr std::size_t elementCount = 1 + folderCount + fileCount;

/// In memory where that is possible: the disk is not what is measured.
std::string folderForTrees() {
  const std::string memory = "/dev/shm";
  return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path().string();
}

/// A folder with folders of files, which goes away with its owner.
class Tree {
 public:
  Tree() : path_(folderForTrees() + "/vesko-walk-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
    for (int folder = 0; folder < folderCount; ++folder) std::filesystem::create_directory(pathOf(folder));
    for (int file = 0; file < fileCount; ++file) {
      std::ofstream(pathOf(file % folderCount) + "/IMG_20240813_" + std::to_string(file) + ".jpg") << file;
    }
  }
  ~Tree() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  /// All elements; none when any was left out.
  [[nodiscard]] VeskoItems walk() const {
    std::vector<VeskoSkippedElement> leftOut;
    VeskoItems items = walkPaths({path_}, leftOut);
    return items.size() == elementCount && leftOut.empty() ? items : VeskoItems();
  }

 private:
  [[nodiscard]] std::string pathOf(int folder) const { return path_ + "/folder " + std::to_string(folder); }

  std::string path_;
};

void walk(benchmark::State& state) {
  const Tree tree;
  for (auto _ : state) {
    const VeskoItems items = tree.walk();
    if (items.empty()) return state.SkipWithError("elements are missing");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(elementCount));
}
BENCHMARK(walk)->Unit(benchmark::kMillisecond);

/// Bytes of memory that this process has in use.
double residentBytes() {
  std::ifstream rollup("/proc/self/smaps_rollup");
  std::string word;
  while (rollup >> word && word != "Rss:") {
  }
  double kibibytes = 0;
  rollup >> kibibytes;
  return kibibytes * 1024;
}

/// What the elements take in memory while they are kept, as pages that the process has in use. Several walks are kept
/// beside each other, so that the pages it had and did not use count for little.
void walkMemory(benchmark::State& state) {
  constexpr int walks = 20;
  const Tree tree;
  std::vector<VeskoItems> kept;
  kept.reserve(walks);
  const double before = residentBytes();
  for (auto _ : state) {
    for (int count = 0; count < walks; ++count) kept.push_back(tree.walk());
  }
  if (before == 0 || kept.back().empty()) return state.SkipWithError("nothing to measure");
  state.counters["bytes_an_element"] = (residentBytes() - before) / static_cast<double>(walks * elementCount);
}
BENCHMARK(walkMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vesko
