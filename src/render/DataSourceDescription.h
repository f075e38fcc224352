#pragma once

#include <QelUtilVideo/RenderViewDataSource.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

/// The source as log lines name it: its own description; "<nil>" for none. A source whose description
/// throws is named by class and address.
[[nodiscard]] std::string dataSourceDescription(const std::shared_ptr<RenderViewDataSource>& source);

}  // namespace QelUtilVideo
