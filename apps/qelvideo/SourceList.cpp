#include "SourceList.h"

#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "PrintableText.h"
#include "SourceLookup.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

/// A source's place on the desktop; the origin is the desktop's top-left corner, y downward.
struct Place {
  CGPoint origin;
  CGSize size;  ///< points
};

/// What y was turned over by: the height of the primary display, the first one, wherever that lies.
double primaryHeight(const SourceRefs& sources) {
  for (const auto& source : sources) {
    const auto display = std::dynamic_pointer_cast<CapturableScreen>(source);
    if (!display) continue;
    if (const auto screen = display->screen()) return screen->frame().size.height;
  }
  return 0;
}

Place place(const CGRect& frame, double primaryHeight) {
  return {{frame.origin.x, primaryHeight - CGRectGetMaxY(frame)}, frame.size};
}

/// The part of a window's name that is not its title.
std::string application(const CapturableWindow& window) {
  const std::string title = " - " + window.windowName();
  std::string name = window.name();
  if (name.ends_with(title)) name.resize(name.size() - title.size());
  return name;
}

std::string number(double value) {
  if (value == std::floor(value) && std::abs(value) < 1e9) return std::to_string(static_cast<long>(value));
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  return text;
}

std::string yesOrNo(bool answer) { return answer ? "yes" : "no"; }

using Row = std::vector<std::string>;

Row displayRow(const CapturableScreen& display, double primaryHeight) {
  Row cells{display.uniqueID(), printable(display.name()), yesOrNo(display.isAvailable())};
  if (const auto screen = display.screen()) {
    const Place where = place(screen->frame(), primaryHeight);
    cells.push_back(number(where.size.width) + "x" + number(where.size.height));
    cells.push_back(number(where.origin.x) + "," + number(where.origin.y));
    cells.push_back(number(screen->backingScaleFactor()));
  }
  return cells;
}

Row windowRow(const CapturableWindow& window, double primaryHeight) {
  const Place where = place(window.frame(), primaryHeight);
  return {window.uniqueID(),
          printable(application(window)),
          printable(window.windowName()),
          yesOrNo(window.isAvailable()),
          number(where.size.width) + "x" + number(where.size.height),
          number(where.origin.x) + "," + number(where.origin.y),
          yesOrNo(window.isOnScreen())};
}

Row cameraRow(const CapturableCamera& camera) {
  return {camera.uniqueID(), printable(camera.name()), yesOrNo(camera.isAvailable())};
}

nlohmann::ordered_json placeJSON(const Place& where) {
  return {{"origin", {{"x", where.origin.x}, {"y", where.origin.y}}},
          {"size", {{"width", where.size.width}, {"height", where.size.height}}}};
}

nlohmann::ordered_json displayJSON(const CapturableScreen& display, double primaryHeight) {
  nlohmann::ordered_json entry{{"uniqueID", display.uniqueID()},
                               {"name", display.name()},
                               {"available", display.isAvailable()},
                               {"displayID", display.displayID()}};
  if (const auto screen = display.screen()) {
    entry.update(placeJSON(place(screen->frame(), primaryHeight)));
    entry["scale"] = screen->backingScaleFactor();
  }
  return entry;
}

nlohmann::ordered_json cameraJSON(const CapturableCamera& camera) {
  return {{"uniqueID", camera.uniqueID()}, {"name", camera.name()}, {"available", camera.isAvailable()}};
}

nlohmann::ordered_json windowJSON(const CapturableWindow& window, double primaryHeight) {
  nlohmann::ordered_json entry{{"uniqueID", window.uniqueID()},
                               {"name", window.name()},
                               {"available", window.isAvailable()},
                               {"windowID", window.windowID()},
                               {"application", application(window)},
                               {"title", window.windowName()},
                               {"processIdentifier", window.processIdentifier()},
                               {"onScreen", window.isOnScreen()}};
  entry.update(placeJSON(place(window.frame(), primaryHeight)));
  return entry;
}

/// Columns as wide as their widest cell; a cell counts its UTF-8 characters, not its bytes.
std::string table(const std::vector<Row>& rows) {
  const auto width = [](const std::string& cell) {
    return static_cast<std::size_t>(
        std::count_if(cell.begin(), cell.end(), [](char byte) { return (byte & 0xc0) != 0x80; }));
  };
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& cells : rows) {
    for (std::size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], width(cells[i]));
  }
  std::string text;
  for (const Row& cells : rows) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      line += cells[i] + std::string(widths[i] - width(cells[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += (text.empty() ? "" : "\n") + line;
  }
  return text;
}

}  // namespace

std::string sourceTable(const SourceRefs& sources) {
  std::vector<Row> displays{{"DISPLAY", "NAME", "AVAILABLE", "SIZE", "ORIGIN", "SCALE"}};
  std::vector<Row> windows{{"WINDOW", "APPLICATION", "TITLE", "AVAILABLE", "SIZE", "ORIGIN", "ON SCREEN"}};
  std::vector<Row> cameras{{"CAMERA", "NAME", "AVAILABLE"}};
  std::vector<Row> devices{{"DISPLAY DEVICE", "NAME", "AVAILABLE", "SIZE", "ORIGIN", "SCALE"}};
  const double height = primaryHeight(sources);
  for (const auto& source : sources) {
    if (const auto* display = dynamic_cast<const CapturableScreen*>(source.get())) {
      (isDisplayDevice(*source) ? devices : displays).push_back(displayRow(*display, height));
    } else if (const auto* window = dynamic_cast<const CapturableWindow*>(source.get())) {
      windows.push_back(windowRow(*window, height));
    } else if (const auto* camera = dynamic_cast<const CapturableCamera*>(source.get())) {
      cameras.push_back(cameraRow(*camera));
    }
  }
  std::string text;
  for (const auto* rows : {&displays, &windows, &cameras, &devices}) {
    if (rows->size() > 1) text += (text.empty() ? "" : "\n\n") + table(*rows);
  }
  return text;
}

std::string sourceJSON(const SourceRefs& sources) {
  const double height = primaryHeight(sources);
  nlohmann::ordered_json document;
  for (const char* kind : {"displays", "windows", "cameras", "displayDevices"}) {
    document[kind] = nlohmann::ordered_json::array();
  }
  for (const auto& source : sources) {
    if (const auto* display = dynamic_cast<const CapturableScreen*>(source.get())) {
      document[isDisplayDevice(*source) ? "displayDevices" : "displays"].push_back(
          displayJSON(*display, height));
    } else if (const auto* window = dynamic_cast<const CapturableWindow*>(source.get())) {
      document["windows"].push_back(windowJSON(*window, height));
    } else if (const auto* camera = dynamic_cast<const CapturableCamera*>(source.get())) {
      document["cameras"].push_back(cameraJSON(*camera));
    }
  }
  // Names come from devices and other programs, which may hold any bytes.
  return document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qelvideo
