#include "platform/linux/core/LinuxDiagnostics.h"

#include "platform/linux/core/SignalsBlocked.h"

#include <chrono>
#include <cmath>
#include <exception>
#include <future>
#include <string>
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
  Findings all;
  for (const Examination& examination : examinations_) {
    const auto unanswered = [&](std::string why) {
      all.push_back(examination.unanswered);
      all.back().detail = std::move(why);
    };
    try {
      std::future<Findings> answer = begin(examination.examine);
      if (answer.wait_for(std::chrono::duration<double>(patience_)) == std::future_status::ready) {
        for (Finding& finding : answer.get()) all.push_back(std::move(finding));
      } else {
        unanswered("gives no answer within " + std::to_string(std::lround(patience_)) + " seconds");
      }
    } catch (const std::exception& exception) {
      unanswered(std::string("cannot be examined: ") + exception.what());
    } catch (...) {
      unanswered("cannot be examined");
    }
  }
  return all;
}

}  // namespace QelUtilVideo
