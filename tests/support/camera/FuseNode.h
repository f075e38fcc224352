#pragma once

#include "support/camera/CameraModel.h"

#include <functional>
#include <memory>
#include <string>

struct fuse_session;

namespace qeltest {

/// A camera as a file that programs open, call, map and poll as they do a V4L2 node. It is a regular file to
/// those who look at its kind.
class FuseNode {
 public:
  /// Mounts it on a file, which is made where there is none. Null when the system does not let it. `mode`:
  /// its permissions.
  static std::unique_ptr<FuseNode> mount(const std::string& path, const CameraOptions& options,
                                         unsigned mode);
  FuseNode(const FuseNode&) = delete;
  FuseNode& operator=(const FuseNode&) = delete;
  /// Everybody who still has it open gets errors from then on.
  ~FuseNode();

  /// Readable when calls wait; -1 when the system takes no more of them.
  [[nodiscard]] int descriptor() const;
  /// Answers one call. False: the last one has been.
  [[nodiscard]] bool serve();
  /// Takes the node out of the file system, as a camera that is pulled out. Those who have it open keep it.
  void remove();
  [[nodiscard]] CameraModel& model() { return *model_; }

 private:
  struct Calls;
  struct Polls;
  FuseNode(std::string path, unsigned mode);

  const std::string path_;
  const unsigned mode_;
  bool isFileOurs_ = false, isMounted_ = false;
  fuse_session* session_ = nullptr;
  std::unique_ptr<Polls> polls_;
  std::unique_ptr<CameraModel> model_;
  std::uint64_t lastFile_ = 0;
};

}  // namespace qeltest
