#pragma once

#include "platform/linux/x11/windowserver/WindowLayers.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace QelUtilVideo {

/// What a client wrote about its window, as far as it could be read.
struct WindowProperties {
  std::optional<std::string> netName = {};     ///< `_NET_WM_NAME`
  std::optional<std::string> legacyName = {};  ///< `WM_NAME`
  std::optional<WindowType> type = {};
  std::uint32_t transientFor = 0;
  bool isModal = false;
  std::optional<std::uint32_t> opacity = {};
  std::optional<std::array<std::uint32_t, 4>> frameExtents = {};  ///< left, right, top, bottom; pixels
  std::string instanceName = {};                                  ///< of `WM_CLASS`
  std::string className = {};
  std::optional<std::uint32_t> processIdentifier = {};
  std::optional<std::string> clientMachine = {};  ///< the host's name, in which the process number counts
  std::optional<std::string> applicationID = {};

  /// Whether what tells applications apart is the same.
  [[nodiscard]] bool isOfSameApplication(const WindowProperties& other) const {
    return std::tie(processIdentifier, clientMachine, applicationID, instanceName, className) ==
           std::tie(other.processIdentifier, other.clientMachine, other.applicationID, other.instanceName,
                    other.className);
  }
};

/// The title that people see; absent when there is none.
[[nodiscard]] std::optional<std::string> windowName(const WindowProperties& properties);

/// From 0 to 1; exactly 1 without the property.
[[nodiscard]] double windowAlpha(std::optional<std::uint32_t> opacity);

/// The content of a window at `area` without the shadows around it that its client draws itself; all of it
/// when they would leave nothing.
[[nodiscard]] PixelRect withoutShadows(const PixelRect& area,
                                       const std::optional<std::array<std::uint32_t, 4>>& frameExtents);

/// The process that owns a window: the one that the server knows, else the one that the client names. A
/// client with neither has a negative number of its own, by the number that the server knows it by.
[[nodiscard]] std::int32_t ownerProcess(std::optional<std::uint32_t> knownToServer,
                                        std::optional<std::uint32_t> namedByClient,
                                        std::uint32_t clientNumber);

}  // namespace QelUtilVideo
