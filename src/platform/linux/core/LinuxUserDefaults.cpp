#include "platform/linux/core/LinuxUserDefaults.h"

#include "platform/linux/core/JsonFile.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>

namespace QelUtilVideo {
namespace {

bool isTrue(double number) { return number < 0 || number > 0; }

bool isTrue(const std::string& text) {
  constexpr std::array<const char*, 3> words{"true", "yes", "on"};
  if (std::any_of(words.begin(), words.end(),
                  [&](const char* word) { return ::strcasecmp(text.c_str(), word) == 0; })) {
    return true;
  }
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && isTrue(number);
}

bool isTrue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return isTrue(value.get<double>());
  return value.is_string() && isTrue(value.get_ref<const std::string&>());
}

std::optional<std::string> environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value ? std::optional<std::string>(value) : std::nullopt;
}

std::optional<std::filesystem::path> configurationFolder() {
  const std::filesystem::path configured = environment("XDG_CONFIG_HOME").value_or("");
  if (configured.is_absolute()) return configured;
  const std::filesystem::path home = environment("HOME").value_or("");
  if (home.is_absolute()) return home / ".config";
  return std::nullopt;
}

}  // namespace

std::optional<std::filesystem::path> LinuxUserDefaults::file() {
  const auto folder = configurationFolder();
  return folder ? std::optional(*folder / "QelUtilVideo" / "defaults.json") : std::nullopt;
}

bool LinuxUserDefaults::boolForKey(const std::string& key) {
  if (const auto value = environment(key)) return isTrue(*value);
  const auto path = file();
  if (!path) return false;
  const auto settings = readJsonObject(*path);
  if (!settings) return false;
  const auto found = settings->find(key);
  return found != settings->end() && isTrue(*found);
}

}  // namespace QelUtilVideo
