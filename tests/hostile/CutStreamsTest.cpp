#include <cstddef>
#include <string>

#include "Platform/sockets/SocketError.h"
#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::folder;
using StreamBytes::metadata;

TEST_F(HostileTest, AStreamThatIsCutAnywhereLeavesNothing) {
  const struct {
    std::string stream;
    std::size_t entries;  // delivered of the whole stream
  } cases[] = {
      {metadata(1, 5) + file("a.txt", "hello"), 1},
      {metadata(3, 5) + folder("A") + file("A/b", "12") + file("A/c", "345"), 1},
      {metadata(3, 4) + file("a", "12") + folder("b") + file("b/c", "34"), 1},
      {metadata(1, 5) + file(StreamBytes::textName, "caf\xc3\xa9"), 0},
      {metadata(2, 0) + folder("A") + file("A/empty", ""), 1},
      {metadata(0, 0), 0},
  };
  for (const auto& [stream, entries] : cases) {
    for (std::size_t length = 0; length <= stream.size(); ++length) {
      for (const End end : {End::close, End::reset}) {
        SCOPED_TRACE(testing::Message() << length << " of " << testing::PrintToString(stream.substr(16)));
        const bool isWhole = length == stream.size();
        ASSERT_TRUE(receiveUntil(stream.substr(0, length), end, isWhole ? "finished" : "failed connectionLost"));
        EXPECT_EQ(delivered().size(), isWhole ? entries : 0);
        if (isWhole) {
          clear();
        } else {
          EXPECT_EQ(toldSuccesses(), 0U);
          const auto error = recorder_->lastOutcome().error;
          EXPECT_TRUE(end == End::reset ? error == std::errc::connection_reset : error == SocketErrc::endOfStream);
        }
      }
    }
  }
  expectGoodService();
}

}  // namespace
}  // namespace vesko
