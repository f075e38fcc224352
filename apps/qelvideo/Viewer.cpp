#include "Viewer.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/NSWindow.h>
#include <sys/stat.h>

#include <memory>

#include "Failure.h"
#include "FramePlayer.h"
#include "HostLoop.h"
#include "Recorder.h"
#include "Snapshot.h"
#include "SourceLookup.h"
#include "Statistics.h"
#include "Terminal.h"
#include "TerminalKeys.h"
#include "VideoView.h"
#include "ViewFeed.h"
#include "ViewKeys.h"

namespace qelvideo {

namespace {

constexpr const char* keyedScreenshot = "qelvideo.png";

bool isFile(const std::string& source) {
  struct stat status {};
  return source == "-" || source.find('/') != std::string::npos || source.ends_with(".y4m") ||
         ::stat(source.c_str(), &status) == 0;
}

/// The view of one job, and what the person does with it.
class Viewer {
 public:
  Viewer(const Context& context, const ViewJob& job)
      : context_(context),
        job_(job),
        options_(job.options),
        window_(context.terminal, job.place, job.options.size),
        view_(window_.window(), job.options) {
    if (window_.isOffscreen()) return;
    window_.onKey([this](const QelUtilVideo::NSEvent& event) { press(event.characters); });
    // A film on standard input leaves no room for keys there.
    if (job.source != "-") {
      keys_.emplace(context.loop, [this](const std::string& characters) { press(characters); });
    }
  }
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  [[nodiscard]] const std::shared_ptr<FrameHolder>& frames() const { return view_.frames(); }
  [[nodiscard]] bool isInWindow() const { return !window_.isOffscreen(); }
  /// The person has had enough: by key or by closing the window; or there is nothing to see any more and
  /// nobody to wait for.
  [[nodiscard]] bool wantsEnd(bool sourceIsOver) const {
    if (wantsEnd_ || window_.isClosed()) return true;
    const bool nobodyIsThere = keys_ ? keys_->ended() : true;
    return isInWindow() && nobodyIsThere && (window_.isLost() || sourceIsOver);
  }
  /// Saves what the view shows in the end.
  void finish() {
    if (frames()->container()->timestamp() == 0 || window_.isClosed() || window_.isLost()) return;
    if (isInWindow() && job_.screenshot.empty()) return;
    const auto picture = view_.picture(context_.loop);
    if (picture && !job_.screenshot.empty()) save(*picture, job_.screenshot);
  }

 private:
  void press(const std::string& characters) {
    const auto action = viewAction(characters);
    if (!action) return;
    switch (*action) {
      case ViewAction::quit:
        wantsEnd_ = true;
        HostLoop::wake();
        break;
      case ViewAction::help:
        context_.terminal.note(viewKeysText());
        break;
      case ViewAction::screenshot:
        saveNow();
        break;
      default:
        apply(changed(options_, *action));
        break;
    }
  }

  void apply(const ViewOptions& options) {
    options_ = options;
    QelUtilVideo::RenderView& view = view_.view();
    view.setAutomaticallyAdjustsFitMode(options.placing == ViewOptions::Placing::automatic);
    if (options.placing != ViewOptions::Placing::automatic) {
      view.setFitInBounds(options.placing == ViewOptions::Placing::fit);
    }
    view.setRotateAnimationEnabled(options.animates);
    view.setBlurRadius(options.blurRadius);
    view.setBackgroundColor(options.background);
    frames()->setOrientation(options.orientation);
    context_.terminal.note("view: " + describe(options));
  }

  void saveNow() {
    const auto picture = window_.window()->image();
    if (!picture) return context_.terminal.note("view: nothing was drawn yet");
    try {
      save(*picture, job_.screenshot.empty() ? keyedScreenshot : job_.screenshot);
    } catch (const Failure& failure) {
      context_.terminal.note(failure.what());
    }
  }

  void save(const QelUtilVideo::CGImage& picture, const std::string& file) {
    savePicture(picture, file);
    context_.terminal.result(file + ": " + std::to_string(picture.width()) + "x" +
                             std::to_string(picture.height()));
  }

  const Context& context_;
  const ViewJob& job_;
  ViewOptions options_;
  ViewWindow window_;
  VideoView view_;
  std::optional<TerminalKeys> keys_;
  bool wantsEnd_ = false;
};

void showFilm(const Context& context, const ViewJob& job) {
  const auto cancellation = std::make_shared<Cancellation>();
  auto reader = std::make_unique<Y4mReader>(ByteInput::open(job.source, cancellation));
  Viewer viewer(context, job);
  const FramePlayer player(std::move(reader), cancellation, viewer.frames(), job.frames);
  const auto isDone = [&] { return player.state().ended || viewer.wantsEnd(false); };
  if (context.loop.runUntil(isDone) == HostLoop::End::interrupted) return;

  const FramePlayer::State state = player.state();
  viewer.finish();
  if (state.frames > 0) {
    context.terminal.result(std::to_string(state.frames) + (state.frames == 1 ? " frame, " : " frames, ") +
                            std::to_string(state.width) + "x" + std::to_string(state.height));
  }
  if (state.failure) throw Failure(*state.failure);
}

void showSource(const Context& context, const ViewJob& job) {
  const auto source = findSource(job.source);
  Viewer viewer(context, job);
  RecordingLimits limits;
  limits.frames = job.frames;
  limits.framesPerSecond = framesPerSecond(*source);
  if (!limits.frames && !job.screenshot.empty() && !viewer.isInWindow()) limits.frames = 1;
  const auto recorder =
      std::make_shared<Recorder>(context.terminal, limits, std::make_shared<ViewFeed>(viewer.frames()));
  const bool endsWithSource = !viewer.isInWindow() || limits.frames;
  const Recording recording = record(context.loop, source, recorder, [&] {
    const bool isOver = recorder->ended();
    return (isOver && endsWithSource) || viewer.wantsEnd(isOver);
  });

  viewer.finish();
  context.terminal.result(Statistics(recording).text());
  if (recording.failure && endsWithSource) throw Failure(*recording.failure);
}

}  // namespace

void show(const Context& context, const ViewJob& job) {
  isFile(job.source) ? showFilm(context, job) : showSource(context, job);
}

}  // namespace qelvideo
