#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// Peers as JSON, shared by the events and the control channel. Pure functions; any thread.
namespace vesko {

/// JSON whose objects keep the order of their fields: "event" comes first.
using OrderedJson = nlohmann::ordered_json;

/// `object` on one line, without a line feed. Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string lineOf(const OrderedJson& object);

[[nodiscard]] OrderedJson objectOf(const PeerView& peer);
[[nodiscard]] OrderedJson arrayOf(const std::vector<PeerView>& peers);

/// A discarded value (`is_discarded()`) when `text` is not JSON. Never throws.
[[nodiscard]] nlohmann::json parseJson(std::string_view text);

/// The text of a field; none when `object` is not an object or the field is missing or not a text.
[[nodiscard]] std::optional<std::string> textIn(const nlohmann::json& object, const char* field);

/// The inverse of `objectOf` and `arrayOf`; none when a field is missing or invalid.
[[nodiscard]] std::optional<PeerView> peerIn(const nlohmann::json& object);
[[nodiscard]] std::optional<std::vector<PeerView>> peersIn(const nlohmann::json& array);

}  // namespace vesko
