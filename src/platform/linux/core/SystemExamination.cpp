#include "platform/linux/core/SystemExamination.h"

#include "platform/linux/core/JsonFile.h"
#include "platform/linux/core/LinuxBundle.h"
#include "platform/linux/core/LinuxSystemLog.h"
#include "platform/linux/core/LinuxUserDefaults.h"

#include <system_error>

namespace QelUtilVideo {
namespace {

using State = Finding::State;

Finding finding(const char* subject, State state, std::string detail, std::string remedy = {}) {
  return {Finding::Area::system, subject, state, std::move(detail), std::move(remedy)};
}

Finding examineLog() {
  constexpr const char* subject = "System log";
  switch (LinuxSystemLog().reader()) {
    case LinuxSystemLog::Reader::journal:
      return finding(subject, State::ok, "the systemd journal");
    case LinuxSystemLog::Reader::syslog:
      return finding(subject, State::ok, "the system logger at " + std::string(LinuxSystemLog::syslogSocket));
    case LinuxSystemLog::Reader::none:
      break;
  }
  return finding(subject, State::missing, "neither a journal nor a system logger takes records",
                 "Run systemd-journald, or a system logger such as the package rsyslog, or have the host "
                 "program take the log lines itself.");
}

Finding examineDefaults() {
  constexpr const char* subject = "User defaults";
  const std::optional<std::filesystem::path> path = LinuxUserDefaults::file();
  if (!path) {
    return finding(subject, State::limited, "from the environment alone",
                   "Set HOME or XDG_CONFIG_HOME to an absolute path for settings in a file.");
  }
  std::error_code error;
  const bool exists = std::filesystem::exists(*path, error);
  if (!exists && !error) return finding(subject, State::ok, "no file; it would be " + path->string());
  if (readJsonObject(*path)) return finding(subject, State::ok, path->string());
  return finding(subject, State::limited, path->string() + " cannot be used, and counts as empty",
                 "Make it a readable file that holds one JSON object, smaller than a megabyte.");
}

Finding examineBundle() {
  constexpr const char* subject = "Information file";
  constexpr const char* remedy =
      "Install the library together with its file QelUtilVideo/Info.json, which lies beside it.";
  LinuxBundle bundle;
  const std::optional<std::string> path = bundle.pathForResource("Info.json");
  if (!path) return finding(subject, State::limited, "none, so that the revision is unknown", remedy);
  const std::optional<Dictionary> info = bundle.infoDictionary();
  const std::string* revision = info ? info->get<std::string>("QelUtilRevision") : nullptr;
  if (!revision) return finding(subject, State::limited, *path + " names no revision", remedy);
  return finding(subject, State::ok, *path + ", revision " + *revision);
}

}  // namespace

std::vector<Finding> examineSystem() { return {examineLog(), examineDefaults(), examineBundle()}; }

}  // namespace QelUtilVideo
