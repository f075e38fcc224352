#include "platform/linux/x11/X11ScreenInput.h"

#include "platform/linux/core/StreamThread.h"
#include "platform/linux/x11/DrawableImage.h"
#include "platform/linux/x11/Monitors.h"
#include "platform/linux/x11/ScreenChanges.h"
#include "platform/linux/x11/X11Cursor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

constexpr std::chrono::nanoseconds kPeriod{1'000'000'000 / 30};
/// A display that is away for less has changed its mode, or its cable was moved.
constexpr std::chrono::milliseconds kLongestAbsence{500};

NSError displayGone() { return {kCaptureErrorDomain, ENODEV, "The display is not connected any more"}; }
NSError serverGone() { return {kCaptureErrorDomain, ENOTCONN, "The connection to the X server is lost"}; }

/// What the cursor adds to a picture.
struct Pointer {
  CGImageRef image;  ///< null: not to be seen
  CGPoint place;     ///< in the picture, pixels, origin top-left

  friend bool operator==(const Pointer& a, const Pointer& b) {
    return a.image == b.image && a.place.x == b.place.x && a.place.y == b.place.y;
  }
};

/// A display's frames, one after another. One thread.
class ScreenFrames {
 public:
  ScreenFrames(std::shared_ptr<X11Connection> connection, CGDirectDisplayID display,
               MakeScreenFrame makeFrame)
      : connection_(std::move(connection)),
        display_(display),
        makeFrame_(std::move(makeFrame)),
        pool_(connection_),
        cursor_(connection_),
        changes_(ScreenChanges::watch(connection_)) {}

  [[nodiscard]] bool isDisplayThere() {
    if (changes_->takeMonitors()) monitors_ = listMonitors(*connection_);
    return find() != monitors_.end();
  }
  /// Whether the picture could be had and no frame be made of it.
  [[nodiscard]] bool hasFailed() const { return hasFailed_; }
  /// The display as it is now, null while nothing can be had of it; or why there is nothing any more.
  [[nodiscard]] Result<CVPixelBufferRef> next();

 private:
  [[nodiscard]] std::vector<Monitor>::const_iterator find() const {
    return std::ranges::find(monitors_, display_, &Monitor::displayID);
  }
  [[nodiscard]] Pointer pointerOn(const Monitor& monitor);
  /// The last frame, for as long as the display may come back.
  [[nodiscard]] Result<CVPixelBufferRef> whileAway();

  const std::shared_ptr<X11Connection> connection_;
  const CGDirectDisplayID display_;
  const MakeScreenFrame makeFrame_;
  ShmPool pool_;
  X11Cursor cursor_;
  const std::shared_ptr<ScreenChanges> changes_;
  std::vector<Monitor> monitors_;
  Pointer pointer_;
  CVPixelBufferRef last_;
  bool hasFailed_ = false;
  bool isOwed_ = false;  ///< something changed of which there is no picture yet
  std::optional<std::chrono::steady_clock::time_point> awaySince_;
};

Pointer ScreenFrames::pointerOn(const Monitor& monitor) {
  const auto location = cursor_.CGEventGetLocation();
  if (!location || !CGRectContainsPoint(monitor.bounds(), *location)) return {};
  const auto cursor = cursor_.currentSystemCursor();
  if (!cursor || !cursor->image || !cursor->image->image()) return {};
  return {cursor->image->image(),
          {location->x - monitor.x - cursor->hotSpot.x, location->y - monitor.y - cursor->hotSpot.y}};
}

Result<CVPixelBufferRef> ScreenFrames::whileAway() {
  if (!connection_->isAlive()) return serverGone();
  const auto now = std::chrono::steady_clock::now();
  if (!awaySince_) awaySince_ = now;
  if (now - *awaySince_ < kLongestAbsence) return last_;
  return displayGone();
}

Result<CVPixelBufferRef> ScreenFrames::next() {
  // The first wait of each frame: with it come the events.
  if (!isDisplayThere()) return whileAway();
  Monitor monitor = *find();
  Pointer pointer = pointerOn(monitor);
  if (!connection_->isAlive()) return serverGone();
  if (!isDisplayThere()) return whileAway();
  awaySince_.reset();
  monitor = *find();
  const bool haveChanged = changes_->takePixels(*connection_);
  if (last_ && !haveChanged && !isOwed_ && pointer == pointer_) return last_;

  auto picture = copyDrawable(*connection_, pool_, connection_->root(),
                              {monitor.x, monitor.y, monitor.width, monitor.height});
  // It may have changed its size just now; the next frame knows.
  isOwed_ = !picture;
  if (!picture) return connection_->isAlive() ? Result<CVPixelBufferRef>(last_) : serverGone();
  last_ = makeFrame_(std::move(picture), pointer.image, pointer.place);
  hasFailed_ = !last_;
  pointer_ = std::move(pointer);
  return last_;
}

/// Sends frames at their times until it is stopped, or nothing comes any more.
void stream(ScreenFrames& frames, StreamReceiver& receiver, const StreamThread::Stop& stop) {
  auto due = std::chrono::steady_clock::now();
  while (stop.sleepUntil(due)) {
    auto frame = frames.next();
    if (!frame.hasValue()) return receiver.failed(frame.error());
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now.time_since_epoch()).count();
    // One without a picture counts as failed.
    if (frame.value() || frames.hasFailed()) receiver.sample({frame.value(), seconds});
    // Times that were missed are left out.
    while (due <= now) due += kPeriod;
  }
}

class ScreenStream final : public CaptureStream {
 public:
  ScreenStream(std::unique_ptr<ScreenFrames> frames, std::shared_ptr<StreamReceiver> receiver)
      : thread_([frames = std::shared_ptr<ScreenFrames>(std::move(frames)),
                 receiver = std::move(receiver)](const StreamThread::Stop& stop) {
          try {
            stream(*frames, *receiver, stop);
          } catch (const std::exception& exception) {
            receiver->failed({kCaptureErrorDomain, ENOMEM, exception.what()});
          }
        }) {}

 private:
  StreamThread thread_;
};

}  // namespace

X11ScreenInput::X11ScreenInput(std::string server, CGDirectDisplayID display,
                               std::function<MakeScreenFrame()> makeMaker)
    : server_(std::move(server)), display_(display), makeMaker_(std::move(makeMaker)) {}

Result<std::unique_ptr<CaptureStream>> X11ScreenInput::open(
    const std::shared_ptr<StreamReceiver>& receiver) try {
  auto connection = X11Connection::open(server_.c_str());
  if (!connection) return serverGone();
  auto frames = std::make_unique<ScreenFrames>(std::move(connection), display_, makeMaker_());
  if (!frames->isDisplayThere()) return displayGone();
  return std::unique_ptr<CaptureStream>(std::make_unique<ScreenStream>(std::move(frames), receiver));
} catch (const std::exception& exception) {
  return NSError{kCaptureErrorDomain, ENOMEM, exception.what()};
}

}  // namespace QelUtilVideo
