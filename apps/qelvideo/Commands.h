#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace qelvideo {

class HostLoop;
class Terminal;

/// What every command works with.
struct Context {
  Terminal& terminal;
  HostLoop& loop;
};

/// What the chosen command does; throws `Failure`.
using Action = std::function<void(const Context&)>;

// Each declares a command with its options; parsing a command line that names it sets `action`.
void addListCommand(CLI::App& app, Action& action);
void addSnapshotCommand(CLI::App& app, Action& action);
void addCaptureCommand(CLI::App& app, Action& action);
void addViewCommand(CLI::App& app, Action& action);
void addWatchCommand(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);
void addDemoCommand(CLI::App& app, Action& action);

}  // namespace qelvideo
