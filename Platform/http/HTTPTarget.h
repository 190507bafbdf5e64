#pragma once

#include <string>
#include <string_view>

namespace vesko {

/// The path in the target of a request (RFC 9112), without the query and percent-decoded, so it may contain any bytes;
/// an invalid escape stays as it is. Of a target in absolute form ("http://host/path") it is what follows the host, "/"
/// when nothing does. A target of another form, such as "*", is returned unchanged. Any thread.
[[nodiscard]] std::string pathOfTarget(std::string_view target);

}  // namespace vesko
