#pragma once

#include <string>

#include "hosts/common/Events.h"

namespace vesko {

/// The version of the events that `jsonLine` writes. Within one, fields and events are added, never renamed or removed.
constexpr int eventVersion = 1;

/// `event` as one JSON object on one line, without the line's end; its first field is "event". Bytes of names and paths
/// that are not UTF-8 become U+FFFD. Any thread.
[[nodiscard]] std::string jsonLine(const Event& event);

}  // namespace vesko
