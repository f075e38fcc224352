#pragma once

#include <memory>
#include <string>
#include <vector>

namespace qeltest {

/// Arranges the outputs of a running TigerVNC server as one of its viewers does. Outputs that are not there
/// yet come into being; later ones that are left out are unplugged.
class VncOutputs {
 public:
  struct Output {
    int x;
    int y;
    int width;
    int height;
  };

  /// Null when the server does not let a viewer in.
  static std::unique_ptr<VncOutputs> open(const std::string& socket);
  VncOutputs(const VncOutputs&) = delete;
  VncOutputs& operator=(const VncOutputs&) = delete;
  ~VncOutputs();

  /// False when the server does not answer.
  [[nodiscard]] bool arrange(const std::vector<Output>& outputs);

 private:
  explicit VncOutputs(int socket) : socket_(socket) {}
  [[nodiscard]] bool greet();
  [[nodiscard]] bool send(const std::string& bytes) const;
  [[nodiscard]] std::string receive(std::size_t count) const;

  int socket_;
};

}  // namespace qeltest
