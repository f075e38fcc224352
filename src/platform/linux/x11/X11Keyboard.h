#pragma once

#include "platform/linux/x11/HeldKeys.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/NSEvent.h>

#include <memory>

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace QelUtilVideo {

/// What the keys of the server's keyboard mean, in the layout that is in force. Of a server without the
/// keyboard extension only the modifiers are known, and repeats look like first presses. Main thread.
class X11Keyboard {
 public:
  explicit X11Keyboard(std::shared_ptr<X11Connection> connection);
  ~X11Keyboard();

  [[nodiscard]] NSEvent describe(const KeyPress& press);

 private:
  class LayoutWatch;
  struct Unref {
    void operator()(xkb_context* context) const;
    void operator()(xkb_keymap* keymap) const;
    void operator()(xkb_state* state) const;
  };

  void selectLayoutChanges();
  /// Takes the layout over from the server, several round trips; no keymap when that fails.
  void loadLayout();

  const std::shared_ptr<X11Connection> connection_;
  std::unique_ptr<xkb_context, Unref> context_;
  std::shared_ptr<LayoutWatch> layoutWatch_;  ///< null when the server lacks the extension
  std::unique_ptr<xkb_keymap, Unref> keymap_;
  std::unique_ptr<xkb_state, Unref> state_;
};

}  // namespace QelUtilVideo
