#include <QelUtilVideo/ObjectRuntime.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "Commands.h"
#include "Failure.h"
#include "MachineReport.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

std::string kindName(QelUtilVideo::PublishedMember::Kind kind) {
  using Kind = QelUtilVideo::PublishedMember::Kind;
  switch (kind) {
    case Kind::property:
      return "property";
    case Kind::classProperty:
      return "class property";
    case Kind::classMethod:
      return "class method";
    case Kind::method:
    default:
      return "method";
  }
}

/// What the library publishes to bindings of other languages: a type and its members, one a line.
void printCatalogue(Terminal& terminal) {
  using namespace QelUtilVideo;
  for (const PublishedType& type : publishedTypes()) {
    const bool isProtocol = type.kind == PublishedType::Kind::protocol;
    std::string line = (isProtocol ? "protocol " : "class ") + std::string(type.name);
    if (!type.base.empty()) line += " : " + std::string(type.base);
    terminal.result(line);
    for (const PublishedMember& member : type.members) {
      terminal.result("  " + kindName(member.kind) + " " + std::string(member.name) + "  " +
                      std::string(member.encoding) + (member.isRequired ? "" : "  (optional)"));
    }
  }
}

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
      "Each thing is ok, limited, missing (with what to do about it) or unused by this version. Exit "
      "status 0 when displays can be captured and views be drawn, else 1.");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print a JSON document instead");
  const auto catalogue = std::make_shared<bool>(false);
  command
      ->add_flag("--catalogue", *catalogue,
                 "Print what the library publishes to other languages: classes, protocols, type encodings")
      ->excludes("--json");
  command->callback([&action, json, catalogue] {
    action = [json, catalogue](const Context& context) {
      *catalogue ? printCatalogue(context.terminal) : doctor(context, *json);
    };
  });
}

}  // namespace qelvideo
