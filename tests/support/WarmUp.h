#pragma once

#include <functional>

namespace qeltest {

/// Runs once before the first test. For what opens descriptors for good on first use in a process
/// (graphics drivers do): a test program that uses such a thing declares a global
///
///     const qeltest::WarmUp warmUp([] { makeAndDropOne(); });
///
/// and the descriptors that stay do not count as leaks of the first test that meets them.
struct WarmUp {
  explicit WarmUp(std::function<void()> function);
};

}  // namespace qeltest
