#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace QelUtilVideo {

/// Where a part of a platform reports its own troubles.
using TroubleHandler = std::function<void(const std::string& text)>;

/// Calls the function; an exception ends here and is reported as "WHAT threw: TEXT".
template <class Function>
void callSafely(const TroubleHandler& trouble, std::string_view what, Function&& function) {
  try {
    std::forward<Function>(function)();
  } catch (const std::exception& exception) {
    if (trouble) trouble(std::string(what) + " threw: " + exception.what());
  } catch (...) {
    if (trouble) trouble(std::string(what) + " threw something that is not an exception");
  }
}

}  // namespace QelUtilVideo
