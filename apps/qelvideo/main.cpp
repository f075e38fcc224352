#include <QelUtilVideo/Version.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "Commands.h"
#include "Completion.h"
#include "Failure.h"
#include "HostLoop.h"
#include "LogLines.h"
#include "ManualPage.h"
#include "Terminal.h"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

/// What is made when the program is built, of how its command line is declared.
std::string generated(const CLI::App& app, const std::string& what) {
  if (what == "bash") return qelvideo::bashCompletion(app);
  if (what == "zsh") return qelvideo::zshCompletion(app);
  if (what == "fish") return qelvideo::fishCompletion(app);
  return qelvideo::manualPage(app, QELVIDEO_VERSION);
}

void declare(CLI::App& app, qelvideo::Action& action, bool& logs) {
  app.set_version_flag("--version", [] {
    return "qelvideo " QELVIDEO_VERSION " (library revision " + QelUtilVideo::version() + ")";
  });
  app.add_flag("--log", logs, "Print the library's log lines on standard error");
  app.add_option("--generate", "A completion script, or the manual page")
      ->check(CLI::IsMember({"bash", "zsh", "fish", "manual"}))
      ->group("");
  app.footer("Exit status: 0; 1 for a failure; 2 for wrong usage. `qelvideo COMMAND --help` tells more.");
  app.require_subcommand(0, 1);
  app.fallthrough();
  qelvideo::addListCommand(app, action);
  qelvideo::addSnapshotCommand(app, action);
  qelvideo::addCaptureCommand(app, action);
  qelvideo::addViewCommand(app, action);
  qelvideo::addWatchCommand(app, action);
  qelvideo::addDoctorCommand(app, action);
  qelvideo::addDemoCommand(app, action);
}

/// A standard stream that came closed stays unusable, but its number goes to no other file, which would
/// get what is meant for the stream.
void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free number is the stream's. Opened for the other direction only.
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

/// Runs what the command line says; the exit status.
int run(int argc, char** argv, qelvideo::Terminal& terminal) {
  CLI::App app("Captures displays, windows and cameras, and shows live video.", "qelvideo");
  qelvideo::Action action;
  bool logs = false;
  declare(app, action, logs);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : wrongUsage;
  }
  if (const CLI::Option& what = *app.get_option("--generate"); what.count() > 0) {
    terminal.result(generated(app, what.as<std::string>()));
    return 0;
  }
  if (!action) throw qelvideo::UsageFailure("name a command; `qelvideo --help` shows which there are");
  qelvideo::HostLoop loop;
  if (logs) qelvideo::showLogLines(terminal);
  action({terminal, loop});
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  occupyStandardStreams();
  // The library may write a log line even after main has returned.
  static auto& terminal = *std::make_unique<qelvideo::Terminal>().release();
  int status = failed;
  try {
    status = run(argc, argv, terminal);
  } catch (const qelvideo::UsageFailure& failure) {
    terminal.note(std::string("qelvideo: ") + failure.what());
    status = wrongUsage;
  } catch (const std::exception& failure) {
    terminal.note(std::string("qelvideo: ") + failure.what());
  }
  terminal.clearProgress();
  return status;
}
