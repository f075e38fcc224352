#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "Commands.h"
#include "LimitOptions.h"
#include "OverlayOption.h"
#include "ViewKeys.h"
#include "Viewer.h"

namespace qelvideo {

namespace {

struct ViewCommandOptions {
  std::string source;
  std::string size = "960x540";
  std::string offscreenSize;
  std::string inside;
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
  std::string overlay;
};

ViewOptions viewOptions(const ViewCommandOptions& options) {
  ViewOptions view;
  view.size = parseSize(options.offscreenSize.empty() ? options.size : options.offscreenSize);
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

ViewJob viewJob(const ViewCommandOptions& options) {
  ViewJob job;
  job.source = options.source;
  job.options = viewOptions(options);
  job.place.offscreen = !options.offscreenSize.empty();
  if (!options.inside.empty()) job.place.inside = parseWindowNumber(options.inside);
  job.place.title = options.source == "-" ? "qelvideo" : options.source + " - qelvideo";
  job.frames = options.frames;
  job.screenshot = options.screenshot;
  return job;
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
      "A source is shown until q, Ctrl-C or the window is closed, a film at its own rate to its end. Keys, "
      "in "
      "the window and at the terminal:\n" +
      viewKeysText() + "\nExample: qelvideo view film.y4m --offscreen 640x360 --screenshot last.png");
  const auto options = std::make_shared<ViewCommandOptions>();
  command
      ->add_option("SOURCE", options->source,
                   "A Y4M file, - for one on standard input, or a source that is captured, named as in "
                   "`qelvideo capture`. An existing file goes before a source of the same name")
      ->required();
  CLI::Option* size = command->add_option("--size", options->size, "The size of the window")
                          ->type_name("WxH")
                          ->capture_default_str();
  CLI::Option* inside =
      command->add_option("--inside", options->inside, "Show in the window of another program, by its X11 ID")
          ->type_name("ID");
  command->add_option("--offscreen", options->offscreenSize, "Show on no screen, in a view of this size")
      ->type_name("WxH")
      ->excludes(size)
      ->excludes(inside);
  size->excludes(inside);
  command
      ->add_option("--screenshot", options->screenshot,
                   "Save what the view shows in the end to this PNG file; of a source off screen, the first "
                   "frame when there is no --frames")
      ->type_name("FILE.png");
  addFramesOption(*command, options->frames);
  addOverlayOption(*command, options->overlay);
  addPlacingOptions(*command, *options);
  command->add_option("--orientation", options->orientation,
                      "Turn and mirror: 1 to 8, or up, up-mirrored, down, down-mirrored, left-mirrored, "
                      "right, right-mirrored, left");
  command->add_option("--background", options->background, "Colour around the picture")
      ->type_name("#rrggbb[aa]");
  command->add_flag("--animate", options->animates, "Show a change of orientation as a turn");
  command
      ->add_option("--blur", options->blurRadius, "Blur by that part of the picture's side, as 0.01; 0: not")
      ->check(CLI::NonNegativeNumber)
      ->type_name("RADIUS");
  command
      ->add_option(
          "--backend", options->backend,
          "What draws: metal (through Vulkan), where there is a driver; opengl; or what the library chooses")
      ->check(CLI::IsMember({"opengl", "metal", "auto"}));
  command->callback([&action, options] {
    action = [options](const Context& context) {
      const ViewJob job = viewJob(*options);
      chooseBackend(options->backend);
      registerOverlay(options->overlay);
      show(context, job);
    };
  });
}

}  // namespace qelvideo
