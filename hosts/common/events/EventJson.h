#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

namespace vesko {

/// The version of the events that `jsonLine` writes. Within one, fields and events are added, never renamed or removed.
constexpr int eventVersion = 1;

/// `event` as one JSON object on one line, without the line's end; its first field is "event". Bytes of names and paths
/// that are not UTF-8 become U+FFFD. Any thread.
[[nodiscard]] std::string jsonLine(const Event& event);

/// The event that such a line tells of, for events of peers; none for anything else. Any thread.
[[nodiscard]] std::optional<Event> parsePeerEvent(std::string_view line);

/// Peers as one JSON array on one line. Any thread.
[[nodiscard]] std::string jsonArray(const std::vector<PeerView>& peers);

/// Reads what `jsonArray` writes; none when it is anything else. Any thread.
[[nodiscard]] std::optional<std::vector<PeerView>> parsePeers(std::string_view array);

}  // namespace vesko
