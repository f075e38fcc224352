#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "Commands.h"
#include "Snapshot.h"
#include "SourceList.h"
#include "SourceLookup.h"
#include "SourcePictures.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

struct ListOptions {
  bool json = false;
  std::string images;
};

void list(const Context& context, const ListOptions& options) {
  const SourceRefs sources = availableSources();
  if (options.json) {
    context.terminal.result(sourceJSON(sources));
  } else if (!sources.empty()) {
    context.terminal.result(sourceTable(sources));
  }
  if (sources.empty()) context.terminal.note(noSourcesText());
  if (options.images.empty()) return;
  letWindowsRepaint(context.loop, sources);
  context.terminal.note("Pictures to look at: " + writeSourcePictures(sources, options.images));
}

}  // namespace

void addListCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("list", "List what can be captured");
  command->footer(
      "Sizes and origins are in points; the origin is the desktop's top-left corner, y grows "
      "downward. The scale is pixels per point. Windows are listed from the front to the back.");
  const auto options = std::make_shared<ListOptions>();
  command->add_flag("--json", options->json, "Print a JSON document instead of tables");
  command
      ->add_option("--images", options->images,
                   "Write a PNG file of each source to this folder, and an index.html to look at them")
      ->type_name("DIR");
  command->callback(
      [&action, options] { action = [options](const Context& context) { list(context, *options); }; });
}

}  // namespace qelvideo
