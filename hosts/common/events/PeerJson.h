#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// Peers in JSON, for the lines that hold them. Pure functions; any thread.
namespace vesko {

/// Keeps the fields of objects in the order they were written in.
using OrderedJson = nlohmann::ordered_json;

/// One line; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string lineOf(const OrderedJson& object);

[[nodiscard]] OrderedJson objectOf(const PeerView& peer);
[[nodiscard]] OrderedJson arrayOf(const std::vector<PeerView>& peers);

/// A discarded value when `text` is no JSON.
[[nodiscard]] nlohmann::json parseJson(std::string_view text);

/// The text in a field of an object; none where there is none, or no object.
[[nodiscard]] std::optional<std::string> textIn(const nlohmann::json& object, const char* field);

/// None when a field is missing or holds anything else than it should.
[[nodiscard]] std::optional<PeerView> peerIn(const nlohmann::json& object);
[[nodiscard]] std::optional<std::vector<PeerView>> peersIn(const nlohmann::json& array);

}  // namespace vesko
