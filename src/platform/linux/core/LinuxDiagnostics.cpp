#include "platform/linux/core/LinuxDiagnostics.h"

#include "platform/linux/core/SignalsBlocked.h"

#include <chrono>
#include <cmath>
#include <exception>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace QelUtilVideo {
namespace {

using Findings = std::vector<Finding>;

/// Begins the examination on a thread that nobody waits for, or does it here when the system grants none.
std::future<Findings> begin(const std::function<Findings()>& examine) {
  std::packaged_task<Findings()> task(examine);
  std::future<Findings> findings = task.get_future();
  try {
    const SignalsBlocked blocked;
    std::thread(std::move(task)).detach();
  } catch (const std::system_error&) {
    std::packaged_task<Findings()> here(examine);
    findings = here.get_future();
    here();
  }
  return findings;
}

}  // namespace

LinuxDiagnostics::LinuxDiagnostics(std::vector<Examination> examinations, double patience)
    : examinations_(std::move(examinations)), patience_(patience) {}

std::vector<Finding> LinuxDiagnostics::examine() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(patience_);
  std::vector<std::future<Findings>> answers;
  for (const Examination& examination : examinations_) answers.push_back(begin(examination.examine));

  Findings all;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const Examination& asked = examinations_[i];
    const auto missing = [&](const std::string& why) {
      all.push_back({asked.area, asked.subject, Finding::State::missing, why, asked.remedy});
    };
    try {
      if (answers[i].wait_until(deadline) == std::future_status::ready) {
        for (Finding& finding : answers[i].get()) all.push_back(std::move(finding));
      } else {
        missing("gives no answer within " + std::to_string(std::lround(patience_)) + " seconds");
      }
    } catch (const std::exception& exception) {
      missing(std::string("cannot be examined: ") + exception.what());
    } catch (...) {
      missing("cannot be examined");
    }
  }
  return all;
}

}  // namespace QelUtilVideo
