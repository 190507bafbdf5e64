#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

namespace vesko {

/// The version of the event format. Within a version, fields and events may be added, but none is renamed or removed.
constexpr int eventVersion = 1;

/// `event` as one JSON object on one line, without a line feed; the first field is "event". Bytes of names and paths
/// that are not UTF-8 become U+FFFD. docs/command-line.md lists the fields. Any thread.
[[nodiscard]] std::string jsonLine(const Event& event);

/// Parses a line of `jsonLine` that holds a peer event; none for any other text. Of a PeerDisappearedEvent only the key
/// is known. Any thread.
[[nodiscard]] std::optional<Event> parsePeerEvent(std::string_view line);

/// Peers as one JSON array on one line. Any thread.
[[nodiscard]] std::string jsonArray(const std::vector<PeerView>& peers);

/// Parses the output of `jsonArray`; none for any other text. Any thread.
[[nodiscard]] std::optional<std::vector<PeerView>> parsePeers(std::string_view array);

}  // namespace vesko
