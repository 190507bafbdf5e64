#include "VeskoKit/AvatarEndpoint.h"

#include <string_view>
#include <utility>

#include "Platform/text/TextEncoding.h"

namespace vesko {

namespace {

using Headers = DefaultHTTPServer::Headers;

const Headers::value_type serverHeader{"Server", "Vesko/1.0"};

bool isControl(char32_t code) noexcept { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

std::string escapedControl(char32_t code) {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  switch (code) {
    case U'\0':
      return "\\0";
    case U'\t':
      return "\\t";
    case U'\n':
      return "\\n";
    case U'\r':
      return "\\r";
    default:
      return "\\u{" + std::string(code < 0x10 ? 0 : 1, digits[code >> 4U]) + digits[code & 0xFU] + '}';
  }
}

}  // namespace

AvatarEndpoint::AvatarEndpoint(std::shared_ptr<SelectorEventLoop> loop, std::uint16_t port)
    : server_(std::move(loop), "0.0.0.0", port, [this](const auto& environment, const auto& start, const auto& send) {
        metadataApp(environment, start, send);
      }) {}

void AvatarEndpoint::metadataApp(const DefaultHTTPServer::Environment& environment,
                                 const DefaultHTTPServer::StartResponse& startResponse,
                                 const DefaultHTTPServer::SendBody& sendBody) {
  const std::string& requested = environment.at("PATH_INFO");
  if (requested != path) {
    startResponse("400 Bad Request", {serverHeader});
    sendBody("This is a Vesko metadata server. There is nothing implemented for " + quotedForm(requested) + '.');
  } else if (auto png = avatar_.png()) {
    startResponse("200 OK",
                  {serverHeader, {"Content-Type", "image/png"}, {"Content-Length", std::to_string(png->size())}});
    sendBody(std::move(*png));
  } else {
    startResponse("404 Not Found", {serverHeader});
    sendBody("Avatar is unavailable.");
  }
  sendBody({});
}

std::string quotedForm(const std::string& text) {
  const std::string readable = withReplacements(text);
  std::string quoted = "\"";
  for (std::string_view rest = readable; !rest.empty();) {
    const auto [code, length] = firstUtf8Character(rest);
    if (isControl(code)) {
      quoted += escapedControl(code);
    } else {
      if (code == U'"' || code == U'\'' || code == U'\\') quoted += '\\';
      quoted += rest.substr(0, length);
    }
    rest.remove_prefix(length);
  }
  return quoted += '"';
}

}  // namespace vesko
