#include <chrono>
#include <cstddef>
#include <string>

#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::metadata;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t elementCount = 10'000;  // each takes ten to twenty times as long
#else
constexpr std::size_t elementCount = 100'000;
#endif

constexpr std::chrono::seconds patience{120};

std::string emptyFilesBelow(const std::string& folder) {
  std::string stream;
  for (std::size_t i = 0; i < elementCount; ++i) stream.append(file(folder + std::to_string(i), ""));
  return stream;
}

TEST_F(HostileTest, OfManyElementsWithoutAPlaceAThousandAreListed) {
  recordOnlyOutcomes();
  auto sender = connect();
  ASSERT_TRUE(sender.send(metadata(elementCount + 1, 0) + file("f", "") + emptyFilesBelow("f/")));
  ASSERT_TRUE(recorder_->waitFor("[outcome", 1, patience));
  const auto outcome = recorder_->lastOutcome();
  EXPECT_EQ(outcome.kind, VeskoTransferOutcome::Kind::finished);
  EXPECT_EQ(outcome.droppedCount, elementCount);
  EXPECT_EQ(outcome.dropped.size(), 1000U);
  EXPECT_EQ(outcome.dropped.back().element, "f/999");
  expectGoodService();
}

}  // namespace
}  // namespace vesko
