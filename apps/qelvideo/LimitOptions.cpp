#include "LimitOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <functional>
#include <string>

#include "Recorder.h"

namespace qelvideo {

namespace {

std::string checkFrames(const std::string& text) {
  std::uint64_t count = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), count);
  if (result.ec == std::errc{} && result.ptr == text.data() + text.size() && count > 0) return {};
  return "\"" + text + "\" is no number of frames; write one from 1 up";
}

CLI::Option* addFrames(CLI::App& command, std::optional<std::uint64_t>& frames) {
  const std::function<void(const std::uint64_t&)> set = [&frames](const std::uint64_t& count) {
    frames = count;
  };
  return command.add_option_function("--frames", set, "End after that many frames")
      ->check(checkFrames)
      ->type_name("N");
}

std::string checkSeconds(const std::string& text) {
  double seconds = 0;
  if (CLI::detail::lexical_cast(text, seconds) && std::isfinite(seconds) && seconds > 0) return {};
  return "\"" + text + "\" is no time; write seconds as in 2.5";
}

}  // namespace

void addLimitOptions(CLI::App& command, RecordingLimits& limits) {
  CLI::Option* frames = addFrames(command, limits.frames);
  const std::function<void(const double&)> set = [&limits](const double& seconds) {
    limits.seconds = seconds;
  };
  command.add_option_function("--seconds", set, "End after that time")
      ->check(checkSeconds)
      ->type_name("S")
      ->excludes(frames);
}

void addFramesOption(CLI::App& command, std::optional<std::uint64_t>& frames) { addFrames(command, frames); }

}  // namespace qelvideo
