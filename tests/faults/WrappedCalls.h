#pragma once

#include <optional>
#include <string_view>

/// What the functions that stand in for those of the C library ask and tell.
namespace vesko::WrappedCalls {

/// Counts a call, and says how it is to fail.
[[nodiscard]] std::optional<int> fault(std::string_view call);

/// A connection is being made, or has been accepted.
void countConnect();
void countAccept();

}  // namespace vesko::WrappedCalls
