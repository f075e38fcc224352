#include "support/WarmUp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace qeltest {
namespace {

std::vector<std::function<void()>>& warmUps() {
  static std::vector<std::function<void()>> functions;
  return functions;
}

using Descriptors = std::map<std::string, std::string>;

/// What each open descriptor of the process refers to. The one that reads the folder is gone again by
/// the time its target is asked for.
Descriptors openDescriptors() {
  Descriptors open;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const auto target = std::filesystem::read_symlink(entry.path(), error);
    if (!error) open.emplace(entry.path().filename(), target);
  }
  std::erase_if(open, [](const auto& entry) { return entry.second.ends_with("/fd"); });
  return open;
}

/// Fails a test that leaves descriptors open. Threads that are on their way out get a moment.
class DescriptorLeakChecker : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { before_ = openDescriptors(); }

  void OnTestEnd(const testing::TestInfo& test) override {
    if (test.result()->Skipped()) return;
    auto after = openDescriptors();
    for (int wait = 0; wait < 300 && after.size() > before_.size(); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      after = openDescriptors();
    }
    if (after.size() <= before_.size()) return;
    for (const auto& [number, target] : after) {
      if (!before_.contains(number)) ADD_FAILURE() << "left open: descriptor " << number << ", " << target;
    }
  }

  Descriptors before_;
};

}  // namespace

WarmUp::WarmUp(std::function<void()> function) { warmUps().push_back(std::move(function)); }

}  // namespace qeltest

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  for (const auto& warmUp : qeltest::warmUps()) warmUp();
  // GoogleTest takes ownership of listeners.
  testing::UnitTest::GetInstance()->listeners().Append(
      std::make_unique<qeltest::DescriptorLeakChecker>().release());
  return RUN_ALL_TESTS();
}
