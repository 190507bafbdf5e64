#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Numbers, names and progress as text for people. Pure functions; any thread.
namespace vesko {

/// "1 byte", "999 bytes", "1.2 kB", "34.5 MB", "678 GB": powers of 1000, as for disks and networks.
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

/// "112 MB/s" for bytes per second.
[[nodiscard]] std::string rateText(double bytesPerSecond);

/// "0.4 s" and "12.0 s" below a minute, then "3:25", then "1:02:03".
[[nodiscard]] std::string durationText(double seconds);

/// The same in whole seconds, "0:12", for estimates. At most 99 hours.
[[nodiscard]] std::string clockText(double seconds);

/// "1 element", "2 elements".
[[nodiscard]] std::string countText(std::uint64_t count, std::string_view noun);

/// The columns that a terminal needs for `text`: 0 for a combining character, 2 for a wide one. A byte that is not
/// UTF-8 counts as 1.
[[nodiscard]] std::size_t columnsOf(std::string_view text) noexcept;

/// `text` cut to at most `columns` columns: an ellipsis and the end. The end is kept because files in one folder differ
/// there.
[[nodiscard]] std::string fittedText(std::string_view text, std::size_t columns);

/// The state of a transfer, for `progressLine`.
struct ProgressView {
  std::string name;  ///< of the current element, without control characters
  std::uint64_t elementCount = 0;
  std::uint64_t finishedElements = 0;
  std::uint64_t totalSize = 0;
  std::uint64_t finishedBytes = 0;
  double rate = 0;           ///< bytes per second
  std::string waiting = {};  ///< what it waits for; replaces rate and time left; empty: nothing
};

/// One line of at most `columns` columns: name, bar, percent, bytes, rate, time left (or what it waits for), elements.
/// In a narrow terminal the name is omitted first, then the bar, then the numbers from the end. Accepts impossible
/// numbers, such as more bytes than announced: they come from the other side.
[[nodiscard]] std::string progressLine(const ProgressView& view, std::size_t columns);

}  // namespace vesko
