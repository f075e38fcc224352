#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Commands.h"
#include "HostLoop.h"
#include "SourceEvent.h"
#include "SourceLookup.h"
#include "StreamEnds.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

using namespace QelUtilVideo;

/// Seconds between two looks at the windows, of which no manager tells by itself.
constexpr double windowInterval = 1;

/// Gathers what the library's managers say about sources that come and go. Main thread, where they say it.
class SourceWatch {
 public:
  SourceWatch() {
    // Asked for first: the managers follow their sources from then on. Notifications come through the main
    // loop, so that none falls between the list and the observer.
    for (const auto& screen : CapturableWindowManager::screens()) note(SourceEvent::What::present, *screen);
    windows_ = CapturableWindowManager::windows();
    for (const auto& window : windows_) note(SourceEvent::What::present, *window);
    for (const auto& device : CapturableDeviceManager::allDevices())
      note(SourceEvent::What::present, *device);
    observe(CapturableWindowManager::didRefreshNotification());
    observe(CapturableDeviceManager::didRefreshNotification());
  }
  SourceWatch(const SourceWatch&) = delete;
  SourceWatch& operator=(const SourceWatch&) = delete;
  ~SourceWatch() {
    for (const auto token : tokens_) NotificationCenter::defaultCenter().removeObserver(token);
  }

  /// Finds out which windows came and went.
  void lookAtWindows() {
    const Windows before = std::exchange(windows_, CapturableWindowManager::windows());
    noteMissing(SourceEvent::What::disconnected, before, windows_);
    noteMissing(SourceEvent::What::connected, windows_, before);
  }
  /// What happened since the last call, in order.
  [[nodiscard]] std::vector<SourceEvent> take() { return std::exchange(events_, {}); }

 private:
  using Windows = std::vector<std::shared_ptr<CapturableWindow>>;

  void observe(const std::string& notification) {
    tokens_.push_back(NotificationCenter::defaultCenter().addObserver(
        notification, nullptr, [this](const NSNotification& refresh) {
          noteAll(SourceEvent::What::disconnected, refresh.userInfo.get<Array>("disconnected"));
          noteAll(SourceEvent::What::connected, refresh.userInfo.get<Array>("connected"));
        }));
  }

  void noteAll(SourceEvent::What what, const Array* sources) {
    if (!sources) return;
    for (const Value& value : *sources) {
      const auto* object = value.get<std::shared_ptr<NSObject>>();
      const auto source = object ? std::dynamic_pointer_cast<Capturable>(*object) : nullptr;
      if (source) note(what, *source);
    }
  }

  /// Those that are not among the others. A listed window is the same object each time.
  void noteMissing(SourceEvent::What what, const Windows& windows, const Windows& others) {
    for (const auto& window : windows) {
      if (std::find(others.begin(), others.end(), window) == others.end()) note(what, *window);
    }
  }

  void note(SourceEvent::What what, const Capturable& source) {
    events_.push_back(SourceEvent::now(what, source));
  }

  Windows windows_;
  std::vector<SourceEvent> events_;
  std::vector<NotificationCenter::Token> tokens_;
};

void watch(const Context& context, bool json) {
  const StreamEnds ends(context.loop);
  SourceWatch sources;
  bool isStart = true;
  const auto report = [&] {
    const std::vector<SourceEvent> events = sources.take();
    for (const SourceEvent& event : events) context.terminal.result(json ? event.json() : event.text());
    if (std::exchange(isStart, false) && events.empty()) context.terminal.note(noSourcesText());
    return ends.areGone();
  };
  while (context.loop.runUntil(report, windowInterval) == HostLoop::End::timedOut) sources.lookAtWindows();
}

}  // namespace

void addWatchCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("watch", "Print what connects and disconnects");
  command->footer(
      "First what there is, then one line for each display, window or camera that comes or goes, until "
      "Ctrl-C, "
      "or until the pipe at standard input or the reader of standard output is closed. Displays come twice, "
      "once as devices that stream.");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print each line as a JSON object");
  command->callback([&action, json] { action = [json](const Context& context) { watch(context, *json); }; });
}

}  // namespace qelvideo
