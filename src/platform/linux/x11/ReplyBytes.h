#pragma once

#include "platform/Images.h"
#include "platform/linux/x11/X11Connection.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace QelUtilVideo {

/// For requests of pixels: all bits of each.
inline constexpr std::uint32_t kAllPlanes = 0xFFFFFFFF;

/// Pixels where the server's reply has them.
class ReplyBytes : public ImageBytes {
 public:
  explicit ReplyBytes(XcbReply<xcb_get_image_reply_t> reply) : reply_(std::move(reply)) {}
  std::byte* data() override { return reinterpret_cast<std::byte*>(xcb_get_image_data(reply_.get())); }
  std::size_t size() const override {
    return static_cast<std::size_t>(xcb_get_image_data_length(reply_.get()));
  }

 private:
  XcbReply<xcb_get_image_reply_t> reply_;
};

}  // namespace QelUtilVideo
