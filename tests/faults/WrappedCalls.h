#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the functions that stand in for those of the C library ask and tell.
namespace vesko::WrappedCalls {

/// Counts a call, and says how it is to fail.
[[nodiscard]] std::optional<int> fault(std::string_view call);

/// The name as the system is to have it.
[[nodiscard]] std::string spelled(const char* name);

/// A connection is being made, or has been accepted.
void countConnect();
void countAccept();

}  // namespace vesko::WrappedCalls
