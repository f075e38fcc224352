#pragma once

#include "support/TemporaryFolder.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qeltest {

/// A V4L2 camera that is a process of the test's own; gone with the object.
class EmulatedCamera {
 public:
  struct Options {
    std::string formats = "YUYV:640x480@30";
    std::vector<std::string> arguments = {};  ///< further ones of the program
    std::string path = {};                    ///< where it is to be; empty: in a folder of its own
  };

  /// Why there can be none, if so; a sentence.
  static std::optional<std::string> whyNot();
  /// Null when it does not start.
  static std::unique_ptr<EmulatedCamera> start(const Options& options);

  EmulatedCamera(const EmulatedCamera&) = delete;
  EmulatedCamera& operator=(const EmulatedCamera&) = delete;
  ~EmulatedCamera();

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] int process() const { return process_; }
  /// Sends a line, as the program's source file says them, and waits for the answer.
  std::string command(const std::string& line);

 private:
  EmulatedCamera() = default;
  [[nodiscard]] std::string readLine() const;

  TemporaryFolder folder_;
  std::string path_;
  int process_ = -1;
  int in_ = -1, out_ = -1;
};

}  // namespace qeltest
