#pragma once

#include <memory>
#include <string>
#include <vector>

namespace qeltest {

/// An X server of the test's own, on a display number that nobody else has, without a screen that
/// anybody sees. Ended with the object.
class PrivateXServer {
 public:
  enum class Program {
    xvfb,
    tigervnc,  ///< its outputs come and go
  };
  struct Options {
    Program program = Program::xvfb;
    int width = 320;
    int height = 240;
    int depth = 24;
    std::vector<std::string> arguments = {};  ///< further ones for the server
    std::string socket = {};                  ///< where `tigervnc` takes viewers
  };

  /// Whether the machine has the server program.
  static bool isInstalled(Program program = Program::xvfb);
  /// Starts a server and waits until it takes connections; null when it does not within ten seconds.
  static std::unique_ptr<PrivateXServer> start(const Options& options);

  PrivateXServer(const PrivateXServer&) = delete;
  PrivateXServer& operator=(const PrivateXServer&) = delete;
  ~PrivateXServer();

  /// For DISPLAY, e.g. ":7".
  [[nodiscard]] const std::string& display() const { return display_; }
  /// Ends the server at once, as a crash would.
  void kill();

 private:
  PrivateXServer() = default;
  void end(int signal);

  int process_ = -1;
  std::string display_;
};

}  // namespace qeltest

/// Ends the test with a sentence when there is no server program to test with.
#define QEL_REQUIRE_X_SERVER()                 \
  if (!qeltest::PrivateXServer::isInstalled()) \
  GTEST_SKIP() << "Xvfb is not installed, and this test starts one"
