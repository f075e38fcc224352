#include "render/metal/DisplayLink.h"

#include "log/Log.h"
#include "platform/Dispatch.h"
#include "platform/NumberText.h"
#include "platform/Root.h"
#include "render/metal/MetalRenderView_macOS.h"
#include "render/metal/RenderLoop.h"

#include <algorithm>
#include <string>
#include <utility>

namespace QelUtilVideo::metal {

namespace {

std::string rateText(const CVTime& period) {
  if (period.timeValue < 1 || period.timeScale < 1) return {};
  return " (" + oneDecimal(static_cast<double>(period.timeScale) / static_cast<double>(period.timeValue)) +
         " fps)";
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
  const auto isKnown = [&](const State& state) {
    return std::ranges::find(state.renderLoops, loop) != state.renderLoops.end();
  };
  if (state_.with(isKnown)) return;
  for (bool isAdded = false; !isAdded;) {
    const bool isFirst = state_.with([](const State& state) { return state.renderLoops.empty(); });
    auto link = isFirst ? startDisplayLink() : nullptr;
    isAdded = state_.with([&](State& state) {
      // The others may have gone since.
      if (state.renderLoops.empty() && !link) return false;
      if (link) state.displayLink = std::move(link);
      state.renderLoops.push_back(loop);
      return true;
    });
  }
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

std::unique_ptr<CVDisplayLink> DisplayLink::startDisplayLink() {
  std::unique_ptr<CVDisplayLink> link;
  if (root_.platform().displayLinks().CVDisplayLinkCreateWithActiveCGDisplays(link) != kCVReturnSuccess) {
    fatal("[DisplayLink] create failed");
  }
  link->CVDisplayLinkSetOutputHandler([source = dispatchSource_] {
    source->add(1);
    return kCVReturnSuccess;
  });
  link->CVDisplayLinkStart();
  log(LogLevel::info,
      "[DisplayLink] started" + rateText(link->CVDisplayLinkGetNominalOutputVideoRefreshPeriod()));
  return link;
}

void DisplayLink::tick() {
  // Views may come and go while others are drawn.
  const auto loops = state_.with([](const State& state) { return state.renderLoops; });
  for (const auto& loop : loops) {
    const auto view = loop->view();
    if (view && view->renderContext().isDue()) view->draw();
  }
}

}  // namespace QelUtilVideo::metal
