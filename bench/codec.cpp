#include <benchmark/benchmark.h>

#include <string>

#include "Platform/files/Data.h"
#include "VeskoKit/BinUtils.h"
#include "VeskoKit/TransferStream.h"

namespace vesko {
namespace {

const std::string fileName = "Holiday 2024/Größere Bilder/IMG_20240813_164502 (2).jpg";

void reportBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void encodeHeader(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(TransferStream::encodeHeader(fileName, 4'321'987));
}
BENCHMARK(encodeHeader);

/// Names of as many components as the argument says.
void checkName(benchmark::State& state) {
  std::string name = "file.txt";
  for (std::int64_t depth = 1; depth < state.range(0); ++depth) name = "Größe/" + name;
  for (auto _ : state) benchmark::DoNotOptimize(TransferStream::checkName(name));
  reportBytes(state, name.size());
}
BENCHMARK(checkName)->Arg(1)->Arg(8)->Arg(TransferStream::maximumNameDepth);

void packIntegers(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(pack("<QQ", {std::uint64_t{20'000}, std::uint64_t{1} << 40}));
}
BENCHMARK(packIntegers);

void unpackIntegers(benchmark::State& state) {
  const Data data = pack("<QQ", {std::uint64_t{20'000}, std::uint64_t{1} << 40});
  for (auto _ : state) benchmark::DoNotOptimize(unpack("<QQ", data));
}
BENCHMARK(unpackIntegers);

}  // namespace
}  // namespace vesko
