#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace QelUtilVideo {

/// `timeValue / timeScale` seconds; where one of them is below 1 the time is not known.
struct CVTime {
  std::int64_t timeValue = 0;
  std::int32_t timeScale = 0;
};

/// Calls back once per refresh of the fastest display, on a thread of its own, while it is started. Made,
/// started, stopped and destroyed on any thread but its own.
class CVDisplayLink {
 public:
  /// Answers kCVReturnSuccess.
  using OutputHandler = std::function<CVReturn()>;

  /// Stops. No call of the handler is under way any more when it returns.
  virtual ~CVDisplayLink() = default;
  /// Before the start.
  virtual void CVDisplayLinkSetOutputHandler(OutputHandler handler) = 0;
  virtual void CVDisplayLinkStart() = 0;
  virtual void CVDisplayLinkStop() = 0;
  /// Seconds from refresh to refresh.
  [[nodiscard]] virtual CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod() const = 0;
};

/// Any thread.
class DisplayLinks {
 public:
  virtual ~DisplayLinks() = default;
  /// A link for all displays, those that come later too; at 60 refreshes per second where none is known.
  /// Without displays it is made all the same.
  [[nodiscard]] virtual CVReturn CVDisplayLinkCreateWithActiveCGDisplays(
      std::unique_ptr<CVDisplayLink>& link) = 0;
};

}  // namespace QelUtilVideo
