#include "Completion.h"

#include "CommandTree.h"

#include <string_view>

namespace qelvideo {

namespace {

/// In single quotes, as all three shells have them.
std::string inQuotes(std::string_view text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

std::string joined(const std::vector<std::string>& words) {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : " ") + word;
  return all;
}

std::vector<std::string> namesOfOptions(const DeclaredCommand& command) {
  std::vector<std::string> names;
  for (const auto& option : command.options)
    names.insert(names.end(), option.names.begin(), option.names.end());
  return names;
}

/// What a description of zsh's must not contain unescaped.
std::string forZsh(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') result += '\\';
    result += c;
  }
  return result;
}

std::string zshArgument(const DeclaredOption& option) {
  const std::string value = option.choices.empty()
                                ? forZsh(option.value) + ":_files"
                                : forZsh(option.value) + ":(" + joined(option.choices) + ")";
  if (option.names.empty()) return "    " + inQuotes(":" + value) + " \\\n";
  std::string lines;
  for (const std::string& name : option.names) {
    lines += "    " +
             inQuotes(name + "[" + forZsh(option.help) + "]" + (option.value.empty() ? "" : ":" + value)) +
             " \\\n";
  }
  return lines;
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
  const auto commands = declaredCommands(app);
  const std::vector<std::string> everywhere = namesOfOptions(commands.front());
  std::vector<std::string> first = everywhere;
  std::string values, options;
  for (const DeclaredCommand& command : commands) {
    for (const DeclaredOption& option : command.options) {
      if (option.value.empty() || option.names.empty()) continue;
      std::string pattern;
      for (const std::string& name : option.names) pattern += (pattern.empty() ? "" : "|") + name;
      values +=
          "    " + command.name + ":" + pattern + ") words=" + inQuotes(joined(option.choices)) + " ;;\n";
    }
    if (command.name.empty()) continue;
    first.push_back(command.name);
    std::vector<std::string> names = namesOfOptions(command);
    names.insert(names.end(), everywhere.begin(), everywhere.end());
    options += "    " + command.name + ") words=" + inQuotes(joined(names)) + " ;;\n";
  }
  // An alternative of a pattern has the command before it, too.
  for (std::size_t at = 0; (at = values.find('|', at)) != std::string::npos; ++at) {
    const std::size_t line = values.rfind('\n', at) + 1, name = values.find_first_not_of(' ', line);
    values.insert(at + 1, values.substr(name, values.find(':', name) + 1 - name));
  }
  return "# bash completion of qelvideo\n"
         "_qelvideo() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' word "
         "words=''\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    [[ $word == -* ]] || { command=$word; break; }\n"
         "  done\n"
         "  case $command:$previous in\n" +
         values +
         "    *) case $command in\n"
         "    '') words=" +
         inQuotes(joined(first)) + " ;;\n" + options +
         "    esac\n"
         "    [[ -z $command || $current == -* ]] || words='' ;;\n"
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "}\n"
         "complete -o default -F _qelvideo qelvideo\n";
}

std::string zshCompletion(const CLI::App& app) {
  const auto commands = declaredCommands(app);
  std::string names, cases;
  for (const DeclaredCommand& command : commands) {
    if (command.name.empty()) continue;
    names += "    " + inQuotes(command.name + ":" + command.help) + "\n";
    cases += "  " + command.name + ") _arguments \\\n";
    for (const DeclaredOption& option : command.options) cases += zshArgument(option);
    cases += "    && return ;;\n";
  }
  std::string everywhere;
  for (const DeclaredOption& option : commands.front().options) everywhere += zshArgument(option);
  return "#compdef qelvideo\n"
         "_qelvideo() {\n"
         "  local -a commands\n"
         "  commands=(\n" +
         names +
         "  )\n"
         "  local curcontext=$curcontext state line\n"
         "  _arguments -C \\\n" +
         everywhere +
         "    '1: :->command' '*:: :->rest' && return\n"
         "  case $state in\n"
         "  command) _describe -t commands command commands ;;\n"
         "  rest) case $line[1] in\n" +
         cases +
         "  esac ;;\n"
         "  esac\n"
         "}\n"
         "_qelvideo \"$@\"\n";
}

std::string fishCompletion(const CLI::App& app) {
  std::string script = "# fish completion of qelvideo\n";
  for (const DeclaredCommand& command : declaredCommands(app)) {
    const std::string start = "complete -c qelvideo";
    const std::string within =
        command.name.empty() ? "" : " -n '__fish_seen_subcommand_from " + command.name + "'";
    if (!command.name.empty()) {
      script +=
          start + " -n __fish_use_subcommand -f -a " + command.name + " -d " + inQuotes(command.help) + "\n";
    }
    for (const DeclaredOption& option : command.options) {
      if (option.names.empty()) continue;
      script += start + within;
      for (const std::string& name : option.names) {
        script += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
      }
      if (!option.value.empty()) script += " -r";
      if (!option.choices.empty()) script += " -f -a " + inQuotes(joined(option.choices));
      script += " -d " + inQuotes(option.help) + "\n";
    }
  }
  return script;
}

}  // namespace qelvideo
