#include "support/TemporaryFolder.h"
#include "support/camera/ColourBars.h"
#include "support/camera/EmulatedCamera.h"
#include "support/camera/UdevTestbed.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <thread>

namespace {

using namespace std::chrono_literals;
using qeltest::EmulatedCamera;
using qeltest::kColourBars;
using qeltest::UdevTestbed;
using testing::HasSubstr;

/// qelvideo as a person would run it, with cameras.
class CameraProgram : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = EmulatedCamera::whyNot()) GTEST_SKIP() << *why;
    if (const auto why = UdevTestbed::whyNot()) GTEST_SKIP() << *why;
    ::unsetenv("DISPLAY");  // NOLINT(concurrency-mt-unsafe): no threads yet
    // What is preloaded comes before a sanitizer.
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 0);  // NOLINT(concurrency-mt-unsafe)
    udev_.emplace();
  }
  void plug(const std::string& name, const std::string& formats) {
    const std::string path = "/dev/shm/qel_p" + std::to_string(::getpid()) + name;
    cameras_.push_back(EmulatedCamera::start({.formats = formats, .path = path}));
    udev_->plug(
        {.name = name, .path = path, .serial = name, .port = "usb-" + name, .product = "Camera " + name});
  }
  int run(const std::string& line) {
    const std::string script =
        "Q=" QELVIDEO "; cd " + folder_.file("") + "; { " + line + "; } >out 2>err </dev/null";
    ::setenv("TEST_SCRIPT", script.c_str(), 1);
    const int status = std::system("exec bash -c \"$TEST_SCRIPT\"");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  [[nodiscard]] std::string output() const { return folder_.read("out"); }
  [[nodiscard]] std::string errors() const { return folder_.read("err"); }
  [[nodiscard]] bool appears(const std::string& file, const std::string& text) const {
    for (int i = 0; i < 500; ++i, std::this_thread::sleep_for(20ms)) {
      if (folder_.read(file).find(text) != std::string::npos) return true;
    }
    return false;
  }

  TemporaryFolder folder_;
  std::optional<UdevTestbed> udev_;
  std::vector<std::unique_ptr<EmulatedCamera>> cameras_;
};

TEST_F(CameraProgram, listsAndFilmsACamera) {
  plug("video0", "YUYV:320x240@30");
  EXPECT_EQ(run("$Q list"), 0) << errors();
  EXPECT_THAT(output(), HasSubstr("V4L2.video0.usb-video0.0  Camera video0  yes"));
  EXPECT_EQ(run("$Q list --json"), 0);
  EXPECT_EQ(nlohmann::json::parse(output())["cameras"][0]["name"], "Camera video0");
  EXPECT_EQ(run("$Q doctor --json"), 1) << "displays are missing";
  EXPECT_THAT(output(), HasSubstr("320x240 at 30 per second, YUYV"));

  EXPECT_EQ(run("$Q capture 'Camera video0' --frames 8 -o film.y4m"), 0) << errors();
  const std::string film = folder_.read("film.y4m");
  EXPECT_THAT(film.substr(0, 40), HasSubstr("W320 H240 F30:1"));
  const std::size_t luma = film.find("FRAME\n") + 6 + 320 * 80;
  for (std::size_t i = 0; i < kColourBars.size(); ++i) {
    EXPECT_NEAR(static_cast<unsigned char>(film[luma + 40 * i + 20]), kColourBars[i].y, 2);
  }
  EXPECT_EQ(run("$Q view 'Camera video0' --offscreen 160x90 --screenshot view.png"), 0) << errors();
  EXPECT_THAT(output(), HasSubstr("view.png: 160x90"));
  EXPECT_EQ(run("$Q snapshot 'Camera video0' -o a.png"), 1);
  EXPECT_THAT(errors(), HasSubstr("cameras give no single pictures"));
}

TEST_F(CameraProgram, watchesCamerasAndEndsAFilmWithItsCamera) {
  plug("video0", "YUYV:320x240@30");
  // The two must not have their connections to the made-up list of devices under the same number.
  run("mkfifo in; sleep 30 >in & echo $! >sleep; $Q watch <in >lines 2>&1 3</dev/null 4</dev/null & $Q "
      "capture 'Camera video0' -o "
      "film.y4m "
      ">film 2>&1 & "
      "echo $! >filming");
  EXPECT_TRUE(appears("lines", "present       camera          Camera video0"));
  plug("video1", "YUYV:320x240@30");
  EXPECT_TRUE(appears("lines", "connected     camera          Camera video1")) << folder_.read("lines");
  EXPECT_TRUE(appears("film", "did start"));
  cameras_[0]->command("vanish");
  udev_->unplug("video0");
  EXPECT_TRUE(appears("lines", "disconnected  camera          Camera video0"));
  EXPECT_TRUE(appears("film", "did stop: The camera was unplugged")) << folder_.read("film");
  run("kill $(cat sleep); while kill -0 $(cat filming) 2>/dev/null; do sleep 0.1; done");
}

}  // namespace
