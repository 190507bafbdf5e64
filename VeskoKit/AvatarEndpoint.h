#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/http/DefaultHTTPServer.h"
#include "Platform/user/AccountPicture.h"

namespace vesko {

class SelectorEventLoop;

/// Serves the current user's avatar to other machines, over HTTP, on the loop's thread.
class AvatarEndpoint {
 public:
  /// Where the avatar is found.
  static constexpr const char* path = "/virno/avatar";

  /// Opens nothing yet. `port` 0 lets the system choose.
  AvatarEndpoint(std::shared_ptr<SelectorEventLoop> loop, std::uint16_t port);

  /// Listens on every interface. False, with `error` set, when it cannot.
  [[nodiscard]] bool start(std::error_code& error) { return server_.start(error); }

  [[nodiscard]] const DefaultHTTPServer& server() const noexcept { return server_; }

  /// The port that it listens on; 0 while it does not.
  [[nodiscard]] std::uint16_t port() const noexcept { return server_.port(); }

 private:
  /// Answers one request, whatever its method: with the avatar, or why there is none.
  void metadataApp(const DefaultHTTPServer::Environment& environment,
                   const DefaultHTTPServer::StartResponse& startResponse, const DefaultHTTPServer::SendBody& sendBody);

  AccountPicture avatar_;
  DefaultHTTPServer server_;
};

/// `text` between double quotes: quotes of both kinds and backslashes behind a backslash, control characters as \0, \t,
/// \n, \r or \u{1B}; bytes that are not UTF-8 as U+FFFD.
[[nodiscard]] std::string quotedForm(const std::string& text);

}  // namespace vesko
