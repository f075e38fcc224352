#pragma once

#include "platform/ThreadSafety.h"
#include "platform/linux/x11/ShmPool.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowPiece.h"
#include "platform/linux/x11/windowserver/WindowPixmaps.h"
#include "platform/linux/x11/windowserver/WindowTable.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// Pictures of a server's windows. Any thread; one picture is fetched at a time.
class WindowPixels {
 public:
  /// Chooses the windows that a picture shows, the first one at the back.
  using Selection = std::function<std::vector<WindowRecord>(const WindowList&)>;

  WindowPixels(std::shared_ptr<X11Connection> connection, std::shared_ptr<WindowTable> table);
  WindowPixels(const WindowPixels&) = delete;
  WindowPixels& operator=(const WindowPixels&) = delete;

  /// Whether there are pixels of the window; from then on the server keeps them whole.
  [[nodiscard]] bool probe(const WindowRecord& window);

  /// The chosen windows, as they are at one moment, in `area` (absent: the union of their bounds). Null when
  /// none of them has pixels, or the area is none that a picture can have.
  [[nodiscard]] std::shared_ptr<CGImage> fetch(const Selection& selection, std::optional<PixelRect> area,
                                               Opacity opacity);

  /// Whether a picture can be that large.
  [[nodiscard]] static bool isPossible(const PixelRect& area);
  /// The union of the windows' bounds.
  [[nodiscard]] static PixelRect boundsOf(const std::vector<WindowRecord>& windows);

 private:
  using Use = X11Connection::Use;
  /// What is asked of the server about one window.
  struct Question;
  /// Pieces, or none while windows change faster than one can ask.
  struct Answer {
    std::vector<WindowPiece> pieces;
    bool isStale = false;    ///< a window was other than its record
    bool hasPixels = false;  ///< at least one window had some, inside the area or not
  };

  [[nodiscard]] Answer ask(const std::vector<WindowRecord>& windows, const PixelRect& area) REQUIRES(mutex_);
  [[nodiscard]] std::optional<Question> questionAbout(const Use& use, const WindowRecord& window,
                                                      const PixelRect& area) REQUIRES(mutex_);
  void take(const Use& use, Question& question, Answer& answer) REQUIRES(mutex_);
  [[nodiscard]] std::shared_ptr<ImageBytes> takePixels(const Use& use, Question& question);
  /// Of a window that is not all of its rectangle; in the root's coordinates.
  [[nodiscard]] std::vector<PixelRect> askShape(const Use& use, const WindowRecord& window) const;
  [[nodiscard]] bool isStillThatSize(const Use& use, Question& question) REQUIRES(mutex_);

  const std::shared_ptr<X11Connection> connection_;
  const std::shared_ptr<WindowTable> table_;
  ShmPool pool_;
  bool hasShapes_ = false;
  Mutex mutex_;
  WindowPixmaps pixmaps_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
