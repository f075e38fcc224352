#include "SourcePictures.h"

#include <QelUtilVideo/Capturable.h>

#include <filesystem>
#include <fstream>

#include "Failure.h"
#include "PrintableText.h"
#include "Snapshot.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

constexpr const char* pageStart = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>What can be captured</title>
<style>
body { margin: 2em; background: #202428; color: #e0e4e8; font: 15px/1.5 sans-serif; }
main { display: grid; grid-template-columns: repeat(auto-fill, minmax(320px, 1fr)); gap: 2em; }
figure { margin: 0; }
img, .none { width: 100%; height: 200px; box-sizing: border-box; object-fit: contain; background: #101214; }
.none { display: flex; align-items: center; justify-content: center; color: #808890; }
figcaption { margin-top: 0.5em; overflow-wrap: anywhere; }
small { display: block; color: #98a0a8; }
</style>
</head>
<body>
<main>
)";
constexpr const char* pageEnd = "</main>\n</body>\n</html>\n";

/// The text as it stands in a page, whatever it is.
std::string escaped(const std::string& text) {
  std::string page;
  for (const char character : printable(text)) {
    switch (character) {
      case '&':
        page += "&amp;";
        break;
      case '<':
        page += "&lt;";
        break;
      case '>':
        page += "&gt;";
        break;
      case '"':
        page += "&quot;";
        break;
      default:
        page += character;
    }
  }
  return page;
}

/// One source's part of the page; its picture is written beside the page.
std::string figure(const Capturable& source, const std::filesystem::path& folder) {
  std::string view = "<div class=\"none\">no picture now</div>";
  std::string size;
  if (const CGImageRef picture = pictureOf(source)) {
    // The unique ID of what has pictures holds letters, digits and dots.
    const std::string file = source.uniqueID() + ".png";
    savePicture(*picture, folder / file);
    view = "<a href=\"" + file + "\"><img src=\"" + file + "\" alt=\"\"></a>";
    size = ", " + std::to_string(picture->width()) + "x" + std::to_string(picture->height());
  }
  return "<figure>\n" + view + "\n<figcaption>" + escaped(source.name()) + "<small>" +
         escaped(source.uniqueID()) + size + "</small></figcaption>\n</figure>\n";
}

}  // namespace

std::string writeSourcePictures(const SourceRefs& sources, const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error)
    throw Failure("cannot make the folder " + folder + ": " + error.message() + "; name another one");
  std::string page = pageStart;
  for (const auto& source : sources) page += figure(*source, folder);
  page += pageEnd;

  const std::filesystem::path path = std::filesystem::path(folder) / "index.html";
  std::ofstream file(path, std::ios::binary);
  file << page;
  file.close();
  if (!file) throw Failure("cannot write " + path.string() + "; name a folder that you may write to");
  return path;
}

}  // namespace qelvideo
