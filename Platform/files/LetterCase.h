#pragma once

#include <string>
#include <string_view>

namespace vesko {

/// The characters of the UTF-8 `text`, capital letters replaced by small ones: for comparing names without regard to
/// case. Bytes that are not UTF-8 become one character each. Any thread.
[[nodiscard]] std::u32string smallLetters(std::string_view text);

}  // namespace vesko
