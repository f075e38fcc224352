#pragma once

#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// What an observer is told: the name it was posted under, who posted it (may be absent), and further
/// information.
struct NSNotification {
  std::string name;
  std::shared_ptr<NSObject> object;
  Dictionary userInfo;
};

/// Delivers notifications to observers, synchronously, on the posting thread, in the order in which
/// the observers were added. Any thread may post, add and remove; no lock is held while an observer
/// runs, so an observer may do all three. An observer that throws is reported to the system log and
/// the others are still told.
class QEL_EXPORT NotificationCenter {
 public:
  using Handler = std::function<void(const NSNotification&)>;
  using Token = std::uint64_t;

  virtual ~NotificationCenter() = default;

  /// The process's notification centre, where the library posts and listens.
  static NotificationCenter& defaultCenter();

  /// Calls `handler` for every notification called `name` (absent: any name) posted by `object`
  /// (null: by anyone or no one). The object is not kept alive. Returns what `removeObserver` takes.
  virtual Token addObserver(std::optional<std::string> name, const NSObject* object, Handler handler) = 0;
  /// No call of the handler begins after this returns, except on a thread that is already posting.
  /// An unknown token does nothing.
  virtual void removeObserver(Token token) = 0;
  virtual void postNotificationName(const std::string& name, std::shared_ptr<NSObject> object = nullptr,
                                    Dictionary userInfo = {}) = 0;

 protected:
  NotificationCenter() = default;
};

}  // namespace QelUtilVideo
