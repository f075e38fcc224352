#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace qelvideo {

/// A script that has a shell complete command lines of the program: its commands, their options, and the
/// values that an option has to choose from; files everywhere else.
[[nodiscard]] std::string bashCompletion(const CLI::App& app);
[[nodiscard]] std::string zshCompletion(const CLI::App& app);
[[nodiscard]] std::string fishCompletion(const CLI::App& app);

}  // namespace qelvideo
