#include <CLI/CLI.hpp>
#include <memory>

#include "Commands.h"
#include "SourceList.h"
#include "SourceLookup.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

void list(const Context& context, bool json) {
  const SourceRefs sources = availableSources();
  if (json) {
    context.terminal.result(sourceJSON(sources));
  } else if (!sources.empty()) {
    context.terminal.result(sourceTable(sources));
  }
  if (sources.empty()) context.terminal.note(noSourcesText());
}

}  // namespace

void addListCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("list", "List what can be captured");
  command->footer(
      "Sizes and origins are in points; the origin is the primary display's top-left corner, y grows "
      "downward. The scale is pixels per point.");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print a JSON document instead of a table");
  command->callback([&action, json] { action = [json](const Context& context) { list(context, *json); }; });
}

}  // namespace qelvideo
