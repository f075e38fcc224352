#include "SourceList.h"

#include <QelUtilVideo/CapturableScreen.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

/// A display's place on the desktop; the origin is the primary display's top-left corner, y downward.
struct DisplayPlace {
  CGPoint origin;
  CGSize size;  ///< points
  double scale = 1;
};

/// The height that turns the bottom-left origin of screens into the desktop's top-left one.
double primaryHeight(const SourceRefs& sources) {
  for (const auto& source : sources) {
    const auto display = std::dynamic_pointer_cast<CapturableScreen>(source);
    if (!display) continue;
    if (const auto screen = display->screen()) return CGRectGetMaxY(screen->frame());
  }
  return 0;
}

DisplayPlace place(const NSScreen& screen, double primaryHeight) {
  const CGRect frame = screen.frame();
  return {{frame.origin.x, primaryHeight - CGRectGetMaxY(frame)}, frame.size, screen.backingScaleFactor()};
}

std::string number(double value) {
  if (value == std::floor(value) && std::abs(value) < 1e9) return std::to_string(static_cast<long>(value));
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  return text;
}

using Row = std::array<std::string, 6>;

Row row(const Capturable& source, double primaryHeight) {
  Row cells{source.uniqueID(), source.name(), source.isAvailable() ? "yes" : "no", "", "", ""};
  const auto* display = dynamic_cast<const CapturableScreen*>(&source);
  if (!display) return cells;
  if (const auto screen = display->screen()) {
    const DisplayPlace where = place(*screen, primaryHeight);
    cells[3] = number(where.size.width) + "x" + number(where.size.height);
    cells[4] = number(where.origin.x) + "," + number(where.origin.y);
    cells[5] = number(where.scale);
  }
  return cells;
}

/// Columns as wide as their widest cell; a cell counts its UTF-8 characters, not its bytes.
std::string table(const std::vector<Row>& rows) {
  const auto width = [](const std::string& cell) {
    return static_cast<std::size_t>(
        std::count_if(cell.begin(), cell.end(), [](char byte) { return (byte & 0xc0) != 0x80; }));
  };
  std::array<std::size_t, 6> widths{};
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
  std::vector<Row> rows{{"UNIQUE ID", "NAME", "AVAILABLE", "SIZE", "ORIGIN", "SCALE"}};
  const double height = primaryHeight(sources);
  for (const auto& source : sources) rows.push_back(row(*source, height));
  return table(rows);
}

std::string sourceJSON(const SourceRefs& sources) {
  const double height = primaryHeight(sources);
  nlohmann::ordered_json displays = nlohmann::ordered_json::array();
  for (const auto& source : sources) {
    const auto display = std::dynamic_pointer_cast<CapturableScreen>(source);
    if (!display) continue;
    nlohmann::ordered_json entry{{"uniqueID", display->uniqueID()},
                                 {"name", display->name()},
                                 {"available", display->isAvailable()},
                                 {"displayID", display->displayID()}};
    if (const auto screen = display->screen()) {
      const DisplayPlace where = place(*screen, height);
      entry["origin"] = {{"x", where.origin.x}, {"y", where.origin.y}};
      entry["size"] = {{"width", where.size.width}, {"height", where.size.height}};
      entry["scale"] = where.scale;
    }
    displays.push_back(std::move(entry));
  }
  // Names come from devices, which may hold any bytes.
  return nlohmann::ordered_json{{"displays", displays}}.dump(
      2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qelvideo
