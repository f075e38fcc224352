#pragma once

#include <cstdio>
#include <cstdlib>
#include <source_location>

namespace qelfuzz {

/// Ends the run where a promise is broken, as any other crash does.
inline void require(bool kept, const char* promise,
                    const std::source_location& where = std::source_location::current()) {
  if (kept) return;
  std::fprintf(stderr, "%s:%u: broken: %s\n", where.file_name(), static_cast<unsigned>(where.line()),
               promise);
  std::abort();
}

}  // namespace qelfuzz
