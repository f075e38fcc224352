#pragma once

#include "catalogue/Encoding.h"

#include <QelUtilVideo/ObjectRuntime.h>

#include <cstddef>
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
    constexpr std::size_t receiverAndSelector = 2 * sizeof(void*);
    Text text(inFull ? EncodingOf<R>::full : EncodingOf<R>::plain);
    text.add(receiverAndSelector + argumentBytes).add("@0:8");
    [[maybe_unused]] std::size_t place = receiverAndSelector;
    ((text.add(inFull ? EncodingOf<A>::full : EncodingOf<A>::plain).add(place), place += EncodingOf<A>::size),
     ...);
    return text;
  }
};
template <class R, class... A>
struct Signature<R (*)(A...)> : Signature<R(A...)> {
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

/// "&" or "W", behind a comma, for a setter that keeps an object: one that takes the reference for itself
/// holds it, one that only looks at it holds it weakly.
template <class Parameter>
constexpr std::string_view ownership() {
  if constexpr (EncodingOf<Parameter>::isObject) {
    return std::is_reference_v<Parameter> ? ",W" : ",&";
  } else {
    return "";
  }
}

template <auto getter, auto setter>
constexpr Text attributes() {
  Text text("T");
  text.add(EncodingOf<typename Signature<decltype(getter)>::Result>::full).add(",N");
  if constexpr (std::is_same_v<decltype(setter), Setter>) {
    if (setter == Setter::none) text.add(",R");
  } else {
    text.add(ownership<typename Signature<decltype(setter)>::FirstArgument>());
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

}  // namespace QelUtilVideo::catalogue
