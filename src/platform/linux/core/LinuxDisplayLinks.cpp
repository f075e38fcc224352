#include "platform/linux/core/LinuxDisplayLinks.h"

#include "platform/Displays.h"
#include "platform/linux/core/StreamThread.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr double kUsualRate = 60, kSlowestRate = 10, kFastestRate = 500;

/// Refreshes per second of the fastest display.
double rateOf(Displays& displays) {
  double fastest = 0;
  for (const auto& screen : displays.screens()) fastest = std::max(fastest, screen->maximumFramesPerSecond());
  return std::isfinite(fastest) && fastest > 0 ? std::clamp(fastest, kSlowestRate, kFastestRate) : kUsualRate;
}

class Link final : public CVDisplayLink {
 public:
  Link(Displays& displays, NotificationCenter& center, MainLoop& loop) : center_(center), loop_(loop) {
    *rate_ = rateOf(displays);
    observer_ =
        center_.addObserver(NSApplicationDidChangeScreenParametersNotification, nullptr,
                            [rate = rate_, &displays](const NSNotification&) { *rate = rateOf(displays); });
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  ~Link() override { center_.removeObserver(observer_); }

  void CVDisplayLinkSetOutputHandler(OutputHandler handler) override { handler_ = std::move(handler); }

  void CVDisplayLinkStart() override { ticking_ = Ticking::start(loop_, rate_, handler_); }
  void CVDisplayLinkStop() override { ticking_.reset(); }

  [[nodiscard]] CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod() const override {
    constexpr std::int64_t parts = 1000;
    return {parts, static_cast<std::int32_t>(std::lround(*rate_ * double{parts}))};
  }

 private:
  using Rate = std::shared_ptr<std::atomic<double>>;

  /// A thread, or the wait for one.
  class Ticking : public std::enable_shared_from_this<Ticking> {
   public:
    static std::shared_ptr<Ticking> start(MainLoop& loop, const Rate& rate, const OutputHandler& handler) {
      auto ticking = std::make_shared<Ticking>();
      ticking->tryStart(loop, rate, handler);
      return ticking;
    }

   private:
    void tryStart(MainLoop& loop, const Rate& rate, const OutputHandler& handler) try {
      thread_.emplace([rate, handler](const StreamThread::Stop& stop) { run(*rate, handler, stop); });
    } catch (const std::system_error&) {
      // The system has none left just now; views stand still meanwhile.
      loop.after(1, [weak = weak_from_this(), &loop, rate, handler] {
        if (const auto ticking = weak.lock()) ticking->tryStart(loop, rate, handler);
      });
    }

    std::optional<StreamThread> thread_;
  };

  static void run(const std::atomic<double>& rate, const OutputHandler& handler,
                  const StreamThread::Stop& stop) {
    using namespace std::chrono;
    auto due = steady_clock::now();
    for (;;) {
      const auto period = duration_cast<nanoseconds>(duration<double>(1 / rate));
      due += period;
      // Refreshes that were missed are left out.
      if (const auto late = steady_clock::now() - due; late > nanoseconds::zero())
        due += late / period * period;
      if (!stop.sleepUntil(due)) return;
      if (handler) (void)handler();
    }
  }

  NotificationCenter& center_;
  MainLoop& loop_;
  const Rate rate_ = std::make_shared<std::atomic<double>>(kUsualRate);
  NotificationCenter::Token observer_{};
  OutputHandler handler_;
  std::shared_ptr<Ticking> ticking_;
};

}  // namespace

CVReturn LinuxDisplayLinks::CVDisplayLinkCreateWithActiveCGDisplays(std::unique_ptr<CVDisplayLink>& link) {
  link = std::make_unique<Link>(displays_, center_, loop_);
  return kCVReturnSuccess;
}

}  // namespace QelUtilVideo
