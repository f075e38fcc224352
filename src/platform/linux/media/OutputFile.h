#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <system_error>

namespace QelUtilVideo {

/// Makes `contents` the file's contents: the file is written beside it and then takes its place, so that
/// a failure leaves an existing file as it was. A link is followed. What is not a regular file (a pipe,
/// a terminal) is written to as it is. Blocks; any thread. No error on success.
[[nodiscard]] std::error_code replaceFile(const std::string& path, std::span<const std::byte> contents);

}  // namespace QelUtilVideo
