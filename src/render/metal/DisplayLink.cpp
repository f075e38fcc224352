#include "render/metal/DisplayLink.h"

#include "log/Log.h"
#include "platform/Dispatch.h"
#include "platform/HostCall.h"
#include "platform/Root.h"
#include "render/metal/MetalRenderView_macOS.h"
#include "render/metal/RenderLoop.h"

#include <QelUtilVideo/RenderViewDataSource.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

namespace QelUtilVideo::metal {

namespace {

std::string rateText(const CVTime& period) {
  if (period.timeValue < 1 || period.timeScale < 1) return {};
  char text[64];
  std::snprintf(text, sizeof text, " (%.1f fps)",
                static_cast<double>(period.timeScale) / static_cast<double>(period.timeValue));
  return text;
}

/// Whether the coming refresh has something to show that the last one had not.
bool isDue(const RenderContext& context) {
  if (context.needsUpdate()) return true;
  const auto source = context.dataSource();
  if (!source) return false;
  bool isNew = false;
  callHost("RenderViewDataSource", [&] { isNew = source->timestamp() != context.lastTimestamp(); });
  return isNew || context.geometry().rotateAngle() != 0;
}

}  // namespace

DisplayLink::DisplayLink(Root& root)
    : root_(root),
      dispatchSource_(root.platform().dispatch().makeDataAddSource(root.platform().dispatch().mainQueue())) {
  dispatchSource_->setEventHandler([this](std::uint64_t) { tick(); });
  dispatchSource_->resume();
}

DisplayLink::~DisplayLink() { dispatchSource_->cancel(); }

DisplayLink& DisplayLink::shared() { return Root::current().get<DisplayLink>(); }

void DisplayLink::addRenderLoop(const std::shared_ptr<RenderLoop>& loop) {
  std::string started;
  const bool isFailed = state_.with([&](State& state) {
    if (std::ranges::find(state.renderLoops, loop) != state.renderLoops.end()) return false;
    if (state.renderLoops.empty() && !startDisplayLink(state, started)) return true;
    state.renderLoops.push_back(loop);
    return false;
  });
  if (isFailed) fatal("[DisplayLink] create failed");
  if (!started.empty()) log(LogLevel::info, started);
}

void DisplayLink::removeRenderLoop(const RenderLoop& loop) {
  std::unique_ptr<CVDisplayLink> stopped;
  std::vector<std::shared_ptr<RenderLoop>> removed;  // let go after the lock
  state_.with([&](State& state) {
    const auto isIt = [&](const auto& registered) { return registered.get() == &loop; };
    std::ranges::copy_if(state.renderLoops, std::back_inserter(removed), isIt);
    std::erase_if(state.renderLoops, isIt);
    if (state.renderLoops.empty()) stopped = std::move(state.displayLink);
  });
  if (!stopped) return;
  stopped->CVDisplayLinkStop();
  log(LogLevel::info, "[DisplayLink] stopped");
}

bool DisplayLink::startDisplayLink(State& state, std::string& started) {
  if (state.displayLink) return true;
  std::unique_ptr<CVDisplayLink> link;
  if (root_.platform().displayLinks().CVDisplayLinkCreateWithActiveCGDisplays(link) != kCVReturnSuccess) {
    return false;
  }
  link->CVDisplayLinkSetOutputHandler([source = dispatchSource_] {
    source->add(1);
    return kCVReturnSuccess;
  });
  link->CVDisplayLinkStart();
  started = "[DisplayLink] started" + rateText(link->CVDisplayLinkGetNominalOutputVideoRefreshPeriod());
  state.displayLink = std::move(link);
  return true;
}

void DisplayLink::tick() {
  // Views may come and go while others are drawn.
  const auto loops = state_.with([](const State& state) { return state.renderLoops; });
  for (const auto& loop : loops) {
    const auto view = loop->view();
    if (view && isDue(view->renderContext())) view->draw();
  }
}

}  // namespace QelUtilVideo::metal
