#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>

namespace QelUtilVideo {

/// The object in a JSON file; absent when it is not a regular file that can be read, is larger than a
/// megabyte, or does not hold exactly one object.
[[nodiscard]] std::optional<nlohmann::json> readJsonObject(const std::filesystem::path& path);

}  // namespace QelUtilVideo
