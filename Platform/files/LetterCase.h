#pragma once

#include <string>
#include <string_view>

namespace vesko {

/// The characters of `text`, which is UTF-8, with each capital letter as the small one: for comparing names as people
/// do. What is not UTF-8 is taken byte by byte. Any thread.
[[nodiscard]] std::u32string smallLetters(std::string_view text);

}  // namespace vesko
