#pragma once

#include <QelUtilVideo/platform/NSError.h>

#include <utility>
#include <variant>

namespace QelUtilVideo {

/// A value or the error that took its place.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
  Result(NSError error) : content_(std::in_place_index<1>, std::move(error)) {}

  [[nodiscard]] bool hasValue() const { return content_.index() == 0; }
  [[nodiscard]] T& value() { return std::get<0>(content_); }
  [[nodiscard]] const NSError& error() const { return std::get<1>(content_); }

 private:
  std::variant<T, NSError> content_;
};

}  // namespace QelUtilVideo
