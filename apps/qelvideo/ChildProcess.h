#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qelvideo {

/// A program that was started and is ended together with this object. It sees no terminal: its standard
/// streams are empty, and Ctrl-C does not reach it.
class ChildProcess {
 public:
  /// Starts `arguments[0]`, found by PATH. With `passedDescriptor` that descriptor becomes number 3 of
  /// the program; all others are closed. Throws `Failure` when there is no such program.
  explicit ChildProcess(const std::vector<std::string>& arguments,
                        std::optional<int> passedDescriptor = std::nullopt);
  ChildProcess(ChildProcess&& other) noexcept : process_(std::exchange(other.process_, -1)) {}
  ChildProcess& operator=(ChildProcess&&) = delete;
  /// Asks the program to end and, after two seconds, makes it.
  ~ChildProcess();

  /// Waits until the program ends by itself, that long at most. Whether it has ended.
  bool wait(double seconds);

 private:
  pid_t process_ = -1;
};

}  // namespace qelvideo
