#pragma once

#include <optional>
#include <string_view>

namespace QelUtilVideo {

/// A presentation program, whose slides fill a screen in a window of their own.
struct PresentationProgram {
  std::string_view executable;  ///< the name of its file
  /// The identifier by which hosts and the library know how programs of its kind show slides.
  std::string_view bundleIdentifier;
  /// What its slide window has in `WM_CLASS` as the instance's name.
  std::string_view slideInstance;
  /// How the titles end of those of its windows that have the same there and show no slides; empty: none has.
  std::string_view otherTitleEnd;
};

/// The program of that executable, where it is a presentation program.
[[nodiscard]] const PresentationProgram* findPresentationProgram(std::string_view executable);

/// Whether the program shows its slides in such a window.
[[nodiscard]] bool isSlideShow(const PresentationProgram& program, std::string_view instance,
                               std::string_view title);

}  // namespace QelUtilVideo
