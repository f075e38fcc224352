#pragma once

#include "platform/linux/core/SignalsBlocked.h"

#include <epoxy/egl.h>

#include <future>
#include <system_error>

namespace QelUtilVideo {

/// Calls the function on a thread of its own, on which nothing is current, and answers what it does. A
/// thread that the host draws on by GLX takes no context of EGL's. Where the system grants no thread,
/// the function is called here.
template <class Function>
auto onFreshThread(const Function& function) {
  struct ReleaseThread {
    ~ReleaseThread() { eglReleaseThread(); }
  };
  const auto thenRelease = [&function] {
    const ReleaseThread release;
    return function();
  };
  std::future<decltype(function())> result;
  try {
    const SignalsBlocked blocked;
    result = std::async(std::launch::async, thenRelease);
  } catch (const std::system_error&) {
    return function();
  }
  return result.get();
}

}  // namespace QelUtilVideo
