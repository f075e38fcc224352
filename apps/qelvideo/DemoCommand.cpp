#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Commands.h"
#include "Failure.h"
#include "PrivateDesktop.h"
#include "Recorder.h"
#include "Snapshot.h"
#include "SourceList.h"
#include "SourceLookup.h"
#include "Statistics.h"
#include "Terminal.h"
#include "VideoView.h"
#include "ViewFeed.h"

namespace qelvideo {

namespace {

constexpr double demoSeconds = 3;
constexpr QelUtilVideo::CGSize viewSize{960, 600};

void makeFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error)
    throw Failure("cannot make the folder " + folder + ": " + error.message() + "; name another with -o");
}

std::optional<PrivateDesktop> desktop(Terminal& terminal) {
  const char* display = std::getenv("DISPLAY");  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
  if (display && *display) {
    terminal.result(std::string("Using the desktop of DISPLAY=") + display);
    return std::nullopt;
  }
  std::optional<PrivateDesktop> started(std::in_place, terminal);
  terminal.result("No desktop here: started a private X server, DISPLAY=" + started->display());
  return started;
}

void save(Terminal& terminal, const std::string& what, const QelUtilVideo::CGImage& picture,
          const std::string& path) {
  savePicture(picture, path);
  terminal.result(what + ": " + path + ", " + std::to_string(picture.width()) + "x" +
                  std::to_string(picture.height()));
}

void demo(const Context& context, const std::string& folder) {
  Terminal& terminal = context.terminal;
  makeFolder(folder);
  const std::optional<PrivateDesktop> privateDesktop = desktop(terminal);
  const SourceRefs sources = availableSources();
  if (sources.empty()) {
    throw Failure(noSourcesText() + "; without DISPLAY the demo starts an X server of its own");
  }
  terminal.result(sourceTable(sources));

  const auto& display = sources.front();  // where there is no display, a window does as well
  ViewOptions viewing;
  viewing.size = viewSize;
  viewing.background = QelUtilVideo::NSColor::deviceWhite(0.1);
  const VideoView view(QelUtilVideo::NSWindow::makeOffscreen(viewSize), viewing);
  const auto feed = std::make_shared<ViewFeed>(view.frames());
  const auto recorder = std::make_shared<Recorder>(
      terminal,
      RecordingLimits{.frames = {}, .seconds = demoSeconds, .framesPerSecond = framesPerSecond(*display)},
      feed);
  const Recording recording = record(context.loop, display, recorder);
  terminal.result("Captured and shown: " + Statistics(recording).text());
  if (recording.failure) throw Failure(*recording.failure);

  save(terminal, "A picture of the display", *takeSnapshot(*display), folder + "/snapshot.png");
  if (recording.frames == 0) return;
  const auto picture = view.picture(context.loop);
  if (picture) save(terminal, "The view that showed it", *picture, folder + "/view.png");
}

}  // namespace

void addDemoCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("demo", "Capture and show a display, and leave pictures of both");
  command->footer(
      "With DISPLAY set that desktop is used; without it a private X server with a few programs is started.");
  const auto folder = std::make_shared<std::string>("out");
  command->add_option("-o,--output", *folder, "The folder for the pictures")
      ->type_name("DIR")
      ->capture_default_str();
  command->callback(
      [&action, folder] { action = [folder](const Context& context) { demo(context, *folder); }; });
}

}  // namespace qelvideo
