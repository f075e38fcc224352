#pragma once

#include <QelUtilVideo/platform/NSObject.h>

#include <memory>

namespace QelUtilVideo {

class RenderViewData;

/// A live source of frames. Views keep it by reference and compare its identity; they read it on the
/// main thread or on their drawing thread, so it must be safe to read while the host writes. Views read it
/// with their context locked: reading must not wait for the main thread, which may be waiting for that.
class QEL_EXPORT RenderViewDataSource : public virtual NSObject {
 public:
  /// Timestamp of the frame held now, seconds.
  [[nodiscard]] virtual double timestamp() const = 0;
  /// Whether the source holds a picture now.
  [[nodiscard]] virtual bool hasImage() const = 0;
  /// A snapshot of the frame held now; never null.
  [[nodiscard]] virtual std::shared_ptr<const RenderViewData> data() const = 0;
};

}  // namespace QelUtilVideo
