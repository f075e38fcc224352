#include "platform/linux/core/JsonFile.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace QelUtilVideo {

std::optional<nlohmann::json> readJsonObject(const std::filesystem::path& path) {
  constexpr std::uintmax_t largest = 1'048'576;
  std::error_code error;
  // Opening a pipe would wait for its other end.
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  if (std::filesystem::file_size(path, error) > largest || error) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  auto object = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!object.is_object()) return std::nullopt;
  return object;
}

}  // namespace QelUtilVideo
