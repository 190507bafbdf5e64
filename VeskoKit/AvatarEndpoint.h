#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/http/DefaultHTTPServer.h"
#include "Platform/user/AccountPicture.h"

namespace vesko {

class SelectorEventLoop;

/// Serves the avatar of the current user to peers by HTTP, on the loop's thread.
class AvatarEndpoint {
 public:
  /// The path of the avatar; all other paths are answered with status 400.
  static constexpr const char* path = "/virno/avatar";

  /// Does not listen yet. `port` 0 lets the system choose.
  AvatarEndpoint(std::shared_ptr<SelectorEventLoop> loop, std::uint16_t port);

  /// Listens on every interface. False, with `error` set, when it cannot.
  [[nodiscard]] bool start(std::error_code& error) { return server_.start(error); }

  [[nodiscard]] const DefaultHTTPServer& server() const noexcept { return server_; }

  /// The port it listens on; 0 while it does not. Any thread.
  [[nodiscard]] std::uint16_t port() const noexcept { return server_.port(); }

 private:
  /// Answers a request, whatever its method: with the avatar, with 404 when the user has none, or with 400.
  void metadataApp(const DefaultHTTPServer::Environment& environment,
                   const DefaultHTTPServer::StartResponse& startResponse, const DefaultHTTPServer::SendBody& sendBody);

  AccountPicture avatar_;
  DefaultHTTPServer server_;
};

/// `text` in double quotes: quotes of both kinds and backslashes with a backslash before them, control characters as
/// \0, \t, \n, \r or \u{1B}, bytes that are not UTF-8 as U+FFFD.
[[nodiscard]] std::string quotedForm(const std::string& text);

}  // namespace vesko
