#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace QelUtilVideo {

struct PresentationProgram;

/// The program behind a window.
struct Application {
  std::string name;  ///< as people know it; empty when nobody can tell
  std::optional<std::string> bundleIdentifier;
  const PresentationProgram* presentation = nullptr;  ///< null: shows no slides
};

/// Where facts about processes and applications are found.
struct ApplicationSources {
  std::filesystem::path processes = "/proc";
  /// Folders that have `applications/*.desktop`, the first one with an entry counts.
  std::vector<std::filesystem::path> data = dataFolders();

  [[nodiscard]] static std::vector<std::filesystem::path> dataFolders();
};

/// The application that runs as this process; what is not known of it is left out. `applicationID` is what
/// its windows say (`_GTK_APPLICATION_ID`), if they do. A process that is gone has neither.
[[nodiscard]] Application findApplication(std::int32_t process,
                                          const std::optional<std::string>& applicationID,
                                          const ApplicationSources& sources = {});

/// The application ID in a line of `/proc/PID/cgroup`: of systemd's scopes and services for applications, and
/// of snaps. Absent for other lines.
[[nodiscard]] std::optional<std::string> applicationOfControlGroup(std::string_view line);

}  // namespace QelUtilVideo
