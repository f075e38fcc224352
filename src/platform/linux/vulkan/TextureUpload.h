#pragma once

#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/Submission.h"

#include <memory>

namespace QelUtilVideo {

/// Has what a texture is to show copied into it before what is recorded from here on, outside of passes,
/// reads it; nothing to do once that was sent off.
void recordUpload(const std::shared_ptr<GpuTexture>& texture, Submission& submission);

}  // namespace QelUtilVideo
