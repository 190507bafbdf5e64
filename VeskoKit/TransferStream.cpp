#include "VeskoKit/TransferStream.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "Platform/TextEncoding.h"
#include "VeskoKit/BinUtils.h"

namespace vesko::TransferStream {
namespace {

constexpr std::string_view metadataFormat = "<QQ";
constexpr std::string_view sizeFieldFormat = "<Q";

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
  return pack(metadataFormat, {metadata.elementCount, metadata.totalSize});
}

Metadata decodeMetadata(const Data& bytes) {
  const auto values = unpack(metadataFormat, bytes);
  return {std::get<std::uint64_t>(values[0]), std::get<std::uint64_t>(values[1])};
}

Data encodeHeader(std::string_view name, std::uint64_t sizeField) {
  const Data packedSize = pack(sizeFieldFormat, {sizeField});
  std::string header;
  header.reserve(name.size() + 1 + sizeFieldLength);
  header.append(name).push_back('\0');
  header.append(packedSize.view());
  return Data(std::move(header));
}

std::uint64_t decodeSizeField(const Data& bytes) {
  return std::get<std::uint64_t>(unpack(sizeFieldFormat, bytes).front());
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
