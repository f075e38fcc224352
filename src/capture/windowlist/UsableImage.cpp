#include "capture/windowlist/UsableImage.h"

#include <QelUtilVideo/platform/CGImage.h>

namespace QelUtilVideo::windowlist {

bool isUsableImage(const CGImage& image) {
  const CGImageLayout& layout = image.layout();
  return layout.colorSpaceModel == CGColorSpaceModel::rgb && layout.bitsPerComponent == 8 &&
         layout.bitsPerPixel == 32 && layout.width >= 2 && layout.height >= 2;
}

}  // namespace QelUtilVideo::windowlist
