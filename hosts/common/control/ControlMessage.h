#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// What programs of one user say to a host that runs, and its answers: JSON, one object a line, each with the field
// "version". Pure functions; any thread.
namespace vesko {

/// Within one version, requests and fields are added, never renamed or removed.
constexpr int controlVersion = 1;

/// Bytes; requests are short.
constexpr std::size_t controlRequestLimit = 4096;

struct ControlRequest {
  enum class Kind : std::uint8_t {
    peers,     ///< the peer table: answered by one line
    watch,     ///< the same, and then a line for each peer event, as `jsonLine` writes them
    announce,  ///< say hello to all; answered by one line
    avatar,    ///< the picture of one machine; answered by one line
  };

  Kind kind = Kind::peers;
  std::string key = {};  ///< of the machine whose picture it is; else empty

  friend bool operator==(const ControlRequest&, const ControlRequest&) = default;
};

[[nodiscard]] std::string controlLine(const ControlRequest& request);

/// None when `line` is no request of our version.
[[nodiscard]] std::optional<ControlRequest> parseControlRequest(std::string_view line);

/// What a host knows of others.
struct ControlPeers {
  std::vector<PeerView> peers;
  std::chrono::duration<double> heardFor{};  ///< as `ControlActions` has it; none where the host does not say

  friend bool operator==(const ControlPeers&, const ControlPeers&) = default;
};

/// The answer to `peers` and `watch`: "event" is "peers", and "peers" holds them.
[[nodiscard]] std::string controlPeersLine(const ControlPeers& known);

/// None when `line` is not that.
[[nodiscard]] std::optional<ControlPeers> parseControlPeers(std::string_view line);

/// A picture, as `VeskoPeer::avatar` has it.
struct ControlAvatar {
  std::string key;
  std::string avatar;

  friend bool operator==(const ControlAvatar&, const ControlAvatar&) = default;
};

/// The answer to `avatar`: "event" is "avatar", "key" the machine's, "avatar" the picture.
[[nodiscard]] std::string controlAvatarLine(const ControlAvatar& avatar);

/// None when `line` is not that.
[[nodiscard]] std::optional<ControlAvatar> parseControlAvatar(std::string_view line);

/// The answer to `announce`: "event" is "announced".
[[nodiscard]] std::string controlAnnouncedLine();

/// The answer to anything else: "event" is "error", and "message" says what is wrong.
[[nodiscard]] std::string controlErrorLine(std::string_view message);

}  // namespace vesko
