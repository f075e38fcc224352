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
  ~WindowPixels();

  /// Whether there are pixels of one of the windows, which are the list's; from then on the server keeps
  /// them whole.
  [[nodiscard]] bool probe(const std::shared_ptr<const WindowList>& list,
                           const std::vector<WindowRecord>& windows);

  /// The chosen windows, as they are at one moment, in `area` (absent: the union of their bounds). Null when
  /// none of them has pixels, or the area is none that a picture can have.
  [[nodiscard]] std::shared_ptr<CGImage> fetch(const Selection& selection, std::optional<PixelRect> area,
                                               Opacity opacity);

  /// Gives up the pictures that the server keeps, those of windows that are not on screen with them, and has
  /// it draw windows to the screen directly again. Whoever asks next begins anew.
  void release();

  /// How the server lays out the window's pixels; absent when it cannot say.
  [[nodiscard]] std::optional<X11PixelFormat> formatOf(const WindowRecord& window) const;
  /// Whether a picture can be that large.
  [[nodiscard]] static bool isPossible(const PixelRect& area);
  /// The union of the windows' bounds.
  [[nodiscard]] static PixelRect boundsOf(const std::vector<WindowRecord>& windows);

 private:
  using Use = X11Connection::Use;
  /// What is asked of the server about one window.
  struct Question;
  /// Pieces of the windows that have pixels.
  struct Answer {
    std::vector<WindowPiece> pieces;
    bool isStale = false;    ///< a window was other than its record
    bool hasPixels = false;  ///< of at least one window there are some, inside the area or not
  };

  /// Which picture of a window that is on screen.
  enum class Source { now, kept };

  /// Whether a picture can show it; if not, it has no pixels.
  [[nodiscard]] bool isShowable(const WindowRecord& window) const;
  /// Whether its last picture can stand for it.
  [[nodiscard]] bool hasPicture(const WindowRecord& window) const REQUIRES(mutex_);
  [[nodiscard]] Answer ask(const WindowList& list, const std::vector<WindowRecord>& windows,
                           const PixelRect& area, Source source) REQUIRES(mutex_);
  [[nodiscard]] std::optional<Question> questionAbout(const Use& use, const WindowList& list,
                                                      const WindowRecord& window, const PixelRect& area,
                                                      Source source) REQUIRES(mutex_);
  void send(const Use& use, Question& question) REQUIRES(mutex_);
  /// Of the replies, those that nobody has taken.
  static void discard(const Use& use, const Question& question);
  /// Brings what is kept in line with the windows that there are.
  void follow(const Use& use, const std::shared_ptr<const WindowList>& list) REQUIRES(mutex_);
  void take(const Use& use, Question& question, Answer& answer) REQUIRES(mutex_);
  [[nodiscard]] std::shared_ptr<ImageBytes> takePixels(const Use& use, Question& question);
  /// False when the window is gone.
  [[nodiscard]] static bool takeShape(const Use& use, Question& question);
  [[nodiscard]] bool isStillThatSize(const Use& use, Question& question) REQUIRES(mutex_);

  const std::shared_ptr<X11Connection> connection_;
  const std::shared_ptr<WindowTable> table_;
  const bool hasShapes_;
  const bool hasPixmaps_;  ///< none: what the screen shows where the window is
  ShmPool pool_;
  Mutex mutex_;
  WindowPixmaps pixmaps_ GUARDED_BY(mutex_);
  std::shared_ptr<const WindowList> list_ GUARDED_BY(mutex_);  ///< the one that was followed last
  /// The one before, which a slower thread may still hold; it is not gone back to.
  std::shared_ptr<const WindowList> formerList_ GUARDED_BY(mutex_);
  bool isRefreshDue_ GUARDED_BY(mutex_) = false;  ///< windows may have other pictures than those kept
};

}  // namespace QelUtilVideo
