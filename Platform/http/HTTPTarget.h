#pragma once

#include <string>
#include <string_view>

namespace vesko {

/// The path that the target of a request (RFC 9112) names: without its query and, in absolute form, without what comes
/// before the path, which is "/" when there is none. Percent-decoded, so it may be any bytes; what is no escape stays.
/// A target of any other form, such as "*", is returned as it is. Any thread.
[[nodiscard]] std::string pathOfTarget(std::string_view target);

}  // namespace vesko
