#include "platform/linux/core/LinuxBundle.h"

#include "platform/linux/core/JsonFile.h"

#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

namespace QelUtilVideo {
namespace {

std::filesystem::path folderOf(const std::filesystem::path& file) {
  std::error_code error;
  const auto whole = std::filesystem::canonical(file, error);
  return error ? std::filesystem::path() : whole.parent_path();
}

/// The folder of the file that holds this function: the shared library, or a program. The loader knows it
/// too, but by the name it was given, which may be relative to a folder that was current then.
std::filesystem::path codeFolder() {
  const auto here = reinterpret_cast<std::uintptr_t>(&codeFolder);
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);) {
    // "BEGIN-END PERMISSIONS OFFSET DEVICE INODE FILE", the addresses in hexadecimal
    std::istringstream fields(line);
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    fields >> std::hex >> begin >> dash >> end;
    if (here < begin || here >= end) continue;
    const auto file = line.find('/');
    return file == std::string::npos ? std::filesystem::path() : folderOf(line.substr(file));
  }
  return {};
}

std::vector<std::filesystem::path> standardFolders() {
  std::vector<std::filesystem::path> folders;
  if (const auto code = codeFolder(); !code.empty()) {
    folders.push_back(code / "QelUtilVideo");
    folders.push_back(code.parent_path() / "share" / "QelUtilVideo");
  }
  if (const auto program = folderOf("/proc/self/exe"); !program.empty()) {
    folders.push_back(program.parent_path() / "lib" / "QelUtilVideo");
  }
  return folders;
}

std::optional<Value> valueOf(const nlohmann::json& json) {
  if (json.is_string()) return json.get<std::string>();
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_unsigned() &&
      json.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return json.get<double>();
  }
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  return std::nullopt;
}

}  // namespace

LinuxBundle::LinuxBundle() : LinuxBundle(standardFolders()) {}
LinuxBundle::LinuxBundle(std::vector<std::filesystem::path> folders) : folders_(std::move(folders)) {}

std::optional<Dictionary> LinuxBundle::infoDictionary() {
  const auto path = pathForResource("Info.json");
  const auto json = path ? readJsonObject(*path) : std::nullopt;
  if (!json) return std::nullopt;
  Dictionary info;
  for (const auto& [key, value] : json->items()) {
    if (auto known = valueOf(value)) info.set(key, std::move(*known));
  }
  return info;
}

std::optional<std::string> LinuxBundle::pathForResource(const std::string& name) {
  if (name.find('/') != std::string::npos) return std::nullopt;
  for (const auto& folder : folders_) {
    std::error_code error;
    const auto path = folder / name;
    if (std::filesystem::is_regular_file(path, error)) return path.string();
  }
  return std::nullopt;
}

}  // namespace QelUtilVideo
