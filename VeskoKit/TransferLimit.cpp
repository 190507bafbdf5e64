#include "VeskoKit/TransferLimit.h"

#include <string>

#include "VeskoKit/TransferStream.h"
#include "VeskoKit/VeskoItem.h"

namespace vesko {
namespace {

class LimitCategory : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "vesko.limit"; }

  [[nodiscard]] std::string message(int code) const override {
    switch (static_cast<TransferLimit>(code)) {
      case TransferLimit::size:
        return "it is larger than this computer accepts";
      case TransferLimit::textLength:
        return "the text is longer than " + std::to_string(VeskoText::maximumLength / (1024 * 1024)) + " MiB";
      case TransferLimit::nameLength:
        return "the name is longer than " + std::to_string(TransferStream::maximumNameLength) + " bytes";
      case TransferLimit::nameDepth:
        return "it lies more than " + std::to_string(TransferStream::maximumNameDepth) + " folders deep";
      case TransferLimit::connections:
        return "too many connections at once, and this one had been silent for longest";
    }
    return "unknown limit " + std::to_string(code);
  }
};

}  // namespace

std::error_code make_error_code(TransferLimit limit) noexcept {
  static const LimitCategory category;
  return {static_cast<int>(limit), category};
}

}  // namespace vesko
