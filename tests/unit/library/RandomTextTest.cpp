#include "VeskoKit/RandomText.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>

namespace vesko {
namespace {

TEST(RandomText, DrawsAllLettersAndDigitsAlike) {
  EXPECT_EQ(generateRandomStringWithLength(-1), "");
  EXPECT_NE(generateRandomStringWithLength(32), generateRandomStringWithLength(32));
  constexpr int expected = 1000;
  std::map<char, int> drawn;
  for (const char character : generateRandomStringWithLength(62 * expected)) ++drawn[character];
  EXPECT_EQ(drawn.size(), 62U);
  for (const auto& [character, count] : drawn) {
    EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(character))) << character;
    // Eight standard deviations: a fair source fails here once in 10^13 runs.
    EXPECT_NEAR(count, expected, 250) << character;
  }
}

}  // namespace
}  // namespace vesko
