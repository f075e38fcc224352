#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "Commands.h"
#include "Failure.h"
#include "MachineReport.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

void doctor(const Context& context, bool json) {
  const MachineReport report(QelUtilVideo::examineMachine());
  context.terminal.result(json ? report.json() : report.text());
  const bool captures = report.capturesDisplays();
  const bool draws = report.drawsViews();
  if (captures && draws) {
    if (!json) context.terminal.result("\nDisplays can be captured and views drawn.");
    return;
  }
  const std::string what = captures ? "views cannot be drawn"
                           : draws  ? "displays cannot be captured"
                                    : "neither can displays be captured nor views drawn";
  throw Failure(what + " on this machine; what is missing stands above, with what to do");
}

}  // namespace

void addDoctorCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("doctor", "Say what this machine offers and what it lacks");
  command->footer(
      "Each thing is ok, limited, missing (with what to do about it) or unused by this version. Exit status "
      "0 "
      "when displays can be captured and views be drawn, else 1.");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print a JSON document instead");
  command->callback([&action, json] { action = [json](const Context& context) { doctor(context, *json); }; });
}

}  // namespace qelvideo
