#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Numbers and names as people read them. Pure functions; any thread.
namespace vesko {

/// "1 byte", "999 bytes", "1.2 kB", "34.5 MB", "678 GB": powers of 1000, as disks and networks are sold by.
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

/// "112 MB/s" for bytes per second.
[[nodiscard]] std::string rateText(double bytesPerSecond);

/// "0.4 s" and "12.0 s" below a minute, then "3:25", then "1:02:03".
[[nodiscard]] std::string durationText(double seconds);

/// The same in whole seconds, "0:12", for what is only an estimate.
[[nodiscard]] std::string clockText(double seconds);

/// "1 element", "2 elements".
[[nodiscard]] std::string countText(std::uint64_t count, std::string_view noun);

/// How many columns a terminal needs for `text`: none for combining characters, two for wide ones. A byte that is not
/// UTF-8 counts as one.
[[nodiscard]] std::size_t columnsOf(std::string_view text) noexcept;

/// `text` in at most `columns` columns: of one that is longer the end, which tells the files of a folder apart, behind
/// an ellipsis.
[[nodiscard]] std::string fittedText(std::string_view text, std::size_t columns);

/// How far a transfer has come.
struct ProgressView {
  std::string name;  ///< of the element under way, free of control characters
  std::uint64_t elementCount = 0;
  std::uint64_t finishedElements = 0;
  std::uint64_t totalSize = 0;
  std::uint64_t finishedBytes = 0;
  double rate = 0;           ///< bytes per second
  std::string waiting = {};  ///< what it waits for; then that is shown in place of rate and time left
};

/// One line of at most `columns` columns: name, bar, bytes, rate, time left (or what it waits for), elements done of
/// all. What does not fit is left out: the name first, then the bar, then the numbers from the end. Numbers that cannot
/// be (more bytes than announced) are taken as they come.
[[nodiscard]] std::string progressLine(const ProgressView& view, std::size_t columns);

}  // namespace vesko
