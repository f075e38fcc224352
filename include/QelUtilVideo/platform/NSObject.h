#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

/// Root of every object that the library and its hosts share by reference. Objects live in a
/// `std::shared_ptr`; the last reference may be dropped on any thread.
class QEL_EXPORT NSObject : public std::enable_shared_from_this<NSObject> {
 public:
  NSObject(const NSObject&) = delete;
  NSObject& operator=(const NSObject&) = delete;
  virtual ~NSObject();

  /// One line about the object for log lines: "<ClassName: 0xADDRESS>" unless a class says better.
  /// Any thread.
  [[nodiscard]] virtual std::string description() const;

 protected:
  NSObject() = default;
};

}  // namespace QelUtilVideo
