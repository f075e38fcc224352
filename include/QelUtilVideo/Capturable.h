#pragma once

#include <QelUtilVideo/platform/NSError.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

class CapturableOutputDelegate;

/// Something that can be captured: a display, a window or a camera. The managers hand sources out; a
/// source stays the same object for as long as what it stands for stays listed.
///
/// Properties may be read, `start` and `stop` called on any thread, by several at once and from inside a
/// delegate's method too; calls that meet take effect one after the other. Dropping the last reference
/// stops the capture without another event.
class QEL_EXPORT Capturable : public virtual NSObject {
 public:
  /// Identifies the source, stable for as long as it exists.
  [[nodiscard]] virtual std::string uniqueID() const = 0;
  /// For people.
  [[nodiscard]] virtual std::string name() const = 0;
  /// Whether the source can be captured now. May ask the window server or the device.
  [[nodiscard]] virtual bool isAvailable() const = 0;

  /// Kind flags. A window answers true to both `isScreen` and `isWindow`; a display only to `isScreen`.
  [[nodiscard]] virtual bool isCamera() const = 0;
  [[nodiscard]] virtual bool isScreen() const = 0;
  [[nodiscard]] virtual bool isWindow() const = 0;

  /// The delegate given to the last start, if it still lives; null when stopped. Held weakly.
  [[nodiscard]] virtual std::shared_ptr<CapturableOutputDelegate> delegate() const = 0;

  /// Stores the delegate (weakly) and starts capturing; a second start replaces the delegate and leaves
  /// the capture running. Returns true on success; on failure returns false and fills `error` when one
  /// is given. A null delegate captures for nobody.
  virtual bool start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* error = nullptr) = 0;
  /// Stops capturing and forgets the delegate, which is told before this returns, unless another thread is
  /// inside one of its methods: then that thread tells it next. Stopping an idle source does nothing else.
  virtual void stop() = 0;
};

}  // namespace QelUtilVideo
