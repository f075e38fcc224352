#include <QelUtilVideo/Version.h>

#include "log/Logging.h"
#include "platform/Bundle.h"
#include "platform/Root.h"

namespace QelUtilVideo {
namespace {

/// All classes of the library are defined in one bundle, so the class only says which library.
template <class DefinedThere>
Bundle& bundleForClass() {
  return Root::current().platform().bundle();
}

}  // namespace

std::string version() {
  const std::optional<Dictionary> info = bundleForClass<Logging>().infoDictionary();
  const std::string* revision = info ? info->get<std::string>("QelUtilRevision") : nullptr;
  return revision ? *revision : "unknown";
}

}  // namespace QelUtilVideo
