#include "platform/linux/egl/DriverFacts.h"

namespace QelUtilVideo {

bool listsExtension(const char* list, std::string_view name) {
  std::string_view rest = list ? list : "";
  while (!rest.empty()) {
    const std::size_t end = rest.find(' ');
    if (rest.substr(0, end) == name) return true;
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return false;
}

bool isSoftwareRenderer(std::string_view name) {
  for (const char* software : {"llvmpipe", "softpipe", "swrast", "SWR", "Software"}) {
    if (name.find(software) != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace QelUtilVideo
