#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// The messages of the control channel: requests of the user's programs to a running host, and its answers. Each is one
// JSON object on one line, with the field "version" (except the peer events). Pure functions; any thread.
//
//     client   {"request":"watch","version":1}
//     host     {"event":"peers","version":1,"heardFor":12.5,"peers":[...]}
//     host     {"event":"peerAppeared",...}          as `jsonLine` writes it
namespace vesko {

/// The version of the protocol. Within a version, requests and fields may be added, but none is renamed or removed.
constexpr int controlVersion = 1;

/// Longest request in bytes. The host closes a connection that sends a longer line.
constexpr std::size_t controlRequestLimit = 4096;

/// A request to a host.
struct ControlRequest {
  enum class Kind : std::uint8_t {
    peers,     ///< get the peer table; one line as answer
    watch,     ///< the same, followed by a line for each peer event, as `jsonLine` writes it
    announce,  ///< broadcast a hello; one line as answer
    avatar,    ///< get the picture of one machine; one line as answer
  };

  Kind kind = Kind::peers;
  std::string key = {};  ///< of the machine, for `avatar`; else empty

  friend bool operator==(const ControlRequest&, const ControlRequest&) = default;
};

/// `request` on one line, without a line feed.
[[nodiscard]] std::string controlLine(const ControlRequest& request);

/// Parses a request; none when `line` is not a request of this version.
[[nodiscard]] std::optional<ControlRequest> parseControlRequest(std::string_view line);

/// The peers a host knows.
struct ControlPeers {
  std::vector<PeerView> peers;
  std::chrono::duration<double> heardFor{};  ///< see `ControlActions`; 0 when the host does not send it

  friend bool operator==(const ControlPeers&, const ControlPeers&) = default;
};

/// The answer to `peers` and `watch`: "event" is "peers", the array "peers" holds the peers.
[[nodiscard]] std::string controlPeersLine(const ControlPeers& known);

/// Parses that answer; none for any other line.
[[nodiscard]] std::optional<ControlPeers> parseControlPeers(std::string_view line);

/// The picture of a machine, in the form of `VeskoPeer::avatar`.
struct ControlAvatar {
  std::string key;
  std::string avatar;

  friend bool operator==(const ControlAvatar&, const ControlAvatar&) = default;
};

/// The answer to `avatar`: "event" is "avatar", "key" names the machine, "avatar" holds the picture.
[[nodiscard]] std::string controlAvatarLine(const ControlAvatar& avatar);

/// Parses that answer; none for any other line.
[[nodiscard]] std::optional<ControlAvatar> parseControlAvatar(std::string_view line);

/// The answer to `announce`: "event" is "announced".
[[nodiscard]] std::string controlAnnouncedLine();

/// The answer to an invalid request: "event" is "error", "message" says what is wrong.
[[nodiscard]] std::string controlErrorLine(std::string_view message);

}  // namespace vesko
