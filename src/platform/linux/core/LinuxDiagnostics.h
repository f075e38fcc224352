#pragma once

#include "platform/Diagnostics.h"

#include <functional>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Puts together what the parts of the machine say about themselves. Each is asked on a thread of its own,
/// since libraries that talk to servers and drivers wait for them without an end.
class LinuxDiagnostics final : public Diagnostics {
 public:
  struct Examination {
    Finding::Area area = Finding::Area::system;
    std::string subject;  ///< what is missing when there is no answer
    std::string remedy;   ///< what to do then
    /// May outlive the object, the thread with it; what it answers after that is dropped.
    std::function<std::vector<Finding>()> examine;
  };

  /// `patience`: the seconds that all the examinations together may take.
  explicit LinuxDiagnostics(std::vector<Examination> examinations, double patience = 5);

  [[nodiscard]] std::vector<Finding> examine() override;

 private:
  const std::vector<Examination> examinations_;
  const double patience_;
};

}  // namespace QelUtilVideo
