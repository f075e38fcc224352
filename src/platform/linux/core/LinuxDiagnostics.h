#pragma once

#include "platform/Diagnostics.h"

#include <functional>
#include <vector>

namespace QelUtilVideo {

/// Puts together what the parts of the machine say about themselves. Each is asked on a thread of its own,
/// since libraries that talk to servers and drivers wait for them without an end; and one after the other,
/// since libXau, which each connection to an X server asks for its key, is not made for several threads.
class LinuxDiagnostics final : public Diagnostics {
 public:
  struct Examination {
    Finding unanswered;  ///< the finding when there is no answer, but for its detail
    /// May outlive the object, the thread with it; what it answers after that is dropped.
    std::function<std::vector<Finding>()> examine;
  };

  /// `patience`: the seconds that each examination may take.
  explicit LinuxDiagnostics(std::vector<Examination> examinations, double patience = 5);

  [[nodiscard]] std::vector<Finding> examine() override;

 private:
  const std::vector<Examination> examinations_;
  const double patience_;
};

}  // namespace QelUtilVideo
