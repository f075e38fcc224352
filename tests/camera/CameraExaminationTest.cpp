#include "platform/linux/v4l2/CameraExamination.h"

#include "platform/linux/v4l2/CameraErrors.h"
#include "support/TemporaryFolder.h"
#include "support/camera/EmulatedCamera.h"
#include "support/camera/UdevTestbed.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::EmulatedCamera;
using testing::HasSubstr;
using testing::StartsWith;

/// A folder of nodes, as /dev is one.
class CameraExamination : public testing::Test {
 protected:
  void TearDown() override { qeltest::UdevTestbed::tidy(); }
  EmulatedCamera& plug(const std::string& name, const std::string& formats,
                       std::vector<std::string> arguments = {}) {
    cameras_.push_back(EmulatedCamera::start(
        {.formats = formats, .arguments = std::move(arguments), .path = folder_.file(name)}));
    return *cameras_.back();
  }
  [[nodiscard]] std::vector<Finding> examine() const { return examineCameras(folder_.file(".")); }

  TemporaryFolder folder_;
  std::vector<std::unique_ptr<EmulatedCamera>> cameras_;
};

TEST_F(CameraExamination, saysWhatCanBeUsedAndWhyOthersCannot) {
  if (const auto why = EmulatedCamera::whyNot()) GTEST_SKIP() << *why;
  ASSERT_EQ(examine().size(), 1U);
  EXPECT_EQ(examine()[0].detail, "there is no video node");
  plug("video0", "YUYV:640x480@30", {"--kind", "metadata"});
  EXPECT_EQ(examine()[0].detail, "there are video nodes, but none that captures");
  plug("video1", "YUYV:640x480@30;MJPG:1280x720@25", {"--card", "Good"});
  plug("video2", "H264:640x480@30", {"--card", "Strange"});
  plug("video10", "NV12:640x480@30", {"--card", "Busy"}).command("busy on");
  (void)folder_.write("video11", "not a camera");
  (void)folder_.write("video", "not a node");
  const auto found = examine();
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].subject, "Camera Good");
  EXPECT_EQ(found[0].state, Finding::State::ok);
  EXPECT_THAT(found[0].detail, testing::EndsWith("/video1, 1280x720 at 25 per second, MJPG"));
  EXPECT_EQ(found[1].state, Finding::State::missing);
  EXPECT_THAT(found[1].detail, HasSubstr("only H264"));
  EXPECT_EQ(found[1].remedy, "Use another one.");
  EXPECT_EQ(found[2].state, Finding::State::limited);
  EXPECT_THAT(found[2].detail, HasSubstr("is in use by another program"));
}

TEST_F(CameraExamination, namesTheGroupThatIsMissingAndWhoHoldsANode) {
  const std::string node = folder_.write("video0", "");
  ::chmod(node.c_str(), 0660);
  EXPECT_THAT(whyForbidden(node),
              StartsWith("No permission for " + node + ": make the user a member of the group "));
  ::chmod(node.c_str(), 0600);
  EXPECT_THAT(whyForbidden(node), HasSubstr("chmod g+rw"));
  const std::ifstream own(node);
  EXPECT_EQ(whoHolds(node), "") << "nobody else";
  const std::string line = "exec 3<" + node + "; echo $$ >" + folder_.file("process") + "; exec sleep 30";
  std::thread holder([&] { (void)!std::system(line.c_str()); });
  std::string holders;
  for (int i = 0; i < 500 && !holders.starts_with("sleep"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    holders = whoHolds(node);
  }
  const std::string number = std::to_string(std::stoi("0" + folder_.read("process")));
  EXPECT_EQ(holders, "sleep (process " + number + ")");
  EXPECT_EQ(cameraError(node, EBUSY).description(),
            "The camera is in use by " + holders + ": end that capture first");
  ::kill(std::stoi(number), SIGTERM);
  holder.join();
}

}  // namespace
}  // namespace QelUtilVideo
