#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

/// The terminal behind the standard streams of the process. Any thread.
namespace vesko::Terminal {

enum class Stream : std::uint8_t { input, output, error };

/// True when the stream is a terminal.
[[nodiscard]] bool isTerminal(Stream stream) noexcept;

/// The width of the terminal in columns; none when the stream is no terminal or the terminal does not tell.
[[nodiscard]] std::optional<std::size_t> columns(Stream stream) noexcept;

}  // namespace vesko::Terminal
