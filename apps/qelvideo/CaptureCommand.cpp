#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/platform/MediaClock.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "Commands.h"
#include "Failure.h"
#include "FilmRecorder.h"
#include "LimitOptions.h"
#include "OverlayOption.h"
#include "Recorder.h"
#include "SourceLookup.h"
#include "Statistics.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

struct CaptureOptions {
  std::string source;
  std::string output;
  RecordingLimits limits;
  std::string overlay;
  bool json = false;
};

std::shared_ptr<FilmRecorder> openFilm(const std::string& output, int framesPerSecond) {
  if (output == "-" && ::isatty(STDOUT_FILENO) == 1) {
    throw UsageFailure(
        "a film does not go to a terminal; pipe it into a program, as in `… -o - | ffmpeg -i - out.mp4`, "
        "or name a file with -o FILE.y4m");
  }
  const auto cancellation = std::make_shared<Cancellation>();
  return std::make_shared<FilmRecorder>(ByteOutput::open(output, cancellation), cancellation,
                                        framesPerSecond);
}

/// When the film ends: now, or where the wanted time ends. A number of frames ends with its last frame.
double filmEnd(const Recording& recording, const RecordingLimits& limits) {
  if (limits.frames && recording.frames >= *limits.frames) return recording.lastTime;
  const double now = QelUtilVideo::CACurrentMediaTime();
  return limits.seconds ? std::min(now, recording.firstTime + *limits.seconds) : now;
}

void capture(const Context& context, const CaptureOptions& options) {
  registerOverlay(options.overlay);
  const auto source = findSource(options.source);
  RecordingLimits limits = options.limits;
  limits.framesPerSecond = framesPerSecond(*source);
  std::shared_ptr<FilmRecorder> film;
  if (!options.output.empty()) film = openFilm(options.output, limits.framesPerSecond);
  const auto recorder = std::make_shared<Recorder>(context.terminal, limits, film);
  const Recording recording = record(context.loop, source, recorder);

  Statistics statistics(recording);
  std::optional<std::string> failure = recording.failure;
  if (film) {
    const FilmRecorder::Summary summary = film->finish(context.loop, filmEnd(recording, limits));
    statistics.repeated = summary.repeated;
    statistics.dropped = summary.dropped;
    statistics.bytes = summary.bytes;
    if (!failure) failure = summary.failure;
  }
  const std::string text = options.json ? statistics.json() : statistics.text();
  if (options.output == "-") {
    context.terminal.note(text);
  } else {
    context.terminal.result(text);
  }
  if (failure) throw Failure(*failure);
}

}  // namespace

void addCaptureCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("capture", "Record a source as a film");
  command->footer(
      "Session events go to standard error, the statistics to standard output, or to standard error too "
      "when the film takes the output. The film has 10 frames per second, that of a camera or another "
      "device 30, and keeps time: where the source had nothing to give, the last frame is repeated.\n"
      "Example: qelvideo capture 1 --seconds 3 -o - | ffmpeg -i - out.mp4");
  const auto options = std::make_shared<CaptureOptions>();
  command->add_option("ID", options->source, sourceHelp)->required();
  command->add_option("-o,--output", options->output,
                      "The Y4M file to write, or - for standard output; without it frames are only counted");
  addLimitOptions(*command, options->limits);
  addOverlayOption(*command, options->overlay);
  command->add_flag("--json", options->json, "Print the statistics as JSON");
  command->callback(
      [&action, options] { action = [options](const Context& context) { capture(context, *options); }; });
}

}  // namespace qelvideo
