#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace qelvideo {

/// The program's page for `man`, of section 1.
[[nodiscard]] std::string manualPage(const CLI::App& app, const std::string& version);

}  // namespace qelvideo
