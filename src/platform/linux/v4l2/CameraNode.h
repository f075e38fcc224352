#pragma once

#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

class VideoNode;

/// A video node of the system, and what is known of it without opening it. Texts may be empty.
struct CameraNode {
  std::string path;
  std::string name;    ///< the product's, for people
  std::string serial;  ///< model and serial number; two of one model may share it
  std::string port;    ///< where it is plugged in
  std::string index;   ///< which of its device's nodes it is
  std::optional<bool> canCapture;
};

/// A camera as it is told from others.
struct CameraIdentity {
  /// Distinct for each of the nodes of each camera; the same when that is plugged into the same port again.
  std::string uniqueID;
  std::string name;
  /// In the driver's words, which tell whether another one is at its path by now; empty: it could not be
  /// asked.
  std::string card;
  std::string bus;
};

/// Whether what was opened is the camera, as far as one can tell.
[[nodiscard]] bool isStill(const CameraIdentity& camera, const VideoNode& node);

/// Who the node's camera is; none when it is the node of something else, or does not answer. One that cannot
/// be opened just now counts as a camera unless something speaks against it: the attempt to use it tells what
/// is wrong.
[[nodiscard]] std::optional<CameraIdentity> identifyCamera(const CameraNode& node);

/// As people count: "video2" before "video10".
void sortByNumber(std::vector<CameraNode>& nodes);

}  // namespace QelUtilVideo
