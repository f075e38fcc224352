#pragma once

#include <QelUtilVideo/platform/Diagnostics.h>

#include <string>
#include <vector>

namespace qelvideo {

/// What a machine offers, for people and for programs.
class MachineReport {
 public:
  explicit MachineReport(std::vector<QelUtilVideo::Finding> findings) : findings_(std::move(findings)) {}

  [[nodiscard]] bool capturesDisplays() const;
  [[nodiscard]] bool drawsViews() const;

  /// Area by area, each finding on a line of its own with its remedy below; no line feed at the end.
  [[nodiscard]] std::string text() const;
  /// A document with the two answers and the findings.
  [[nodiscard]] std::string json() const;

 private:
  [[nodiscard]] bool works(QelUtilVideo::Finding::Area area) const;

  std::vector<QelUtilVideo::Finding> findings_;
};

}  // namespace qelvideo
