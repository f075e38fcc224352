#include "platform/linux/x11/Edid.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kBlockSize = 128;
constexpr std::array<std::uint8_t, 8> kHeader{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};

constexpr std::size_t kFirstDescriptor = 54;
constexpr std::size_t kDescriptorSize = 18;
constexpr std::size_t kDescriptorCount = 4;
constexpr std::uint8_t kProductNameTag = 0xFC;

/// A descriptor's text: up to a line feed, without the blanks that fill it up.
std::string textOf(std::span<const std::uint8_t> bytes) {
  std::string text(bytes.begin(), std::ranges::find(bytes, std::uint8_t{'\n'}));
  text.erase(text.find_last_not_of(std::string_view(" \0", 2)) + 1);
  std::ranges::replace_if(
      text, [](char character) { return character < 0x20 || character > 0x7E; }, '?');
  return text;
}

std::string productNameIn(std::span<const std::uint8_t> block) {
  for (std::size_t i = 0; i < kDescriptorCount; ++i) {
    const auto descriptor = block.subspan(kFirstDescriptor + i * kDescriptorSize, kDescriptorSize);
    // Three zeros where a video timing would have its pixel clock.
    const bool isText = descriptor[0] == 0 && descriptor[1] == 0 && descriptor[2] == 0;
    if (isText && descriptor[3] == kProductNameTag) return textOf(descriptor.subspan(5));
  }
  return {};
}

}  // namespace

std::optional<EdidBlock> EdidBlock::parse(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kBlockSize) return std::nullopt;
  const auto block = bytes.first(kBlockSize);
  if (!std::ranges::equal(block.first(kHeader.size()), kHeader)) return std::nullopt;
  if (std::accumulate(block.begin(), block.end(), 0U) % 256 != 0) return std::nullopt;

  EdidBlock edid;
  edid.manufacturer = static_cast<std::uint16_t>(block[8] << 8 | block[9]);
  edid.productCode = static_cast<std::uint16_t>(block[11] << 8 | block[10]);
  for (std::size_t i = 4; i-- > 0;) edid.serialNumber = edid.serialNumber << 8 | block[12 + i];
  edid.productName = productNameIn(block);
  return edid;
}

}  // namespace QelUtilVideo
