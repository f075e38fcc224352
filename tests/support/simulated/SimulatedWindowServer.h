#pragma once

#include "platform/Images.h"
#include "platform/Synchronised.h"
#include "platform/WindowServer.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace QelUtilVideo {

enum class WindowPicture : std::uint8_t {
  usable,
  none,         ///< no image can be had
  sixteenBits,  ///< one of 16 bits per pixel
  grey,
  lostBytes,  ///< the provider cannot give the bytes
};

/// A window of one colour.
struct ListedWindow {
  CGWindowID id = 1;
  std::int32_t owner = 100;
  std::string ownerName = "Editor";
  std::string name = "Document";
  std::int32_t layer = 0;
  double alpha = 1;
  CGRect bounds = CGRectMake(0, 0, 200, 150);
  bool isOnScreen = true;
  std::uint32_t color = 0xff336699;  ///< 0xAARRGGBB
  WindowPicture picture = WindowPicture::usable;
  std::vector<std::string> missing = {};  ///< keys that its description does not have
};

/// Windows as the test lists them, front to back, before a desktop of its own.
class SimulatedWindowServer final : public WindowServer {
 public:
  static constexpr CGWindowID desktop = 0xffff;
  /// What was asked.
  struct Requests {
    int lists = 0;
    int descriptions = 0;
    int images = 0;
    int pixels = 0;                  ///< images whose bytes were asked for
    std::uint32_t imageOptions = 0;  ///< of the last image
    CGRect rect;                     ///< of the last image of several windows
    std::vector<CGWindowID> windows = {};
  };

  void set(std::vector<ListedWindow> windows) {
    state_.with([&](State& state) { std::swap(state.windows, windows); });
  }
  /// Changes one window in place.
  void change(CGWindowID id, const std::function<void(ListedWindow&)>& change) {
    state_.with([&](State& state) {
      for (auto& window : state.windows) {
        if (window.id == id) change(window);
      }
    });
  }
  void setReachable(bool isReachable) {
    state_.with([&](State& state) { state.isReachable = isReachable; });
  }
  void setApplication(std::int32_t process, std::optional<std::string> bundleIdentifier) {
    state_.with([&](State& state) { state.applications[process] = {std::move(bundleIdentifier)}; });
  }
  /// What was asked since the last call.
  [[nodiscard]] Requests takeRequests() {
    return state_.with([](State& state) { return std::exchange(state.requests, {}); });
  }

  // WindowServer
  [[nodiscard]] std::optional<std::vector<Dictionary>> CGWindowListCopyWindowInfo(
      std::uint32_t options, CGWindowID relativeTo) override {
    return state_.with([&](State& state) -> std::optional<std::vector<Dictionary>> {
      ++state.requests.lists;
      if (!state.isReachable) return std::nullopt;
      std::vector<Dictionary> list;
      for (const auto& window : listed(state.windows, options, relativeTo)) list.push_back(describe(window));
      return list;
    });
  }
  [[nodiscard]] std::vector<Dictionary> CGWindowListCreateDescriptionFromArray(
      std::span<const CGWindowID> ids) override {
    return state_.with([&](State& state) {
      ++state.requests.descriptions;
      std::vector<Dictionary> list;
      for (const auto& window : only(state.windows, ids)) list.push_back(describe(window));
      return list;
    });
  }
  [[nodiscard]] std::shared_ptr<CGImage> CGWindowListCreateImage(const CGRect& rect, std::uint32_t options,
                                                                 CGWindowID id,
                                                                 std::uint32_t imageOptions) override {
    return state_.with([&](State& state) {
      ++state.requests.images;
      state.requests.imageOptions = imageOptions;
      return image(rect, listed(state.windows, options, id));
    });
  }
  [[nodiscard]] std::shared_ptr<CGImage> CGWindowListCreateImageFromArray(
      const CGRect& rect, std::span<const CGWindowID> ids, std::uint32_t imageOptions) override {
    return state_.with([&](State& state) {
      ++state.requests.images;
      state.requests.imageOptions = imageOptions;
      state.requests.rect = rect;
      state.requests.windows.assign(ids.begin(), ids.end());
      return image(rect, only(state.windows, ids));
    });
  }
  [[nodiscard]] std::optional<NSRunningApplication> runningApplicationWithProcessIdentifier(
      std::int32_t process) override {
    return state_.with([&](State& state) -> std::optional<NSRunningApplication> {
      const auto found = state.applications.find(process);
      return found == state.applications.end() ? std::nullopt : std::optional(found->second);
    });
  }

 private:
  using Windows = std::vector<ListedWindow>;
  struct State {
    Windows windows;
    bool isReachable = true;
    std::map<std::int32_t, NSRunningApplication> applications;
    Requests requests;
  };
  /// Paints when asked, and counts that.
  class Provider final : public CGDataProvider {
   public:
    explicit Provider(std::function<std::shared_ptr<ImageBytes>()> paint) : paint_(std::move(paint)) {}
    [[nodiscard]] std::shared_ptr<ImageBytes> bytes() override {
      if (!bytes_) bytes_ = paint_();
      return bytes_;
    }

   private:
    std::function<std::shared_ptr<ImageBytes>()> paint_;
    std::shared_ptr<ImageBytes> bytes_;
  };

  static Windows only(const Windows& windows, std::span<const CGWindowID> ids) {
    Windows found;
    std::copy_if(windows.begin(), windows.end(), std::back_inserter(found), [&](const auto& window) {
      return std::find(ids.begin(), ids.end(), window.id) != ids.end();
    });
    return found;
  }
  static Windows listed(const Windows& windows, std::uint32_t options, CGWindowID relativeTo) {
    constexpr std::uint32_t both =
        kCGWindowListOptionOnScreenAboveWindow | kCGWindowListOptionIncludingWindow;
    if ((options & both) == kCGWindowListOptionIncludingWindow) return only(windows, {&relativeTo, 1});
    Windows list;
    const bool isAbove = options & kCGWindowListOptionOnScreenAboveWindow;
    for (const auto& window : windows) {
      if (!window.isOnScreen && (isAbove || options & kCGWindowListOptionOnScreenOnly)) continue;
      const bool isLast = isAbove && window.id == relativeTo;
      if (!isLast || options & kCGWindowListOptionIncludingWindow) list.push_back(window);
      if (isLast) return list;
    }
    if (!(options & kCGWindowListExcludeDesktopElements)) {
      list.push_back({.id = desktop, .owner = -1, .ownerName = "Server", .name = "", .layer = -0x7fffffff});
    }
    return list;
  }
  static Dictionary describe(const ListedWindow& window) {
    Dictionary all{{kCGWindowNumber, window.id},
                   {kCGWindowOwnerPID, window.owner},
                   {kCGWindowOwnerName, window.ownerName},
                   {kCGWindowName, window.name},
                   {kCGWindowLayer, window.layer},
                   {kCGWindowAlpha, window.alpha},
                   {kCGWindowBounds, CGRectCreateDictionaryRepresentation(window.bounds)},
                   {kCGWindowIsOnscreen, window.isOnScreen}};
    Dictionary present;
    for (const auto& [key, value] : all.entries()) {
      if (std::find(window.missing.begin(), window.missing.end(), key) == window.missing.end()) {
        present.set(key, value);
      }
    }
    return present;
  }

  /// The windows in the rectangle, or in their bounds' union for the null one, over a transparent ground.
  std::shared_ptr<CGImage> image(CGRect rect, const Windows& windows) {
    if (windows.empty()) return nullptr;
    if (CGRectIsNull(rect)) {
      for (const auto& window : windows) rect = CGRectUnion(rect, window.bounds);
    }
    CGImageLayout layout;
    layout.width = static_cast<std::size_t>(rect.size.width);
    layout.height = static_cast<std::size_t>(rect.size.height);
    layout.bytesPerRow = layout.width * 4;
    bool isLost = false;
    for (const auto& window : windows) {
      if (window.picture == WindowPicture::none) return nullptr;
      if (window.picture == WindowPicture::grey) layout.colorSpaceModel = CGColorSpaceModel::monochrome;
      if (window.picture == WindowPicture::sixteenBits) layout.bitsPerPixel = 16;
      isLost = isLost || window.picture == WindowPicture::lostBytes;
    }
    return std::make_shared<CGImage>(layout, std::make_shared<Provider>([=, this] {
                                       return isLost ? nullptr : paint(rect, layout, windows);
                                     }));
  }
  std::shared_ptr<ImageBytes> paint(const CGRect& rect, const CGImageLayout& layout, const Windows& windows) {
    auto bytes = makeHeapBytes(layout.bytesPerRow * layout.height);
    std::memset(bytes->data(), 0, bytes->size());
    for (std::size_t y = 0; y < layout.height; ++y) {
      for (std::size_t x = 0; x < layout.width; ++x) {
        const CGPoint point{rect.origin.x + static_cast<double>(x), rect.origin.y + static_cast<double>(y)};
        const auto top = std::find_if(windows.begin(), windows.end(), [&](const auto& window) {
          return CGRectContainsPoint(window.bounds, point);
        });
        if (top == windows.end()) continue;
        std::memcpy(bytes->data() + y * layout.bytesPerRow + 4 * x, &top->color, sizeof top->color);
      }
    }
    state_.with([](State& state) { ++state.requests.pixels; });
    return bytes;
  }

  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
