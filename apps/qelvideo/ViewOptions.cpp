#include "ViewOptions.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Failure.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

constexpr std::size_t largestSide = 16384;

/// In the order of their numbers, from 1.
constexpr std::array<std::string_view, 8> orientationNames{
    "up", "up-mirrored", "down", "down-mirrored", "left-mirrored", "right", "right-mirrored", "left"};

std::optional<std::uint32_t> number(std::string_view text, int base) {
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value, base);
  if (text.empty() || result.ec != std::errc{} || result.ptr != end) return std::nullopt;
  return value;
}

}  // namespace

std::string_view orientationName(CGImagePropertyOrientation orientation) {
  return orientationNames.at(static_cast<std::size_t>(orientation) - 1);
}

CGSize parseSize(const std::string& text) {
  const std::size_t cross = text.find('x');
  if (cross != std::string::npos) {
    const auto width = number(std::string_view(text).substr(0, cross), 10);
    const auto height = number(std::string_view(text).substr(cross + 1), 10);
    const auto good = [](std::optional<std::uint32_t> side) {
      return side && *side >= 1 && *side <= largestSide;
    };
    if (good(width) && good(height)) return {static_cast<double>(*width), static_cast<double>(*height)};
  }
  throw UsageFailure("\"" + text + "\" is no size; write one as in 640x360, with sides from 1 to 16384");
}

std::shared_ptr<const NSColor> parseColor(const std::string& text) {
  if ((text.size() == 7 || text.size() == 9) && text.front() == '#') {
    auto value = number(std::string_view(text).substr(1), 16);
    if (value && text.size() == 7) value = *value << 8 | 0xff;
    if (value) {
      const auto component = [bits = *value](unsigned shift) { return ((bits >> shift) & 0xff) / 255.0; };
      return NSColor::deviceRGB(component(24), component(16), component(8), component(0));
    }
  }
  throw UsageFailure("\"" + text + "\" is no colour; write one as in #204060, or #20406080 with an opacity");
}

CGImagePropertyOrientation parseOrientation(const std::string& text) {
  const auto value = number(text, 10);
  if (value && *value >= 1 && *value <= orientationNames.size()) return CGImagePropertyOrientation{*value};
  std::string known;
  for (std::size_t i = 0; i < orientationNames.size(); ++i) {
    if (orientationNames[i] == text) return CGImagePropertyOrientation{static_cast<std::uint32_t>(i + 1)};
    known.append(i ? ", " : "").append(orientationNames[i]);
  }
  throw UsageFailure("\"" + text +
                     "\" is no orientation; there are the numbers 1 to 8 and, in their order, " + known);
}

}  // namespace qelvideo
