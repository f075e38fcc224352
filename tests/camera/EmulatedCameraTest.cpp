#include "support/camera/EmulatedCamera.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

using qeltest::EmulatedCamera;

/// Runs other people's programs on the camera, with what they have to see of the system made up.
class CameraDouble : public testing::Test {
 protected:
  void start(const EmulatedCamera::Options& options) {
    camera_ = EmulatedCamera::start(options);
    ASSERT_TRUE(camera_);
  }
  [[nodiscard]] bool run(const std::string& line) const {
    // They are not to be told of our devices.
    const std::string script =
        "exec >'" + folder_.file("output") + "' 2>&1 </dev/null; unset LD_PRELOAD; " + line;
    return std::system(("bash -c \"" + script + "\"").c_str()) == 0;
  }
  [[nodiscard]] bool runInNamespace(const std::string& line) const {
    return run(
        "unshare -m bash -c 'mount -t tmpfs none /sys/dev/char && mkdir /sys/dev/char/0:0 && "
        "echo DEVNAME=video0 >/sys/dev/char/0:0/uevent && " +
        line + "'");
  }
  [[nodiscard]] std::string output() const { return folder_.read("output"); }

  TemporaryFolder folder_;
  std::unique_ptr<EmulatedCamera> camera_;
};

#define QEL_REQUIRE_CAMERA() \
  if (const auto why = EmulatedCamera::whyNot()) GTEST_SKIP() << *why

TEST_F(CameraDouble, isACameraToOtherPrograms) {
  QEL_REQUIRE_CAMERA();
  start({.formats = "YUYV:640x480@60,15;MJPG:320x240@60"});
  const std::string& path = camera_->path();
  if (!runInNamespace("true")) GTEST_SKIP() << "namespaces cannot be made here, and these programs need one";
  EXPECT_TRUE(runInNamespace("timeout 20 v4l2-ctl -d " + path + " --all --list-formats-ext")) << output();
  EXPECT_TRUE(runInNamespace("timeout 20 v4l2-ctl -d " + path + " --stream-mmap --stream-count=30"))
      << output();
  // Whether a file may be read, nobody can decide who lets it be mapped.
  (void)runInNamespace("timeout 60 v4l2-compliance -d " + path + " -s30");
  EXPECT_NE(output().find("Total"), std::string::npos) << output();
  EXPECT_NE(output().find("test read/write: FAIL"), std::string::npos);
  EXPECT_NE(output().find("Failed: 1,"), std::string::npos) << output();
  for (const char* format : {"yuyv422", "mjpeg"}) {
    EXPECT_TRUE(run("timeout 20 ffmpeg -loglevel error -f v4l2 -input_format " + std::string(format) +
                    " -i " + path + " -frames:v 30 -f null -"))
        << output();
  }
}

TEST_F(CameraDouble, isGoneWhenItIsPulledOut) {
  QEL_REQUIRE_CAMERA();
  start({});
  const int node = ::open(camera_->path().c_str(), O_RDWR | O_CLOEXEC);
  v4l2_capability capability{};
  EXPECT_EQ(::ioctl(node, VIDIOC_QUERYCAP, &capability), 0);
  EXPECT_EQ(camera_->command("vanish"), "ok");
  pollfd entry{node, POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 1000), 1);
  EXPECT_EQ(entry.revents, POLLERR | POLLHUP);
  EXPECT_EQ(::ioctl(node, VIDIOC_QUERYCAP, &capability), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(::open(camera_->path().c_str(), O_RDWR | O_CLOEXEC), -1);
  EXPECT_EQ(errno, ENOENT);
  ::close(node);
}

}  // namespace
