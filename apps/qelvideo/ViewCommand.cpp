#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/Capturable.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "Commands.h"
#include "Failure.h"
#include "FramePlayer.h"
#include "HostLoop.h"
#include "LimitOptions.h"
#include "OffscreenView.h"
#include "Recorder.h"
#include "Snapshot.h"
#include "SourceLookup.h"
#include "Statistics.h"
#include "Terminal.h"
#include "ViewFeed.h"

namespace qelvideo {

namespace {

struct ViewCommandOptions {
  std::string source;
  std::string size;
  std::string screenshot;
  std::optional<std::uint64_t> frames;
  bool fit = false;
  bool fill = false;
  bool automatic = false;
  std::string orientation = "up";
  std::string background;
  bool animates = false;
  float blurRadius = 0;
  std::string backend = "auto";
};

ViewOptions viewOptions(const ViewCommandOptions& options) {
  if (options.size.empty())
    throw UsageFailure("view: name the size of an off-screen view with --offscreen WxH");
  ViewOptions view;
  view.size = parseSize(options.size);
  if (options.fill) view.placing = ViewOptions::Placing::fill;
  if (options.automatic) view.placing = ViewOptions::Placing::automatic;
  view.orientation = parseOrientation(options.orientation);
  if (!options.background.empty()) view.background = parseColor(options.background);
  view.animates = options.animates;
  view.blurRadius = options.blurRadius;
  return view;
}

/// The library reads its choice of backend from the environment first.
void chooseBackend(const std::string& backend) {
  if (backend == "auto") return;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
  ::setenv("QelUtilVideoRenderViewMetalDisabled", backend == "opengl" ? "1" : "0", 1);
}

bool isFile(const std::string& source) {
  struct stat status {};
  return source == "-" || source.find('/') != std::string::npos || source.ends_with(".y4m") ||
         ::stat(source.c_str(), &status) == 0;
}

/// Saves what the view shows now, once it shows the frame of that time.
void finishView(const Context& context, const ViewCommandOptions& options, const OffscreenView& view,
                double timestamp) {
  if (timestamp == 0) return;
  const QelUtilVideo::CGImageRef picture = view.pictureShowing(timestamp, context.loop);
  if (!picture || options.screenshot.empty()) return;
  savePicture(*picture, options.screenshot);
  context.terminal.result(options.screenshot + ": " + std::to_string(picture->width()) + "x" +
                          std::to_string(picture->height()));
}

void viewFilm(const Context& context, const ViewCommandOptions& options, const ViewOptions& viewing) {
  const auto cancellation = std::make_shared<Cancellation>();
  auto reader = std::make_unique<Y4mReader>(ByteInput::open(options.source, cancellation));
  const OffscreenView view(viewing);
  const FramePlayer player(std::move(reader), cancellation, view.container(), viewing.orientation,
                           options.frames);
  if (context.loop.runUntil([&] { return player.state().ended; }) == HostLoop::End::interrupted) return;

  const FramePlayer::State state = player.state();
  finishView(context, options, view, state.timestamp);
  if (state.frames > 0) {
    context.terminal.result(std::to_string(state.frames) + (state.frames == 1 ? " frame, " : " frames, ") +
                            std::to_string(state.width) + "x" + std::to_string(state.height));
  }
  if (state.failure) throw Failure(*state.failure);
}

void viewSource(const Context& context, const ViewCommandOptions& options, const ViewOptions& viewing) {
  const auto source = findSource(options.source);
  const OffscreenView view(viewing);
  RecordingLimits limits;
  limits.frames = options.frames;
  if (!limits.frames && !options.screenshot.empty()) limits.frames = 1;
  const auto feed = std::make_shared<ViewFeed>(view.container(), viewing.orientation);
  const auto recorder = std::make_shared<Recorder>(context.terminal, limits, feed);
  const Recording recording = record(context.loop, source, recorder);

  finishView(context, options, view, view.container()->timestamp());
  context.terminal.result(Statistics(recording).text());
  if (recording.failure) throw Failure(*recording.failure);
}

void view(const Context& context, const ViewCommandOptions& options) {
  const ViewOptions viewing = viewOptions(options);
  chooseBackend(options.backend);
  if (isFile(options.source)) {
    viewFilm(context, options, viewing);
  } else {
    viewSource(context, options, viewing);
  }
}

void addPlacingOptions(CLI::App& command, ViewCommandOptions& options) {
  CLI::Option* fit = command.add_flag("--fit", options.fit, "Show the whole picture (the default)");
  CLI::Option* fill = command.add_flag("--fill", options.fill, "Cover the view with the picture");
  CLI::Option* automatic = command.add_flag(
      "--auto-fit", options.automatic, "Cover when picture and view are both wide or both tall, else fit");
  fit->excludes(fill)->excludes(automatic);
  fill->excludes(automatic);
}

}  // namespace

void addViewCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("view", "Show a source or a film in a view");
  command->footer(
      "A source is shown until Ctrl-C, a film at its own rate to its end.\n"
      "Example: qelvideo view film.y4m --offscreen 640x360 --screenshot last.png");
  const auto options = std::make_shared<ViewCommandOptions>();
  command
      ->add_option("SOURCE", options->source,
                   "A Y4M file, - for one on standard input, or a source that is captured, named as in "
                   "`qelvideo capture`. An existing file goes before a source of the same name")
      ->required();
  command->add_option("--offscreen", options->size, "The size of a view that is on no screen")
      ->type_name("WxH");
  command
      ->add_option("--screenshot", options->screenshot,
                   "Save what the view shows in the end to this PNG file; of a source, the first frame "
                   "when there is no --frames")
      ->type_name("FILE.png");
  addFramesOption(*command, options->frames);
  addPlacingOptions(*command, *options);
  command->add_option("--orientation", options->orientation,
                      "Turn and mirror: 1 to 8, or up, up-mirrored, down, down-mirrored, left-mirrored, "
                      "right, right-mirrored, left");
  command->add_option("--background", options->background, "Colour around the picture")
      ->type_name("#rrggbb[aa]");
  command->add_flag("--animate", options->animates, "Show a change of orientation as a turn");
  // Views draw sharp pictures whatever the radius, so the help does not tell of it.
  command->add_option("--blur", options->blurRadius)->check(CLI::NonNegativeNumber)->group("");
  command
      ->add_option("--backend", options->backend,
                   "What draws: opengl; metal, where there is one; or what the library chooses")
      ->check(CLI::IsMember({"opengl", "metal", "auto"}));
  command->callback(
      [&action, options] { action = [options](const Context& context) { view(context, *options); }; });
}

}  // namespace qelvideo
