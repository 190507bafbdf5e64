#include "Platform/sockets/SocketError.h"

#include <string>

namespace vesko {
namespace {

class SocketCategory : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "vesko.socket"; }

  [[nodiscard]] std::string message(int code) const override {
    switch (static_cast<SocketErrc>(code)) {
      case SocketErrc::endOfStream:
        return "the connection was closed by the other side";
      case SocketErrc::sourceEnded:
        return "the file became shorter while it was being sent";
      case SocketErrc::unconfirmed:
        return "everything was handed over, but the other side never said that it has it; look there before deleting "
               "anything here";
    }
    return "unknown error " + std::to_string(code);
  }
};

}  // namespace

std::error_code make_error_code(SocketErrc code) noexcept {
  static const SocketCategory category;
  return {static_cast<int>(code), category};
}

}  // namespace vesko
