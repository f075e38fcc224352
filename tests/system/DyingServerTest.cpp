#include "platform/linux/x11/X11Cursor.h"
#include "support/PrivateXServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <semaphore>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using namespace std::chrono_literals;

TEST(DyingServer, leavesNoThreadWaitingForAnAnswer) {
  QEL_REQUIRE_X_SERVER();
  constexpr int kThreads = 4;
  // One loss in four caught some of the threads.
  for (int round = 0; round < 10; ++round) {
    const auto server = PrivateXServer::start({});
    ASSERT_TRUE(server);
    const auto connection = X11Connection::open(server->display().c_str());
    ASSERT_TRUE(connection);
    const auto ended = std::make_shared<std::counting_semaphore<>>(0);
    for (int i = 0; i < kThreads; ++i) {
      std::thread([connection, ended] {
        X11Cursor cursor(connection);
        while (cursor.CGEventGetLocation()) continue;
        ended->release();
      }).detach();
    }
    std::this_thread::sleep_for(20ms);
    server->kill();
    for (int i = 0; i < kThreads; ++i) ASSERT_TRUE(ended->try_acquire_for(5s)) << "in round " << round;
  }
}

}  // namespace
}  // namespace QelUtilVideo
