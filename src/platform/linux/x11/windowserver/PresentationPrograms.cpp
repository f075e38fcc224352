#include "platform/linux/x11/windowserver/PresentationPrograms.h"

#include <algorithm>
#include <array>

namespace QelUtilVideo {

namespace {

/// Its slides are looked for first, among all windows on the screen.
constexpr std::string_view kSlidesFirst = "com.apple.iWork.Keynote";
/// Its slides are looked for where its own window cannot be captured.
constexpr std::string_view kWindowFirst = "com.microsoft.Powerpoint";

constexpr std::array<PresentationProgram, 3> kPrograms{{
    // Its documents have "libreoffice" as the instance, its console for the presenter the document's title.
    {"soffice.bin", kSlidesFirst, "soffice", " - LibreOffice Impress"},
    // Examples of either kind.
    {"qel-slides-first", kSlidesFirst, "slides", ""},
    {"qel-window-first", kWindowFirst, "slides", ""},
}};

}  // namespace

const PresentationProgram* findPresentationProgram(std::string_view executable) {
  const auto found = std::ranges::find(kPrograms, executable, &PresentationProgram::executable);
  return found == kPrograms.end() ? nullptr : &*found;
}

bool isSlideShow(const PresentationProgram& program, std::string_view instance, std::string_view title) {
  if (instance != program.slideInstance) return false;
  return program.otherTitleEnd.empty() || !title.ends_with(program.otherTitleEnd);
}

}  // namespace QelUtilVideo
