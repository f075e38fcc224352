#pragma once

#include "catalogue/Encoding.h"

#include <QelUtilVideo/ObjectRuntime.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace QelUtilVideo::catalogue {

/// What a function's type tells. `init` and the like are written as signatures.
template <class F>
struct Signature;
template <class R, class... A>
struct Signature<R(A...)> {
  using Result = R;
  static constexpr std::size_t argumentBytes = (std::size_t{0} + ... + EncodingOf<A>::size);

  /// "v24@0:8@16": result and size of all, the receiver, the selector, then each argument and its place.
  static constexpr Text encode(bool inFull) {
    constexpr std::size_t receiverAndSelector = 2 * pointerSize;
    Text text(inFull ? EncodingOf<R>::full : EncodingOf<R>::plain);
    text.add(receiverAndSelector + argumentBytes).add("@0:8");
    [[maybe_unused]] std::size_t place = receiverAndSelector;
    ((text.add(inFull ? EncodingOf<A>::full : EncodingOf<A>::plain).add(place), place += EncodingOf<A>::size),
     ...);
    return text;
  }
};
template <class R, class... A>
struct Signature<R (*)(A...)> : Signature<R(A...)> {  // a static member function
  static constexpr bool isOfClass = true;
};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...)> : Signature<R(A...)> {
  static constexpr bool isOfClass = false;
  using FirstArgument = std::tuple_element_t<0, std::tuple<A..., void>>;
};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) const> : Signature<R (C::*)(A...)> {};

/// Stands for a setter that a declaration does not show.
enum class Setter {
  none,
  ofTheLibrary,  ///< there is one, but only the library calls it
};

template <class T>
inline constexpr bool isSharedPointer = false;
template <class T>
inline constexpr bool isSharedPointer<std::shared_ptr<T>> = true;

/// "&" or "W", behind a comma, for a setter that keeps an object: one that takes the reference for itself
/// holds it, one that only looks at it holds it weakly.
template <class Parameter>
constexpr std::string_view ownership() {
  if constexpr (EncodingOf<Parameter>::isObject) {
    static_assert(isSharedPointer<std::remove_cvref_t<Parameter>>,
                  "what is set is copied: another ownership");
    return std::is_reference_v<Parameter> ? ",W" : ",&";
  } else {
    return "";
  }
}

template <auto getter, auto setter>
constexpr Text attributes() {
  using Got = EncodingOf<typename Signature<decltype(getter)>::Result>;
  Text text("T");
  text.add(Got::full).add(",N");
  if constexpr (std::is_same_v<decltype(setter), Setter>) {
    if (setter == Setter::none) text.add(",R");
  } else {
    using Parameter = typename Signature<decltype(setter)>::FirstArgument;
    static_assert(Got::full == EncodingOf<Parameter>::full, "the accessors of two properties");
    text.add(ownership<Parameter>());
  }
  return text;
}

// Texts that members refer to; one each, for as long as the process lives.
template <auto getter, auto setter>
inline constexpr Text attributesOf = attributes<getter, setter>();
template <class F, bool inFull>
inline constexpr Text encodingOf = Signature<F>::encode(inFull);

/// A property with these accessors.
template <auto getter, auto setter = Setter::none>
constexpr PublishedMember property(std::string_view name) {
  using Kind = PublishedMember::Kind;
  const Kind kind = Signature<decltype(getter)>::isOfClass ? Kind::classProperty : Kind::property;
  return {kind, name, attributesOf<getter, setter>.view(), true};
}

/// A protocol's method, whose encoding names the classes of objects.
template <auto function>
constexpr PublishedMember protocolMethod(std::string_view selector, bool isRequired = true) {
  return {PublishedMember::Kind::method, selector, encodingOf<decltype(function), true>.view(), isRequired};
}

/// A class's method with this signature, whose encoding does not.
template <class F>
constexpr PublishedMember instanceMethod(std::string_view selector) {
  return {PublishedMember::Kind::method, selector, encodingOf<F, false>.view(), true};
}

/// A method of a class itself; its encoding names no classes either.
template <auto function>
constexpr PublishedMember classMethod(std::string_view selector) {
  static_assert(Signature<decltype(function)>::isOfClass);
  return {PublishedMember::Kind::classMethod, selector, encodingOf<decltype(function), false>.view(), true};
}

constexpr bool isProtocol(std::string_view name) { return name.starts_with('<'); }
constexpr std::string_view withoutBrackets(std::string_view name) {
  return isProtocol(name) ? name.substr(1, name.size() - 2) : name;
}

/// A class or protocol with its own members, and what it derives from or refines (void: nothing), which
/// its declaration has to bear out. A class that has no objects in C++ needs no base there.
template <class T, class Base = void>
constexpr PublishedType published(std::span<const PublishedMember> members) {
  using Kind = PublishedType::Kind;
  std::string_view base;
  if constexpr (std::is_void_v<Base>) {
    static_assert(!std::is_base_of_v<NSObject, T>, "it derives from something");
  } else {
    static_assert(std::is_base_of_v<Base, T> || std::is_empty_v<T>, "it does not derive from this");
    base = withoutBrackets(objectName<Base>);
  }
  const Kind kind = isProtocol(objectName<T>) ? Kind::protocol : Kind::classType;
  return {kind, withoutBrackets(objectName<T>), base, members};
}

}  // namespace QelUtilVideo::catalogue
