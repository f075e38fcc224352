#include "platform/Diagnostics.h"

#include "platform/Platform.h"
#include "platform/Root.h"

namespace QelUtilVideo {

std::vector<Finding> examineMachine() { return Root::current().platform().diagnostics().examine(); }

}  // namespace QelUtilVideo
