#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/Dictionary.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// A window's number at the window server.
using CGWindowID = std::uint32_t;
/// No window.
inline constexpr CGWindowID kCGNullWindowID = 0;

/// Which windows a list has. Bits; none: all windows, on screen or not.
enum CGWindowListOption : std::uint32_t {
  kCGWindowListOptionAll = 0,
  kCGWindowListOptionOnScreenOnly = 1,
  kCGWindowListOptionOnScreenAboveWindow = 2,  ///< of those on screen, the ones above the given window
  kCGWindowListOptionIncludingWindow = 8,      ///< the given window, with the other ones asked for or alone
  kCGWindowListExcludeDesktopElements = 16,
};

/// How an image of windows is made. Bits.
enum CGWindowImageOption : std::uint32_t {
  kCGWindowImageDefault = 0,
  kCGWindowImageBoundsIgnoreFraming = 1,  ///< without shadows and the like; here they are never in it
  kCGWindowImageShouldBeOpaque = 2,       ///< every pixel of the window is as opaque as can be
  kCGWindowImageBestResolution = 8,       ///< one pixel of the image per pixel of the screen
};

// The keys of a window's description. Any may be missing but for the number.
inline constexpr const char* kCGWindowNumber = "kCGWindowNumber";          ///< unsigned 32-bit
inline constexpr const char* kCGWindowOwnerPID = "kCGWindowOwnerPID";      ///< signed 32-bit
inline constexpr const char* kCGWindowOwnerName = "kCGWindowOwnerName";    ///< text
inline constexpr const char* kCGWindowName = "kCGWindowName";              ///< text
inline constexpr const char* kCGWindowLayer = "kCGWindowLayer";            ///< signed 32-bit
inline constexpr const char* kCGWindowAlpha = "kCGWindowAlpha";            ///< double, 0 to 1
inline constexpr const char* kCGWindowBounds = "kCGWindowBounds";          ///< rectangle dictionary
inline constexpr const char* kCGWindowIsOnscreen = "kCGWindowIsOnscreen";  ///< boolean

/// A rectangle as a dictionary with the doubles "X", "Y", "Width" and "Height".
[[nodiscard]] Dictionary CGRectCreateDictionaryRepresentation(const CGRect& rect);
/// The rectangle of such a dictionary; absent when one of the four is missing or no double.
[[nodiscard]] std::optional<CGRect> CGRectMakeWithDictionaryRepresentation(const Dictionary& dictionary);

/// A program that runs.
struct NSRunningApplication {
  /// Its identifier among all applications, e.g. "org.gnome.TextEditor"; absent when it has none.
  std::optional<std::string> bundleIdentifier;
};

/// What the window server knows of windows, and their pictures. Any thread; a call may wait for the server.
/// Without one, or after it died, lists are absent and images null; a window that is gone between two
/// requests is left out. Rectangles are in global display coordinates (points, origin top-left, y downward).
class WindowServer {
 public:
  virtual ~WindowServer() = default;

  /// Descriptions, front to back: windows on screen, those that are not, and last the desktop itself, unless
  /// the options leave it out. Relative to a window on screen: the windows above it, then (where included)
  /// itself. Relative to one that is not on screen or gone: every window on screen, then the desktop, so
  /// that the last entry is never mistaken for the window. Absent when the server cannot be asked.
  [[nodiscard]] virtual std::optional<std::vector<Dictionary>> CGWindowListCopyWindowInfo(
      std::uint32_t options, CGWindowID relativeTo) = 0;

  /// The descriptions of those windows that the server knows, in the order given.
  [[nodiscard]] virtual std::vector<Dictionary> CGWindowListCreateDescriptionFromArray(
      std::span<const CGWindowID> windows) = 0;

  /// One image of the windows that a list with these options has, in that rectangle; the null rectangle is
  /// their bounds' union. Null when there is nothing to show: no such window, an empty rectangle, pixels that
  /// the server does not have. An image's bytes move when they are first asked for; then it shows the windows
  /// of that moment, at the size of this one, and has no bytes when that cannot be had any more.
  [[nodiscard]] virtual std::shared_ptr<CGImage> CGWindowListCreateImage(const CGRect& rect,
                                                                         std::uint32_t options,
                                                                         CGWindowID window,
                                                                         std::uint32_t imageOptions) = 0;

  /// One image of exactly these windows in the server's stacking order, whatever the order given, as large as
  /// the rectangle (one pixel per point) and transparent where none of them is; for the null rectangle as
  /// above. Windows that are gone, and numbers given twice, are left out; null when none is left.
  [[nodiscard]] virtual std::shared_ptr<CGImage> CGWindowListCreateImageFromArray(
      const CGRect& rect, std::span<const CGWindowID> windows, std::uint32_t imageOptions) = 0;

  /// The program that runs as this process; absent when none does.
  [[nodiscard]] virtual std::optional<NSRunningApplication> runningApplicationWithProcessIdentifier(
      std::int32_t processIdentifier) = 0;
};

}  // namespace QelUtilVideo
