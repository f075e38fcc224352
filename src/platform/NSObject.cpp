#include <QelUtilVideo/platform/NSObject.h>

#include <cxxabi.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <typeinfo>

namespace QelUtilVideo {
namespace {

std::string demangledName(const char* name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                                         &std::free);
  return status == 0 && text ? text.get() : name;
}

}  // namespace

NSObject::~NSObject() = default;

std::string NSObject::description() const {
  // The whole object's address: with virtual bases `this` is somewhere inside it.
  const auto address = reinterpret_cast<std::uintptr_t>(dynamic_cast<const void*>(this));
  char digits[2 * sizeof address + 1];
  std::snprintf(digits, sizeof digits, "%jx", static_cast<std::uintmax_t>(address));
  return "<" + demangledName(typeid(*this).name()) + ": 0x" + digits + ">";
}

}  // namespace QelUtilVideo
