// A presentation program: it has a window, and shows slides in another one that fills a display. A line on
// the standard input says what to do; each is answered with a line, the first one when the window is there.
//
//   show X Y WIDTH HEIGHT   shows slides, on top, at that place of the root
//   hide                    closes them
//   minimize, restore       the window
//
// What kind of program it is, the name of its file says.

#include "support/WindowPainter.h"

#include <cstdlib>
#include <iostream>
#include <string>

int main() {
  using qeltest::PaintedWindow;
  const char* display = std::getenv("DISPLAY");  // NOLINT(concurrency-mt-unsafe)
  const qeltest::WindowPainter painter(display ? display : "");
  if (!painter.connection()) return 1;
  const PaintedWindow window = painter.show({50, 60, 200, 150}, 1);
  painter.setTitle(window, "Slides");
  PaintedWindow slides;
  std::cout << window.window << std::endl;

  for (std::string command; std::cin >> command;) {
    if (command == "show") {
      int x = 0, y = 0, width = 0, height = 0;
      std::cin >> x >> y >> width >> height;
      slides = painter.show({x, y, width, height}, 2, 0, true, 0, "slides");
    } else if (command == "hide") {
      painter.destroy(slides);
    } else if (command == "minimize") {
      painter.minimize(window);
    } else if (command == "restore") {
      painter.map(window);
    } else {
      return 1;
    }
    std::cout << "done" << std::endl;
  }
  return 0;
}
