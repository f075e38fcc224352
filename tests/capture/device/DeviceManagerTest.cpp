#include "capture/device/CameraDevice.h"
#include "capture/device/ScreenDevice.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelUtilVideo/CapturableDeviceManager.h>

#include <gmock/gmock.h>

#include <thread>

namespace QelUtilVideo::device {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Manager = CapturableDeviceManager;

class DeviceManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    machine_->displays().set({{.id = 1, .name = "Left"}, {.id = 2, .name = "Right"}});
    devices().set({one_, two_, microphone_});
    machine_->notificationCenter().addObserver(Manager::didRefreshNotification(), nullptr,
                                               [this](const NSNotification& notification) {
                                                 EXPECT_EQ(notification.object, nullptr);
                                                 changes_.push_back(notification.userInfo);
                                                 (void)Manager::allDevices();  // an observer may ask
                                               });
  }
  [[nodiscard]] SimulatedCaptureDevices& devices() const { return machine_->captureDevices(); }
  static std::vector<std::string> ids() {
    std::vector<std::string> all;
    for (const auto& device : Manager::allDevices()) all.push_back(device->uniqueID());
    return all;
  }
  static std::string screenID(int number) {
    return "QelUtilVideo.CapturableScreen.AV.CGDirectDisplayID." + std::to_string(number);
  }
  /// Of each change since the last call: the unique IDs in a list of it, or "none" when there is no list.
  std::vector<std::string> take(const char* key) {
    std::vector<std::string> all;
    for (const Dictionary& change : changes_) {
      const auto* list = change.get<Array>(key);
      std::string text = list ? "" : "none";
      for (const Value& entry : list ? *list : Array()) {
        const auto source = std::dynamic_pointer_cast<Capturable>(*entry.get<std::shared_ptr<NSObject>>());
        text += source->uniqueID() + " ";
      }
      all.push_back(text);
    }
    return all;
  }
  /// How often a line with that end was logged since the last call.
  int logged(const std::string& end) {
    int count = 0;
    for (const auto& line : log_.messages()) count += line.ends_with(end);
    log_.clear();
    return count;
  }

  using Device = std::shared_ptr<SimulatedDevice>;
  ScopedMachine machine_;
  LogCapture log_;
  Device one_ = std::make_shared<SimulatedDevice>("one"), two_ = std::make_shared<SimulatedDevice>("two"),
         microphone_ = std::make_shared<SimulatedDevice>("ear", "Microphone", false);
  std::vector<Dictionary> changes_;
};

TEST_F(DeviceManagerTest, listsCamerasAndThenDisplays) {
  machine_->displays().set({{.id = 1}, {.id = 9, .hasScreenNumber = false}, {.id = 2}});
  EXPECT_THAT(ids(), ElementsAre("one", "two", screenID(1), screenID(2)));
  EXPECT_EQ(logged(" connected"), 4);
  EXPECT_EQ(Manager::cameraDevices().size(), 2U);
  EXPECT_EQ(Manager::device("two"), Manager::cameraDevices()[1]);
  EXPECT_EQ(Manager::device(screenID(2)), Manager::screenDevices()[1]);
  for (const char* unknown : {"", "Two", "tw"}) EXPECT_EQ(Manager::device(unknown), nullptr);
  EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(DeviceManagerTest, camerasThatComeKeepTheOthers) {
  const auto before = Manager::cameraDevices();
  logged("");
  const auto three = std::make_shared<SimulatedDevice>("three");
  devices().set({three, two_, one_});
  devices().postConnected(three);
  EXPECT_THAT(ids(), ElementsAre("three", "two", "one", screenID(1), screenID(2)));
  EXPECT_EQ(Manager::cameraDevices()[2], before[0]);
  EXPECT_THAT(take("connected"), ElementsAre("three "));
  EXPECT_EQ(logged(" connected"), 1);

  changes_.clear();
  devices().postConnected(one_);  // again
  EXPECT_THAT(take("connected"), ElementsAre("one "));
  EXPECT_EQ(logged(" connected"), 0);

  changes_.clear();
  const auto early = std::make_shared<SimulatedDevice>("early");
  devices().set({two_});
  devices().postConnected(early);
  EXPECT_THAT(ids(), ElementsAre("two", "early", screenID(1), screenID(2)));
  EXPECT_THAT(take("connected"), ElementsAre("early "));
  EXPECT_THAT(take("disconnected"), ElementsAre("none")) << "what the platform forgot goes silently";
}

TEST_F(DeviceManagerTest, camerasThatGoAreToldAndWhatIsNoCameraIsNot) {
  (void)ids();
  logged("");
  devices().postDisconnected(one_);
  devices().postDisconnected(one_);
  EXPECT_THAT(take("disconnected"), ElementsAre("one ", ""));
  EXPECT_EQ(logged(" disconnected"), 1);
  EXPECT_THAT(ids(), ElementsAre("two", screenID(1), screenID(2)));
  changes_.clear();
  for (const std::shared_ptr<NSObject>& other :
       {std::shared_ptr<NSObject>(), std::shared_ptr<NSObject>(microphone_),
        std::shared_ptr<NSObject>(std::make_shared<SimulatedInput>(""))}) {
    devices().postConnected(other);
    devices().postDisconnected(other);
  }
  EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(DeviceManagerTest, displaysFollowTheArrangement) {
  const auto before = Manager::screenDevices();
  machine_->displays().set({{.id = 2, .name = "Right"}, {.id = 1, .name = "Left"}});
  machine_->displays().notify();
  EXPECT_THAT(changes_, IsEmpty());
  EXPECT_THAT(Manager::screenDevices(), ElementsAre(before[1], before[0]));
  EXPECT_EQ(before[0]->screen(), machine_->displays().screens()[1]);

  machine_->displays().set({{.id = 1}});
  machine_->displays().notify();
  EXPECT_THAT(take("disconnected"), ElementsAre(screenID(2) + " "));
  EXPECT_THAT(take("connected"), ElementsAre("none"));
  changes_.clear();
  machine_->displays().set({{.id = 1}, {.id = 2}});
  machine_->displays().notify();
  EXPECT_THAT(take("connected"), ElementsAre(screenID(2) + " "));
  EXPECT_NE(Manager::screenDevices()[1], before[1]);
}

TEST_F(DeviceManagerTest, listsAreNeverSeenHalfBuilt) {
  (void)ids();
  std::atomic<bool> isOver = false;
  std::thread reader([&] {
    while (!isOver) {
      const auto cameras = Manager::cameraDevices();
      EXPECT_GE(cameras.size(), 1U);
      EXPECT_EQ(cameras.front()->uniqueID(), "one");
    }
  });
  for (int i = 0; i < 200; ++i) {
    devices().set({one_, two_});
    devices().postConnected(two_);
    devices().set({one_});
    devices().postDisconnected(two_);
  }
  isOver = true;
  reader.join();
}

}  // namespace
}  // namespace QelUtilVideo::device
