#pragma once

#include "platform/Dispatch.h"

namespace QelUtilVideo {

/// A data-add source on top of any queue.
[[nodiscard]] std::unique_ptr<DispatchDataAddSource> makeDataAddSourceOn(
    const std::shared_ptr<DispatchQueue>& queue);

}  // namespace QelUtilVideo
