#include "platform/WindowServer.h"

namespace QelUtilVideo {

Dictionary CGRectCreateDictionaryRepresentation(const CGRect& rect) {
  return {
      {"X", rect.origin.x}, {"Y", rect.origin.y}, {"Width", rect.size.width}, {"Height", rect.size.height}};
}

std::optional<CGRect> CGRectMakeWithDictionaryRepresentation(const Dictionary& dictionary) {
  const auto* x = dictionary.get<double>("X");
  const auto* y = dictionary.get<double>("Y");
  const auto* width = dictionary.get<double>("Width");
  const auto* height = dictionary.get<double>("Height");
  if (!x || !y || !width || !height) return std::nullopt;
  return CGRectMake(*x, *y, *width, *height);
}

}  // namespace QelUtilVideo
