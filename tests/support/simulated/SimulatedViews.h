#pragma once

#include "platform/Views.h"

#include <QelUtilVideo/platform/NSEvent.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// One surface as the library placed it, and what the display may say about it.
struct SimulatedSurface {
  NativeWindow native;
  std::weak_ptr<ViewSurfaceClient> client;
  CGRect frame;
  bool hidden = true;
  int raisedAt = 0;  ///< the higher, the nearer to the viewer

  void expose() const {
    if (const auto told = client.lock()) told->surfaceExposed();
  }
  void occlude(bool occluded) const {
    if (const auto told = client.lock()) told->surfaceOccluded(occluded);
  }
};

/// One window of the scripted display; the test moves it, and it lives on when the library lets go.
class SimulatedWindow {
 public:
  std::uint32_t number = 0;
  std::string title;
  WindowBacking::State state;
  bool open = true;  ///< the library holds it
  bool refusesSurfaces = false;
  std::weak_ptr<WindowClient> client;
  std::vector<std::shared_ptr<SimulatedSurface>> surfaces;  ///< that live, oldest first

  /// Changes the state and tells.
  void set(CGRect frame, bool viewable) {
    state = {frame, viewable};
    if (const auto told = client.lock()) told->windowChanged();
  }
  void requestClose() const {
    if (const auto told = client.lock()) told->windowCloseRequested();
  }
  void press(const std::string& characters) const {
    if (const auto told = client.lock()) told->windowKeyDown({characters, characters, 0, false});
  }
  void vanish() {
    state.viewable = false;
    if (const auto told = client.lock()) told->windowGone();
  }
};

/// Windows as the test has them. Main thread.
class SimulatedViews final : public Views {
 public:
  bool hasDisplay = true;
  /// Every window made or lent, oldest first.
  std::vector<std::shared_ptr<SimulatedWindow>> windows;

  /// A window that somebody else made, for `makeWindowIn`.
  std::shared_ptr<SimulatedWindow> addForeign(CGRect frame, bool viewable) {
    auto window = add();
    window->state = {frame, viewable};
    window->open = false;
    return window;
  }

  // Views
  std::unique_ptr<WindowBacking> makeWindow(CGSize size, const std::string& title,
                                            std::weak_ptr<WindowClient> client) override {
    if (!hasDisplay) return nullptr;
    auto window = add();
    window->title = title;
    window->state.frame.size = size;
    window->client = std::move(client);
    return std::make_unique<Backing>(*this, std::move(window), true);
  }
  std::unique_ptr<WindowBacking> makeWindowIn(std::uint32_t windowNumber,
                                              std::weak_ptr<WindowClient> client) override {
    const auto found = std::find_if(windows.begin(), windows.end(),
                                    [&](const auto& window) { return window->number == windowNumber; });
    if (!hasDisplay || found == windows.end()) return nullptr;
    (*found)->client = std::move(client);
    (*found)->open = true;
    return std::make_unique<Backing>(*this, *found, false);
  }

 private:
  class Surface final : public ViewSurface {
   public:
    Surface(SimulatedViews& views, std::shared_ptr<SimulatedWindow> window,
            std::shared_ptr<SimulatedSurface> surface)
        : views_(views), window_(std::move(window)), surface_(std::move(surface)) {}
    ~Surface() override { std::erase(window_->surfaces, surface_); }
    [[nodiscard]] const NativeWindow& nativeWindow() const override { return surface_->native; }
    void setFrame(const CGRect& pixels) override { surface_->frame = pixels; }
    void setHidden(bool hidden) override { surface_->hidden = hidden; }
    void raise() override { surface_->raisedAt = ++views_.raises_; }

   private:
    SimulatedViews& views_;
    std::shared_ptr<SimulatedWindow> window_;
    std::shared_ptr<SimulatedSurface> surface_;
  };

  class Backing final : public WindowBacking {
   public:
    Backing(SimulatedViews& views, std::shared_ptr<SimulatedWindow> window, bool isOurs)
        : views_(views), window_(std::move(window)), isOurs_(isOurs) {}
    ~Backing() override {
      window_->open = false;
      window_->client.reset();
      if (isOurs_) window_->state.viewable = false;
    }
    [[nodiscard]] std::uint32_t windowNumber() const override { return window_->number; }
    [[nodiscard]] State state() const override { return window_->state; }
    std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client) override {
      if (window_->refusesSurfaces) return nullptr;
      auto surface = std::make_shared<SimulatedSurface>();
      surface->native = {":sim", ++views_.numbers_, 24};
      surface->client = std::move(client);
      window_->surfaces.push_back(surface);
      return std::make_shared<Surface>(views_, window_, std::move(surface));
    }
    void setTitle(const std::string& title) override { window_->title = title; }
    void setContentSize(CGSize size) override {
      window_->set({window_->state.frame.origin, size}, viewable());
    }
    void orderFront() override { window_->set(window_->state.frame, true); }
    void orderOut() override { window_->set(window_->state.frame, false); }

   private:
    [[nodiscard]] bool viewable() const { return window_->state.viewable; }

    SimulatedViews& views_;
    std::shared_ptr<SimulatedWindow> window_;
    bool isOurs_;
  };

  std::shared_ptr<SimulatedWindow> add() {
    auto window = std::make_shared<SimulatedWindow>();
    window->number = ++numbers_;
    windows.push_back(window);
    return window;
  }

  std::uint32_t numbers_ = 0;
  int raises_ = 0;
};

}  // namespace QelUtilVideo
