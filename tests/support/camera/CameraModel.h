#pragma once

#include "support/camera/TestPicture.h"

#include <linux/videodev2.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qeltest {

/// One picture size of a format, with its rates in frames per second.
struct OfferedMode {
  std::uint32_t format = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint32_t> rates;
};

struct CameraOptions {
  std::string card = "Emulated camera";
  std::string bus = "usb-emulated-1";
  std::vector<OfferedMode> modes;
  std::uint32_t capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
  std::uint32_t padding = 0;  ///< bytes at each row's end
  bool listsSizes = true;
};

/// The part of a camera that a driver's author writes: answers V4L2's calls, of any number of open files, and
/// makes pictures at their times. Any thread.
class CameraModel {
 public:
  using File = std::uint64_t;
  /// 0 or an error's number; the argument is the structure of the call, changed in place.
  using Reply = std::function<void(int error, const v4l2_buffer&)>;
  /// How pictures reach those who mapped them.
  using Store = std::function<void(std::uint64_t offset, const std::vector<std::uint8_t>& bytes)>;

  static constexpr std::uint64_t kRegion = 128U << 20;  ///< bytes of the file for the buffers of one stream
  static constexpr std::uint64_t kRegions = 16;

  /// `store` and `wake` are called without a lock; `wake` when a file may have become ready.
  CameraModel(CameraOptions options, Store store, std::function<void()> wake);

  void open(File file);
  void release(File file);
  /// Everything but taking a buffer. 0 or the error's number.
  int control(File file, std::uint32_t request, void* argument);
  /// Takes a filled buffer: replies now, or, where the caller waits, when there is one.
  void dequeue(File file, const v4l2_buffer& request, bool waits, Reply reply);
  /// Gives up the waiting of a file.
  void interrupt(File file);
  [[nodiscard]] short events(File file);
  [[nodiscard]] bool isGone();

  /// Makes pictures until the end. On a thread of its own.
  void run();
  void end();

  /// Carries out a line of text, as the program's help says them; answers with one.
  std::string command(const std::string& line);

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Time = std::chrono::steady_clock::time_point;
  enum class Place { idle, queued, done };
  struct Buffer {
    Place place = Place::idle;
    std::uint32_t bytesUsed = 0;
    std::uint32_t sequence = 0;
    std::uint32_t flags = 0;
    Time time;
  };
  struct Waiting {
    File file;
    v4l2_buffer request;
    Reply reply;
  };

  int setFormat(v4l2_format& format, bool isTrial);
  int describeFormat(v4l2_fmtdesc& description) const;
  int describeSize(v4l2_frmsizeenum& size) const;
  int describeInterval(v4l2_frmivalenum& interval) const;
  int parameters(v4l2_streamparm& parameters, bool isSet);
  int request(File file, v4l2_requestbuffers& request);
  int queue(v4l2_buffer& buffer);
  int stream(File file, int type, bool isOn);
  void stopStream();
  void describe(std::uint32_t index, v4l2_buffer& buffer) const;
  int takeDone(v4l2_buffer& buffer);
  [[nodiscard]] bool isBusyFor(File file) const;
  [[nodiscard]] const OfferedMode& mode() const { return options_.modes[mode_]; }
  [[nodiscard]] Time::duration period() const;
  void fillNext(Lock& lock, Time due);
  void answerWaiting(Lock& lock);
  std::string status();

  CameraOptions options_;
  const Store store_;
  const std::function<void()> wake_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t mode_ = 0;
  std::uint32_t rate_ = 30;
  PictureShape shape_;
  std::map<File, v4l2_priority> files_;
  std::optional<File> owner_;
  std::uint64_t generation_ = 0;
  std::vector<Buffer> buffers_;
  std::deque<std::uint32_t> queued_, done_;
  std::deque<Waiting> waiting_;
  std::vector<std::vector<std::uint8_t>> pictures_;
  bool isStreaming_ = false, isGone_ = false, isEnded_ = false;
  std::uint32_t sequence_ = 0;
  // What a test asked for.
  bool isBusy_ = false, isFrozen_ = false;
  std::chrono::milliseconds slow_{0}, slowOpening_{0};
  int short_ = 0, damaged_ = 0, corrupt_ = 0, fault_ = 0;
  std::uint64_t opens_ = 0, made_ = 0, dropped_ = 0;
};

/// "YUYV:1280x720@30,10;MJPG:640x480@30" as modes; empty when it cannot be read.
[[nodiscard]] std::vector<OfferedMode> parseModes(const std::string& text);

}  // namespace qeltest
