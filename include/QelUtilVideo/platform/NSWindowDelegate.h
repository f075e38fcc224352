#pragma once

#include <QelUtilVideo/platform/Export.h>

namespace QelUtilVideo {

class NSWindow;
struct NSEvent;

/// Told about a window; implemented by the host. Held weakly. All methods are optional and called on the
/// main thread; what they throw goes to the system log. Closing the window in any of them is allowed.
class QEL_EXPORT NSWindowDelegate {
 public:
  virtual ~NSWindowDelegate();

  /// A person asks for the window to be closed, by its title bar for example. True closes it.
  virtual bool windowShouldClose(NSWindow& window);
  /// The window is about to be closed: by the host, by a person, because a foreign window was destroyed or
  /// because its display server is lost. Told once.
  virtual void windowWillClose(NSWindow& window);
  virtual void windowDidResize(NSWindow& window);
  /// `screen()` is another one, or none, since the window is not shown.
  virtual void windowDidChangeScreen(NSWindow& window);
  /// A key was pressed while the window had the keyboard.
  virtual void windowKeyDown(NSWindow& window, const NSEvent& event);
};

}  // namespace QelUtilVideo
