#pragma once

#include <stdexcept>
#include <string>

namespace qelvideo {

/// What went wrong and what to do about it, written for the person at the terminal. Ends the command
/// with exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Options that do not make sense together or here. Ends the command with exit status 2.
class UsageFailure : public Failure {
 public:
  using Failure::Failure;
};

/// "CANNOT: Permission denied" for an `errno` value.
[[nodiscard]] Failure systemFailure(const std::string& cannot, int error);

}  // namespace qelvideo
