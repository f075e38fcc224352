#include "capture/windowlist/Error.h"

#include <cstdint>

namespace QelUtilVideo::windowlist {
namespace {

const char* caseName(Error error) {
  switch (error) {
    case Error::failedToCapture:
      return "failedToCapture";
  }
  return "unknown";
}

}  // namespace

NSError makeError(Error error) {
  return {"QelUtilVideo.windowlist.Error", static_cast<std::int64_t>(error), caseName(error)};
}

}  // namespace QelUtilVideo::windowlist
