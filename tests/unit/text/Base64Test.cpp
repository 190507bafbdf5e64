#include "Platform/text/Base64.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

using namespace std::string_literals;

TEST(Base64, EncodesAndDecodes) {
  const std::pair<std::string, const char*> cases[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foob", "Zm9vYg=="},
                                                       {"foobar", "Zm9vYmFy"},
                                                       {"\0\x10\x83\xff\xef\xbe"s, "ABCD/+++"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(base64Encoded(bytes), text);
    EXPECT_EQ(base64Decoded(text), bytes) << text;
  }
}

TEST(Base64, RefusesWhatItWouldNotWrite) {
  for (const auto& text : {"Z"s, "Zg"s, "Zg="s, "Zg==="s, "===="s, "Z==="s, "Zg==Zg=="s, "Zm=v"s, "=m9v"s, "Zm9v\n"s,
                           "Zm\r\n"s, "Zm9 "s, "Zm-_"s, "Zm9\0"s, "Zm9\xff"s, "Zh=="s, "Zm9="s}) {
    EXPECT_EQ(base64Decoded(text), std::nullopt) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace vesko
