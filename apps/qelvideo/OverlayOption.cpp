#include "OverlayOption.h"

#include <QelUtilVideo/CapturableWindowManager.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <string_view>

#include "Failure.h"

namespace qelvideo {

namespace {

template <class Integer>
bool read(std::string_view text, Integer& value) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return !text.empty() && result.ec == std::errc{} && result.ptr == end;
}

}  // namespace

Overlay parseOverlay(const std::string& text) {
  Overlay overlay;
  const std::size_t colon = text.find(':');
  if (colon != std::string::npos &&
      read(std::string_view(text).substr(0, colon), overlay.processIdentifier) &&
      read(std::string_view(text).substr(colon + 1), overlay.windowLevel)) {
    return overlay;
  }
  throw UsageFailure("\"" + text +
                     "\" is no overlay; write the owner's process ID and the window's level, as in 4711:101");
}

void addOverlayOption(CLI::App& command, std::string& overlay) {
  command
      .add_option("--overlay", overlay,
                  "Show the windows of this process and level too, where they lie over the window captured")
      ->type_name("PID:LEVEL");
}

void registerOverlay(const std::string& overlay) {
  if (overlay.empty()) return;
  const Overlay parsed = parseOverlay(overlay);
  QelUtilVideo::CapturableWindowManager::setOverlay(parsed.windowLevel, parsed.processIdentifier);
}

}  // namespace qelvideo
