#include "capture/device/DisplayNaming.h"

#include "platform/Displays.h"
#include "platform/SystemVersion.h"

#include <algorithm>

namespace QelUtilVideo::device {
namespace {

constexpr const char* kUnknownScreen = "Unknown Screen";

bool holds(const Dictionary& info, const char* key, std::uint32_t number) {
  const auto* value = info.get<std::uint32_t>(key);
  return value && *value == number;
}

/// A service without a usable serial number stands for displays that tell none either.
bool serialMatches(const Dictionary& info, std::uint32_t serial) {
  const auto* value = info.get<std::uint32_t>("DisplaySerialNumber");
  return value ? *value == serial : serial == 0;
}

/// The first of the service's localized names; null when they are missing, empty or not all texts.
const std::string* firstProductName(const Dictionary& info) {
  const auto* names = info.get<Dictionary>("DisplayProductName");
  if (!names || names->empty()) return nullptr;
  const auto isText = [](const auto& entry) { return entry.second.template get<std::string>() != nullptr; };
  if (!std::all_of(names->entries().begin(), names->entries().end(), isText)) return nullptr;
  return names->entries().front().second.get<std::string>();
}

}  // namespace

std::optional<CGDirectDisplayID> screenDisplayID(const NSScreen& screen) {
  const auto* number = screen.deviceDescription().get<std::uint32_t>("NSScreenNumber");
  return number ? std::optional(*number) : std::nullopt;
}

std::string displayProductName(Displays& displays, CGDirectDisplayID display) {
  const auto services = displays.displayInfoDictionaries();
  if (!services) return kUnknownScreen;
  const std::uint32_t vendor = displays.CGDisplayVendorNumber(display);
  const std::uint32_t model = displays.CGDisplayModelNumber(display);
  const std::uint32_t serial = displays.CGDisplaySerialNumber(display);
  for (const auto& info : *services) {
    if (!info || !holds(*info, "DisplayVendorID", vendor) || !holds(*info, "DisplayProductID", model) ||
        !serialMatches(*info, serial)) {
      continue;
    }
    if (const std::string* name = firstProductName(*info)) return *name;
  }
  return kUnknownScreen;
}

std::string displayName(SystemVersion& systemVersion, const NSScreen& screen,
                        const std::string& productName) {
  return systemVersion.isAtLeast(10, 15) ? screen.localizedName() : productName;
}

std::string deviceScreenUniqueID(CGDirectDisplayID display) {
  return "QelUtilVideo.CapturableScreen.AV.CGDirectDisplayID." + std::to_string(display);
}

std::string windowListScreenUniqueID(CGDirectDisplayID display) {
  return "QelUtilVideo.CapturableScreen.QWS.CGDirectDisplayID." + std::to_string(display);
}

}  // namespace QelUtilVideo::device
