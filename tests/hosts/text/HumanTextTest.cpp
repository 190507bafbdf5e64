#include "hosts/common/text/HumanText.h"

#include <gtest/gtest.h>

#include <map>

namespace vesko {
namespace {

TEST(HumanText, RoundsNumbersAsPeopleReadThem) {
  const std::map<std::uint64_t, std::string> sizes{
      {0, "0 bytes"},     {1, "1 byte"},       {999, "999 bytes"},  {1000, "1.0 kB"},      {99'949, "99.9 kB"},
      {99'951, "100 kB"}, {999'499, "999 kB"}, {999'500, "1.0 MB"}, {1'250'000, "1.2 MB"}, {~0ULL, "18.4 EB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(sizeText(bytes), text);
  const std::map<double, std::string> rates{
      {0, "0 B/s"}, {999.4, "999 B/s"}, {999.6, "1.0 kB/s"}, {117.4e6, "117 MB/s"}};
  for (const auto& [rate, text] : rates) EXPECT_EQ(rateText(rate), text);
  const std::map<double, std::string> durations{{0, "0.0 s"},       {59.94, "59.9 s"}, {59.96, "1:00"},
                                                {205.4, "3:25"},    {3600, "1:00:00"}, {3723, "1:02:03"},
                                                {1e300, "99:00:00"}};
  for (const auto& [seconds, text] : durations) EXPECT_EQ(durationText(seconds), text);
  EXPECT_EQ(countText(1, "element"), "1 element");
  EXPECT_EQ(countText(0, "element"), "0 elements");
}

TEST(HumanText, FitsTextsIntoColumns) {
  EXPECT_EQ(columnsOf("e\u0301"), 1U);
  EXPECT_EQ(columnsOf("日本"), 4U);
  EXPECT_EQ(columnsOf("\xff\xe6\x97"), 3U);
  EXPECT_EQ(fittedText("abc", 3), "abc");
  EXPECT_EQ(fittedText("abcd", 3), "…cd");
  EXPECT_EQ(fittedText("日本", 3), "…本");
  EXPECT_EQ(fittedText("abc", 1), "…");
  EXPECT_EQ(fittedText("abc", 0), "");
}

TEST(HumanText, DrawsWhatFitsOfAProgressLine) {
  const ProgressView view{"photos/summer/img_0042.jpg", 180, 42, 2'000'000'000, 1'000'000'000, 100e6};
  EXPECT_EQ(progressLine(view, 100),
            "photos/summer/img_0042.jpg  [============             ]   50%   1.0 GB   100 MB/s  0:10 left  42/180");
  EXPECT_EQ(progressLine(view, 70), "…g_0042.jpg  [=====     ]   50%   1.0 GB   100 MB/s  0:10 left  42/180");
  EXPECT_EQ(progressLine({"a", 1, 0, 100, 25, 0}, 60), "a                [===           ]   25%  25 bytes      0 B/s");
  EXPECT_EQ(progressLine(view, 60), "[======       ]   50%   1.0 GB   100 MB/s  0:10 left  42/180");
  EXPECT_EQ(progressLine(view, 50), " 50%   1.0 GB   100 MB/s  0:10 left  42/180");
  EXPECT_EQ(progressLine(view, 12), " 50%");

  ProgressView still = view;
  still.waiting = "nothing has moved for 12 s";
  EXPECT_EQ(progressLine(still, 70), "[========         ]   50%   1.0 GB  nothing has moved for 12 s  42/180");
  EXPECT_EQ(progressLine(still, 40), " 50%   1.0 GB");

  const ProgressView views[] = {view,
                                still,
                                {"", 1, 0, 0, 0, 0},
                                {"more than announced", 1, 0, 10, 1'000'000, 1e3},
                                {"日本語のとても長い名前", ~0ULL, ~0ULL, ~0ULL, ~0ULL, 1e300}};
  for (const auto& one : views) {
    for (std::size_t columns = 0; columns < 200; ++columns) EXPECT_LE(columnsOf(progressLine(one, columns)), columns);
  }
}

}  // namespace
}  // namespace vesko
