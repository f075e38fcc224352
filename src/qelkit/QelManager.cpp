#include <QelKit/QelManager.h>

#include <atomic>

namespace QelKit {
namespace {

constinit std::atomic<bool> loggingEnabled{false};

}  // namespace

bool QelManager::isLoggingEnabled() { return loggingEnabled; }
void QelManager::setLoggingEnabled(bool enabled) { loggingEnabled = enabled; }

}  // namespace QelKit
