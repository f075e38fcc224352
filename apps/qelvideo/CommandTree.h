#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace qelvideo {

/// An option or an argument as it is declared.
struct DeclaredOption {
  std::vector<std::string> names;    ///< with their dashes, the short ones first; none: an argument
  std::string value;                 ///< what its value is called; empty: it has none
  std::vector<std::string> choices;  ///< its values, where they are fixed
  std::string help;
  bool isRequired = false;
};

struct DeclaredCommand {
  std::string name;  ///< empty: the program itself
  std::string help;
  std::string footer;
  std::vector<DeclaredOption> options;
};

/// What the program takes, without what its help hides and without the help of each command: first what it
/// takes before or after any command, then the commands.
[[nodiscard]] std::vector<DeclaredCommand> declaredCommands(const CLI::App& app);

}  // namespace qelvideo
