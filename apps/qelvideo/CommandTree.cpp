#include "CommandTree.h"

namespace qelvideo {

namespace {

/// `TEXT:{a,b}`: its choices; the name of the value is what is before the colon.
std::vector<std::string> choicesIn(const std::string& type) {
  std::vector<std::string> choices;
  const auto begin = type.find('{'), end = type.find('}');
  if (begin == std::string::npos || end == std::string::npos) return choices;
  const std::string list = type.substr(begin + 1, end - begin - 1);
  for (std::size_t at = 0; at <= list.size();) {
    const std::size_t comma = std::min(list.find(',', at), list.size());
    choices.push_back(list.substr(at, comma - at));
    at = comma + 1;
  }
  return choices;
}

DeclaredOption declaredOption(const CLI::Option& option) {
  DeclaredOption declared;
  for (const std::string& name : option.get_snames()) declared.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) declared.names.push_back("--" + name);
  const std::string type = option.get_type_name();
  declared.choices = choicesIn(type);
  declared.value = declared.names.empty() ? option.get_name() : type.substr(0, type.find(':'));
  // A list of choices may have no name before it.
  if (declared.value.find('{') != std::string::npos) declared.value = "NAME";
  declared.help = option.get_description();
  declared.isRequired = option.get_required();
  return declared;
}

DeclaredCommand declaredCommand(const CLI::App& app) {
  DeclaredCommand command{
      app.get_parent() ? app.get_name() : "", app.get_description(), app.get_footer(), {}};
  for (const CLI::Option* option : app.get_options()) {
    const bool isRepeated = app.get_parent() && option == app.get_help_ptr();
    if (!option->get_group().empty() && !isRepeated) command.options.push_back(declaredOption(*option));
  }
  return command;
}

}  // namespace

std::vector<DeclaredCommand> declaredCommands(const CLI::App& app) {
  std::vector<DeclaredCommand> all{declaredCommand(app)};
  for (const CLI::App* command : app.get_subcommands({})) all.push_back(declaredCommand(*command));
  return all;
}

}  // namespace qelvideo
