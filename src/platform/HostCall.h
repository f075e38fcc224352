#pragma once

#include "platform/CallSafely.h"
#include "platform/Root.h"

#include <utility>

namespace QelUtilVideo {

/// Runs code that a host may have written, where no exception may pass; one that is thrown goes to the
/// system log, under the name of what was called.
template <class Function>
void callHost(const char* name, Function&& function) {
  const auto trouble = [](const std::string& text) { platformTrouble(Root::current().platform(), text); };
  callSafely(trouble, name, std::forward<Function>(function));
}

}  // namespace QelUtilVideo
