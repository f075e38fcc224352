#include "ManualPage.h"

#include "CommandTree.h"

#include <string_view>

namespace qelvideo {

namespace {

/// Text that roff prints as it is.
std::string plain(std::string_view text) {
  std::string result;
  bool beginsLine = true;
  for (const char c : text) {
    if (beginsLine && (c == '.' || c == '\'')) result += "\\&";
    beginsLine = c == '\n';
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else {
      result += c;
    }
  }
  return result;
}

std::string bold(std::string_view text) { return "\\fB" + plain(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + plain(text) + "\\fR"; }

std::string heading(const DeclaredOption& option) {
  if (option.names.empty()) return italic(option.value);
  std::string text;
  for (const std::string& name : option.names) text += (text.empty() ? "" : ", ") + bold(name);
  if (!option.choices.empty()) {
    std::string choices;
    for (const std::string& choice : option.choices) choices += (choices.empty() ? "" : "|") + choice;
    return text + " " + plain(choices);
  }
  return option.value.empty() ? text : text + " " + italic(option.value);
}

std::string listOf(const std::vector<DeclaredOption>& options) {
  std::string text;
  for (const DeclaredOption& option : options) {
    text += ".TP\n" + heading(option) + "\n" + plain(option.help) + "\n";
  }
  return text;
}

/// Lines stay lines.
std::string lines(const std::string& text) {
  return text.empty() ? "" : ".PP\n.nf\n" + plain(text) + "\n.fi\n";
}

/// A text in prose, or one that has a list in it.
std::string footer(const std::string& text) {
  if (text.find('\n') != std::string::npos) return lines(text);
  return text.empty() ? "" : ".PP\n" + plain(text) + "\n";
}

}  // namespace

std::string manualPage(const CLI::App& app, const std::string& version) {
  const auto commands = declaredCommands(app);
  std::string page =
      ".TH QELVIDEO 1 \"\" \"qelvideo " + version +
      "\" \"User Commands\"\n.SH NAME\nqelvideo \\- capture displays, windows and cameras, and show "
      "live video\n.SH SYNOPSIS\n.B qelvideo\n[\\fIOPTIONS\\fR] \\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n";
  page += ".SH DESCRIPTION\n" + plain(app.get_description()) +
          "\nWithout a desktop, displays and windows cannot be captured; films can be shown off screen.\n";
  page += ".SH OPTIONS\nBefore or after the command:\n" + listOf(commands.front().options);
  page += ".SH COMMANDS\n";
  for (std::size_t i = 1; i < commands.size(); ++i) {
    const DeclaredCommand& command = commands[i];
    page += ".SS qelvideo " + plain(command.name) + "\n" + plain(command.help) + ".\n";
    page += listOf(command.options) + footer(command.footer);
  }
  page +=
      ".SH EXIT STATUS\n0 when all went well, 1 for a failure, 2 for wrong usage.\n"
      ".SH ENVIRONMENT\n.TP\n.B DISPLAY\nThe X server whose displays and windows there are.\n"
      ".TP\n.B QelUtilVideoRenderViewMetalDisabled\n1: views are drawn by OpenGL and not through Vulkan.\n"
      ".TP\n.B QelUtilVideoRenderViewMPSDisabled\n1: views that are drawn through Vulkan are blurred by the "
      "library's "
      "own kernel.\n"
      ".SH FILES\n.TP\n.I ~/.config/QelUtilVideo/defaults.json\nThe same settings, as members of a JSON "
      "object.\n";
  return page;
}

}  // namespace qelvideo
