#include "Failure.h"

#include <system_error>

namespace qelvideo {

Failure systemFailure(const std::string& cannot, int error) {
  return Failure(cannot + ": " + std::generic_category().message(error));
}

}  // namespace qelvideo
