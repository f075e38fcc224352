#include <QelUtilVideo/Capturable.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "Commands.h"
#include "Snapshot.h"
#include "SourceLookup.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

struct SnapshotOptions {
  std::string source;
  std::string output;
};

void snapshot(const Context& context, const SnapshotOptions& options) {
  const auto source = findSource(options.source);
  letWindowsRepaint(context.loop, {source});
  const QelUtilVideo::CGImageRef picture = takeSnapshot(*source);
  savePicture(*picture, options.output);
  context.terminal.result(options.output + ": " + std::to_string(picture->width()) + "x" +
                          std::to_string(picture->height()));
}

}  // namespace

void addSnapshotCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("snapshot", "Save one picture of a source");
  const auto options = std::make_shared<SnapshotOptions>();
  command->add_option("ID", options->source, sourceHelp)->required();
  command->add_option("-o,--output", options->output, "The PNG file to write")->required();
  command->callback(
      [&action, options] { action = [options](const Context& context) { snapshot(context, *options); }; });
}

}  // namespace qelvideo
