#include "platform/linux/x11/windowserver/Applications.h"

#include "platform/linux/core/UniqueFD.h"
#include "platform/linux/core/Utf8.h"
#include "platform/linux/x11/windowserver/PresentationPrograms.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace QelUtilVideo {

namespace {

namespace fs = std::filesystem;

/// The beginning of a file; empty for what is none, cannot be read or would be waited for. Processes choose
/// what some of these names lead to.
std::string beginningOf(const fs::path& path, int flags = 0) {
  constexpr std::size_t kMost = std::size_t{64} * 1024;
  const UniqueFD file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | flags));
  struct stat facts {};
  if (!file || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return "";
  std::string text(kMost, '\0');
  std::size_t size = 0;
  while (size < kMost) {
    const ssize_t count = ::read(file.get(), text.data() + size, kMost - size);
    if (count <= 0) break;
    size += static_cast<std::size_t>(count);
  }
  text.resize(size);
  return text;
}

/// The value of the first line that begins with `key`; in the section that `section` begins, if it names one.
std::optional<std::string> valueIn(const std::string& text, std::string_view section, std::string_view key) {
  std::istringstream lines(text);
  bool isInSection = section.empty();
  for (std::string line; std::getline(lines, line);) {
    if (!section.empty() && line.starts_with('[')) isInSection = line == section;
    if (isInSection && line.starts_with(key)) return line.substr(key.size());
  }
  return std::nullopt;
}

std::string firstLine(const fs::path& file) { return valueIn(beginningOf(file), "", "").value_or(""); }

/// Undoes "\x2d" and the like.
std::string unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned code = 0;
    const char* digits = text.data() + i + 2;
    if (text.substr(i).starts_with("\\x") && i + 4 <= text.size() &&
        std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
      plain += static_cast<char>(code);
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

/// What a name ends with and what comes before, apart; absent for another end.
std::optional<std::string_view> before(std::string_view name, std::string_view end) {
  if (!name.ends_with(end)) return std::nullopt;
  return name.substr(0, name.size() - end.size());
}

/// `launcher-ID` or `ID`: launchers escape the hyphens of an ID, so that the last part is the ID.
std::optional<std::string> applicationOfUnit(std::string_view unit) {
  const std::string id = unescaped(unit.substr(unit.rfind('-') + 1));
  return id.empty() ? std::nullopt : std::optional(id);
}

std::string executableName(const fs::path& process) {
  std::error_code error;
  const fs::path file = fs::read_symlink(process / "exe", error);
  // The program file may have been replaced meanwhile.
  const std::string name = file.filename().string();
  if (const auto replaced = before(name, " (deleted)")) return std::string(*replaced);
  return error ? firstLine(process / "comm") : name;
}

std::optional<std::string> applicationID(const fs::path& process) {
  const std::string flatpak = beginningOf(process / "root/.flatpak-info", O_NOFOLLOW);
  if (auto id = valueIn(flatpak, "[Application]", "name=")) return id;
  std::istringstream groups(beginningOf(process / "cgroup"));
  for (std::string line; std::getline(groups, line);) {
    if (auto id = applicationOfControlGroup(line)) return id;
  }
  return std::nullopt;
}

std::optional<std::string> desktopEntryName(const std::string& id, const ApplicationSources& sources) {
  if (id.find('/') != std::string::npos) return std::nullopt;
  for (const fs::path& folder : sources.data) {
    const std::string entry = beginningOf(folder / "applications" / (id + ".desktop"));
    if (auto name = valueIn(entry, "[Desktop Entry]", "Name=")) return name;
  }
  return std::nullopt;
}

}  // namespace

std::vector<fs::path> ApplicationSources::dataFolders() {
  // NOLINTBEGIN(concurrency-mt-unsafe): hosts that set the environment while threads run have lost anyway
  const char* home = std::getenv("XDG_DATA_HOME");
  const char* user = std::getenv("HOME");
  const char* shared = std::getenv("XDG_DATA_DIRS");
  // NOLINTEND(concurrency-mt-unsafe)
  std::vector<fs::path> folders;
  if (home && *home) {
    folders.emplace_back(home);
  } else if (user && *user) {
    folders.push_back(fs::path(user) / ".local/share");
  }
  std::string_view list = shared && *shared ? shared : "/usr/local/share:/usr/share";
  while (!list.empty()) {
    const std::size_t colon = list.find(':');
    if (colon != 0) folders.emplace_back(list.substr(0, colon));
    list = colon == std::string_view::npos ? "" : list.substr(colon + 1);
  }
  return folders;
}

std::optional<std::string> applicationOfControlGroup(std::string_view line) {
  const std::string_view group = line.substr(line.rfind('/') + 1);
  if (group.starts_with("snap.")) {
    const std::string_view name = group.substr(5);
    return std::string(name.substr(0, name.find('.')));
  }
  if (!group.starts_with("app-")) return std::nullopt;
  const std::string_view unit = group.substr(4);
  if (const auto scope = before(unit, ".scope")) {
    // The last part is a number of the launcher's.
    const std::size_t last = scope->rfind('-');
    return last == std::string_view::npos ? std::nullopt : applicationOfUnit(scope->substr(0, last));
  }
  if (const auto service = before(unit, ".service")) {
    return applicationOfUnit(service->substr(0, service->find('@')));
  }
  return std::nullopt;
}

Application findApplication(std::int32_t process, const std::optional<std::string>& idOfWindows,
                            const ApplicationSources& sources) {
  Application application;
  if (process <= 0) return application;
  const fs::path facts = sources.processes / std::to_string(process);
  const std::string executable = executableName(facts);
  application.presentation = findPresentationProgram(executable);
  const auto id = idOfWindows ? idOfWindows : applicationID(facts);
  if (id) application.bundleIdentifier = soundUtf8(*id);
  if (application.presentation) application.bundleIdentifier = application.presentation->bundleIdentifier;

  const auto entry = id ? desktopEntryName(*id, sources) : std::nullopt;
  application.name = soundUtf8(entry ? *entry : executable);
  return application;
}

}  // namespace QelUtilVideo
