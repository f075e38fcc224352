#include <QelUtilVideo/platform/Dictionary.h>

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <type_traits>

namespace QelUtilVideo {
namespace {

constexpr const char* nothing = "(null)";

std::string numberText(double number) {
  char digits[32];
  const auto result = std::to_chars(digits, digits + sizeof digits, number);
  return {digits, result.ptr};
}

template <class Container, class Text>
std::string bracketed(const Container& container, Text text) {
  std::string joined = "[";
  for (const auto& element : container) {
    if (joined.size() > 1) joined += ", ";
    joined += text(element);
  }
  return joined + "]";
}

struct Describer {
  std::string operator()(std::monostate) const { return nothing; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  template <class T>
  requires std::is_integral_v<T> std::string operator()(T value) const { return std::to_string(value); }
  std::string operator()(double value) const { return numberText(value); }
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const CGRect& rect) const {
    return "{{" + numberText(rect.origin.x) + ", " + numberText(rect.origin.y) + "}, {" +
           numberText(rect.size.width) + ", " + numberText(rect.size.height) + "}}";
  }
  std::string operator()(const Array& array) const {
    return bracketed(array, [](const Value& value) { return value.description(); });
  }
  std::string operator()(const NSError& error) const { return error.description(); }
  std::string operator()(const Dictionary& dictionary) const {
    return bracketed(dictionary.entries(), [](const Dictionary::Entry& entry) {
      return entry.first + ": " + entry.second.description();
    });
  }
  std::string operator()(const std::shared_ptr<NSObject>& object) const {
    return object ? object->description() : nothing;
  }
};

}  // namespace

Dictionary::Dictionary() = default;
Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  for (const Entry& entry : entries) set(entry.first, entry.second);
}
Dictionary::Dictionary(const Dictionary&) = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

void Dictionary::set(std::string key, Value value) {
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.first == key; });
  if (found != entries_.end()) {
    found->second = std::move(value);
  } else {
    entries_.emplace_back(std::move(key), std::move(value));
  }
}

const Value* Dictionary::find(std::string_view key) const {
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.first == key; });
  return found != entries_.end() ? &found->second : nullptr;
}

bool Dictionary::empty() const { return entries_.empty(); }
std::size_t Dictionary::size() const { return entries_.size(); }

std::string Value::description() const { return std::visit(Describer{}, storage_); }

}  // namespace QelUtilVideo
