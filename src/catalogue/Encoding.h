#pragma once

#include "catalogue/Text.h"

#include <QelUtilVideo/DeviceType.h>
#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NSError.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace QelUtilVideo {
class CVPixelBuffer;
}

namespace QelUtilVideo::catalogue {

template <class T>
struct Unnamed;

/// The name under which objects of a class are known outside, a protocol's in angle brackets. There is one
/// for each class that occurs in what is published (Names.h); any other does not compile.
template <class T>
inline constexpr std::string_view objectName = Unnamed<T>::name;

/// How a type is written: in full, where an object comes with its class, and plainly, where it does not.
template <class T>
struct Encoding;

/// Bytes of a pointer in the processes that encodings speak of.
inline constexpr std::size_t pointerSize = 8;

template <std::size_t Size>
struct ScalarEncoding {
  /// Bytes that an argument takes; small ones take as many as an `int`.
  static constexpr std::size_t size = Size < sizeof(int) ? sizeof(int) : Size;
  static constexpr bool isObject = false;
};

/// A value whose text is the same in both manners.
template <>
struct Encoding<void> : ScalarEncoding<0> {
  static constexpr std::string_view full = "v", plain = full;
};
template <>
struct Encoding<bool> : ScalarEncoding<sizeof(bool)> {
  static constexpr std::string_view full = "B", plain = full;
};
template <>
struct Encoding<std::int32_t> : ScalarEncoding<sizeof(std::int32_t)> {
  static constexpr std::string_view full = "i", plain = full;
};
template <>
struct Encoding<std::uint32_t> : ScalarEncoding<sizeof(std::uint32_t)> {
  static constexpr std::string_view full = "I", plain = full;
};
template <>
struct Encoding<std::int64_t> : ScalarEncoding<sizeof(std::int64_t)> {
  static constexpr std::string_view full = "q", plain = full;
};
/// An enumeration is the number that stands for it.
template <>
struct Encoding<DeviceType> : Encoding<std::underlying_type_t<DeviceType>> {};
template <>
struct Encoding<float> : ScalarEncoding<sizeof(float)> {
  static constexpr std::string_view full = "f", plain = full;
};
template <>
struct Encoding<double> : ScalarEncoding<sizeof(double)> {
  static constexpr std::string_view full = "d", plain = full;
};
template <>
struct Encoding<CGSize> : ScalarEncoding<sizeof(CGSize)> {
  static constexpr std::string_view full = "{CGSize=dd}", plain = full;
};
template <>
struct Encoding<CGRect> : ScalarEncoding<sizeof(CGRect)> {
  static constexpr std::string_view full = "{CGRect={CGPoint=dd}{CGSize=dd}}", plain = full;
};
template <>
struct Encoding<std::shared_ptr<CVPixelBuffer>> : ScalarEncoding<pointerSize> {
  static constexpr std::string_view full = "^{__CVBuffer=}", plain = full;
};
/// Where an error is put for the caller.
template <>
struct Encoding<NSError*> : ScalarEncoding<pointerSize> {
  static constexpr std::string_view full = "^@", plain = full;
};

/// An object, whatever the C++ declaration passes it by.
template <class T>
struct ObjectEncoding {
  static constexpr std::size_t size = pointerSize;
  static constexpr bool isObject = true;
  static constexpr std::string_view plain = "@";
  static constexpr Text text = Text("@\"").add(objectName<T>).add("\"");
  static constexpr std::string_view full = text.view();
};
template <class T>
struct Encoding<std::shared_ptr<T>> : ObjectEncoding<std::remove_const_t<T>> {};
template <>
struct Encoding<NSNotification> : ObjectEncoding<NSNotification> {};
template <class T>
struct Encoding<std::vector<T>> : ObjectEncoding<std::vector<T>> {};
template <>
struct Encoding<std::string> : ObjectEncoding<std::string> {};
template <>
struct Encoding<NSError> : ObjectEncoding<NSError> {};
template <>
struct Encoding<const NSError*> : ObjectEncoding<NSError> {};
template <>
struct Encoding<const Dictionary*> : ObjectEncoding<Dictionary> {};

/// What a parameter's or result's type stands for.
template <class T>
struct Meant {
  using Type = std::remove_cv_t<T>;
};
template <class T>
struct Meant<const T&> : Meant<T> {};
/// An object passed by reference is borrowed.
template <class T>
struct Meant<T&> {
  using Type = std::shared_ptr<T>;
};

template <class T>
using EncodingOf = Encoding<typename Meant<T>::Type>;

}  // namespace QelUtilVideo::catalogue
