#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The names that we give to what is received: of storage folders, and where a name is taken. Whether a name that a
/// sender gives is accepted, `TransferStream::checkName` says. Any thread.
namespace vesko::DeliveryNames {

/// A storage folder's name is this, the transfer's start by the date format, and random letters and digits.
constexpr std::string_view storagePrefix = ".VeskoTransferIntermediateStorage";
constexpr std::string_view storageDateFormat = "yyyyMMddhhmmss";
constexpr std::size_t storageDateLength = 14;
constexpr std::size_t storageRandomLength = 32;

/// No file system of Linux takes a longer name (NAME_MAX, limits.h), bytes.
constexpr std::size_t maximumLength = 255;

/// True for what a transfer may have called its storage folder, as any file system may list it: some know no letter
/// case.
[[nodiscard]] bool isStorageName(std::string_view name) noexcept;

/// `name` with `counter` in parentheses before its extension: "photo (2).jpg". A name that would be too long loses
/// whole characters before the parentheses; they come last where an extension leaves no room for any.
[[nodiscard]] std::string numberedName(const std::string& name, std::uint64_t counter);

}  // namespace vesko::DeliveryNames
