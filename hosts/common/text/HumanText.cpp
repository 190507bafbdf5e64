#include "hosts/common/text/HumanText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "Platform/text/TextEncoding.h"

namespace vesko {
namespace {

constexpr std::string_view ellipsis = "…";

std::string fixedText(double number, int decimals) {
  std::array<char, 400> text;  // the largest double has 309 digits before its point
  const int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
  return {text.data(), static_cast<std::size_t>(length)};
}

/// "1.2 M" and the like, for a `number` of at least 1000.
std::string scaledText(double number) {
  constexpr std::string_view prefixes = "kMGTPE";
  number /= 1000;
  std::size_t prefix = 0;
  // From 999.5 on a number would be rounded to "1000", so it gets the next prefix.
  for (; number >= 999.5 && prefix + 1 < prefixes.size(); ++prefix) number /= 1000;
  return fixedText(number, number < 99.95 ? 1 : 0) + ' ' + prefixes[prefix];
}

/// Padded on the left to the usual width, so that the text beside it does not move with each update.
std::string aligned(const std::string& text, std::size_t columns) {
  return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

std::string twoDigits(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  return number < 10 ? '0' + digits : digits;
}

using Range = std::pair<char32_t, char32_t>;

template <std::size_t count>
bool isIn(const std::array<Range, count>& ranges, char32_t point) noexcept {
  return std::any_of(ranges.begin(), ranges.end(),
                     [point](const Range& range) { return point >= range.first && point <= range.second; });
}

/// Columns of one character. Only the Unicode blocks that are likely in names, not the full tables of the standard.
std::size_t columnsOfCharacter(char32_t point) noexcept {
  constexpr std::array<Range, 6> combining{
      {{0x300, 0x36F}, {0x483, 0x489}, {0x591, 0x5BD}, {0x64B, 0x65F}, {0x200B, 0x200F}, {0xFE00, 0xFE0F}}};
  constexpr std::array<Range, 9> wide{{{0x1100, 0x115F},
                                       {0x2E80, 0xA4CF},
                                       {0xAC00, 0xD7A3},
                                       {0xF900, 0xFAFF},
                                       {0xFE30, 0xFE6F},
                                       {0xFF00, 0xFF60},
                                       {0xFFE0, 0xFFE6},
                                       {0x1F300, 0x1FAFF},
                                       {0x20000, 0x3FFFD}}};
  if (isIn(combining, point)) return 0;
  return isIn(wide, point) ? 2 : 1;
}

/// Removes the first character from `text` and returns its columns. Requires: `text` is not empty.
std::size_t takeColumns(std::string_view& text) noexcept {
  const auto [codePoint, length] = firstUtf8Character(text);
  text.remove_prefix(std::max<std::size_t>(length, 1));
  return length == 0 ? 1 : columnsOfCharacter(codePoint);
}

std::string barText(double fraction, std::size_t columns) {
  const std::size_t inside = columns - 2;
  const auto filled = static_cast<std::size_t>(fraction * static_cast<double>(inside));
  return '[' + std::string(filled, '=') + std::string(inside - filled, ' ') + ']';
}

std::string timeLeftText(const ProgressView& view) {
  if (view.rate < 1 || view.finishedBytes >= view.totalSize) return {};
  return "  " + clockText(static_cast<double>(view.totalSize - view.finishedBytes) / view.rate) + " left";
}

/// As many of the numbers, which two blanks separate, as fit. None is cut: a part of a number would be a wrong number.
std::string wholeNumbers(const std::string& numbers, std::size_t columns) {
  if (numbers.size() <= columns) return numbers;
  const auto blanks = numbers.rfind("  ", columns);
  if (blanks == std::string::npos) return {};
  return numbers.substr(0, numbers.find_last_not_of(' ', blanks) + 1);
}

double fractionOf(const ProgressView& view) {
  if (view.totalSize != 0) {
    return std::min(1.0, static_cast<double>(view.finishedBytes) / static_cast<double>(view.totalSize));
  }
  if (view.elementCount == 0) return 0;
  return std::min(1.0, static_cast<double>(view.finishedElements) / static_cast<double>(view.elementCount));
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
  return bytes < 1000 ? countText(bytes, "byte") : scaledText(static_cast<double>(bytes)) + 'B';
}

std::string rateText(double bytesPerSecond) {
  return bytesPerSecond < 999.5 ? fixedText(bytesPerSecond, 0) + " B/s" : scaledText(bytesPerSecond) + "B/s";
}

std::string durationText(double seconds) { return seconds < 59.95 ? fixedText(seconds, 1) + " s" : clockText(seconds); }

std::string clockText(double seconds) {
  constexpr double longest = 99 * 3600.0;  // a longer estimate is of no use
  const auto whole = static_cast<std::uint64_t>(std::llround(std::clamp(seconds, 0.0, longest)));
  const std::uint64_t minutes = whole / 60;
  if (minutes < 60) return std::to_string(minutes) + ':' + twoDigits(whole % 60);
  return std::to_string(minutes / 60) + ':' + twoDigits(minutes % 60) + ':' + twoDigits(whole % 60);
}

std::string countText(std::uint64_t count, std::string_view noun) {
  return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

std::size_t columnsOf(std::string_view text) noexcept {
  std::size_t columns = 0;
  while (!text.empty()) columns += takeColumns(text);
  return columns;
}

std::string fittedText(std::string_view text, std::size_t columns) {
  std::size_t width = columnsOf(text);
  if (width <= columns) return std::string(text);
  if (columns == 0) return {};
  while (width + 1 > columns) width -= takeColumns(text);
  return std::string(ellipsis).append(text);
}

std::string progressLine(const ProgressView& view, std::size_t columns) {
  constexpr std::size_t shortestName = 8;
  constexpr std::size_t longestName = 40;
  constexpr std::size_t shortestBar = 12;
  constexpr std::size_t longestBar = 32;
  const double fraction = fractionOf(view);
  std::string numbers = aligned(fixedText(std::floor(fraction * 100), 0), 3) + "%  " +
                        aligned(sizeText(view.finishedBytes), 7) + "  " +
                        (view.waiting.empty() ? aligned(rateText(view.rate), 9) + timeLeftText(view) : view.waiting);
  if (view.elementCount > 1) {
    numbers += "  " + std::to_string(view.finishedElements) + '/' + std::to_string(view.elementCount);
  }
  if (numbers.size() + 2 + shortestBar > columns) return wholeNumbers(numbers, columns);
  const std::size_t room = columns - numbers.size() - 2;
  if (view.name.empty() || room < shortestBar + 2 + shortestName) {
    return barText(fraction, std::min(room, longestBar)) + "  " + numbers;
  }
  const std::size_t bar = std::clamp(room / 2, shortestBar, longestBar);
  const std::size_t nameColumns = std::min(room - bar - 2, longestName);
  const std::string name = fittedText(view.name, nameColumns);
  // Padded, so that the bar does not move when the name changes.
  const std::string blanks(nameColumns - columnsOf(name) + 2, ' ');
  return name + blanks + barText(fraction, bar) + "  " + numbers;
}

}  // namespace vesko
