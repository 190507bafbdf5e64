#include "VeskoKit/TransferStream.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Platform/text/TextEncoding.h"

namespace vesko::TransferStream {
namespace {

// Not by `pack`, which is slower: each element has such a number, and there may be many small elements.
void appendLittleEndian(std::string& bytes, std::uint64_t number) {
  for (std::size_t i = 0; i < sizeof number; ++i) bytes += static_cast<char>(number >> (8 * i) & 0xFF);
}

std::uint64_t littleEndianAt(std::string_view bytes, std::size_t position) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < sizeof number; ++i) {
    number |= std::uint64_t{static_cast<std::uint8_t>(bytes[position + i])} << (8 * i);
  }
  return number;
}

template <class Visit>
void forEachComponent(std::string_view name, Visit visit) {
  while (!name.empty()) {
    const std::size_t length = std::min(name.find('/'), name.size());
    visit(name.substr(0, length));
    name.remove_prefix(std::min(length + 1, name.size()));
  }
}

bool leadsToItself(std::string_view component) noexcept { return component.empty() || component == "."; }

}  // namespace

Data encodeMetadata(const Metadata& metadata) {
  std::string bytes;
  appendLittleEndian(bytes, metadata.elementCount);
  appendLittleEndian(bytes, metadata.totalSize);
  return Data(std::move(bytes));
}

Metadata decodeMetadata(const Data& bytes) {
  assert(bytes.size() == metadataLength);
  return {littleEndianAt(bytes.view(), 0), littleEndianAt(bytes.view(), sizeof(std::uint64_t))};
}

Data encodeHeader(std::string_view name, std::uint64_t sizeField) {
  std::string header;
  header.reserve(name.size() + 1 + sizeFieldLength);
  header.append(name).push_back('\0');
  appendLittleEndian(header, sizeField);
  return Data(std::move(header));
}

std::uint64_t decodeSizeField(const Data& bytes) {
  assert(bytes.size() == sizeFieldLength);
  return littleEndianAt(bytes.view(), 0);
}

bool isText(std::string_view name, std::uint64_t elementCount) noexcept {
  return elementCount == 1 && name == textName;
}

NameVerdict checkName(std::string_view name) noexcept {
  if (name.size() > maximumNameLength) return NameVerdict::tooLong;
  bool isUnsafe = name.starts_with('/');
  std::size_t depth = 0;
  forEachComponent(name, [&](std::string_view component) {
    isUnsafe = isUnsafe || component == "..";
    if (!leadsToItself(component)) ++depth;
  });
  if (isUnsafe || depth == 0) return NameVerdict::unsafe;
  if (depth > maximumNameDepth) return NameVerdict::tooDeep;
  return isValidUtf8(name) ? NameVerdict::good : NameVerdict::invalid;
}

std::vector<std::string> componentsOfName(std::string_view name) {
  std::vector<std::string> components;
  forEachComponent(name, [&](std::string_view component) {
    if (!leadsToItself(component)) components.emplace_back(component);
  });
  return components;
}

}  // namespace vesko::TransferStream
