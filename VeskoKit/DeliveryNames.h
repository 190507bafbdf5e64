#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Names that the receiver chooses: of storage folders, and of items whose name is taken. Whether a name from the
/// sender is accepted is decided by `TransferStream::checkName`. Any thread.
namespace vesko::DeliveryNames {

/// The name of a storage folder: this prefix, the start of the transfer in this format, and random letters and digits.
constexpr std::string_view storagePrefix = ".VeskoTransferIntermediateStorage";
constexpr std::string_view storageDateFormat = "yyyyMMddhhmmss";
constexpr std::size_t storageDateLength = 14;
constexpr std::size_t storageRandomLength = 32;

/// In bytes: no file system of Linux accepts a longer name (NAME_MAX, limits.h).
constexpr std::size_t maximumLength = 255;

/// True for a name that a storage folder may have. Letter case is ignored, since some file systems list names in
/// another case than they were given.
[[nodiscard]] bool isStorageName(std::string_view name) noexcept;

/// `name` with `counter` in parentheses before its extension: "photo (2).jpg". If that is too long, whole characters
/// before the parentheses are removed. If the extension leaves no room for any, the parentheses come last.
[[nodiscard]] std::string numberedName(const std::string& name, std::uint64_t counter);

}  // namespace vesko::DeliveryNames
