#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/Export.h>
#include <QelUtilVideo/platform/NSError.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace QelUtilVideo {

class Value;

/// String keys mapped to values, iterated in the order in which the keys were first set.
/// A value type; not synchronised.
class QEL_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary&);
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&);
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  /// Adds the entry, or replaces the value of an entry that has this key (its place stays).
  void set(std::string key, Value value);
  /// The value of `key`, or null. Valid until the dictionary changes.
  [[nodiscard]] const Value* find(std::string_view key) const;
  /// The value of `key` when it is present and holds exactly a `T`, else null.
  template <class T>
  [[nodiscard]] const T* get(std::string_view key) const;

  [[nodiscard]] bool empty() const;
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

/// A list of values.
using Array = std::vector<Value>;

/// One value of a dictionary: nothing, a number, a text, a rectangle, an error, a container or an object.
class QEL_EXPORT Value {
 public:
  using Storage = std::variant<std::monostate, bool, std::int32_t, std::uint32_t, std::int64_t, double,
                               std::string, CGRect, NSError, Array, Dictionary, std::shared_ptr<NSObject>>;

  Value() = default;
  template <class T>
  requires std::is_constructible_v<Storage, T&&> Value(T&& value)
      : storage_(std::forward<T>(value)) {}  // NOLINT: conversion is the purpose

  /// The value when it holds exactly a `T`, else null.
  template <class T>
  [[nodiscard]] const T* get() const {
    return std::get_if<T>(&storage_);
  }
  /// The value as text: numbers in decimal, booleans as "true" or "false", texts unchanged,
  /// errors by their texts, containers with their elements in brackets, objects by their own description.
  [[nodiscard]] std::string description() const;

 private:
  Storage storage_;
};

template <class T>
const T* Dictionary::get(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->get<T>() : nullptr;
}

}  // namespace QelUtilVideo
