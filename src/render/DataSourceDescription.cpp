#include "render/DataSourceDescription.h"

namespace QelUtilVideo {

std::string dataSourceDescription(const std::shared_ptr<RenderViewDataSource>& source) {
  if (!source) return "<nil>";
  try {
    return source->description();
  } catch (...) {
    return source->NSObject::description();
  }
}

}  // namespace QelUtilVideo
