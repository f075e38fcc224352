#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <span>
#include <string_view>

namespace QelUtilVideo {

/// One member of a published class or protocol. Texts live as long as the process.
struct PublishedMember {
  enum class Kind : std::uint8_t { property, classProperty, method, classMethod };

  Kind kind;
  std::string_view name;  ///< the property's name, or the method's selector
  /// Of a property its attributes: its type after "T", then "N" (not atomic), "R" (read-only), "&" (keeps
  /// what it is given) or "W" (holds it weakly), and "G" with the getter's name where that is another. Of a
  /// method the types of what it returns and takes, with the places of the arguments, in bytes. Sizes are
  /// those of a 64-bit process.
  std::string_view encoding;
  bool isRequired = true;  ///< of a protocol's member: everybody who fulfils the protocol has it
};

/// A class or protocol under the name by which bindings of other languages know it.
struct PublishedType {
  enum class Kind : std::uint8_t { classType, protocol };

  Kind kind;
  std::string_view name;
  /// What a class derives from, or the protocol that a protocol refines; empty when there is none.
  std::string_view base;
  std::span<const PublishedMember> members;  ///< its own; those of the base are not repeated
};

/// What is published under this name; null when nothing is. Any thread.
///
///     const PublishedType* view = findPublished("QelUtilVideoRenderView");
///     for (const PublishedMember& member : view->members) bind(member.name, member.encoding);
[[nodiscard]] QEL_EXPORT const PublishedType* findPublished(std::string_view name);
/// Everything that is published, protocols before the classes that use them. Any thread.
[[nodiscard]] QEL_EXPORT std::span<const PublishedType> publishedTypes();

}  // namespace QelUtilVideo
