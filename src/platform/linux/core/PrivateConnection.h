#pragma once

#include "platform/linux/core/PixelSize.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct xcb_connection_t;

namespace QelUtilVideo {

/// A connection to an X server that one driver has for itself: threads that wait for replies on one
/// connection may wait for ever when the server dies, and a slow one holds up the others. One thread at a
/// time; no call raises SIGPIPE.
class PrivateConnection {
 public:
  /// `name` as `DISPLAY` has it; empty: what that says. Null when there is no such server.
  [[nodiscard]] static std::unique_ptr<PrivateConnection> open(const std::string& name);
  PrivateConnection(const PrivateConnection&) = delete;
  PrivateConnection& operator=(const PrivateConnection&) = delete;
  ~PrivateConnection();

  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }
  /// The number of the screen that the name stands for.
  [[nodiscard]] int screen() const { return screen_; }
  /// False once a loss of the server was noticed.
  [[nodiscard]] bool isAlive() const;
  /// Bits per pixel of windows of this visual; 0 when the server has no such visual.
  [[nodiscard]] int depthOf(std::uint32_t visual) const;
  /// Sends what waits to be sent.
  void flush() const;
  /// Asks the server for a window's size in pixels; absent when there is no such window, or no server. Takes
  /// what the server has complained of meanwhile off the connection, where it would pile up.
  [[nodiscard]] std::optional<PixelSize> sizeOf(std::uint32_t window) const;

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const;
  };
  using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

  PrivateConnection(Connection connection, int screen);

  Connection connection_;
  int screen_;
};

}  // namespace QelUtilVideo
