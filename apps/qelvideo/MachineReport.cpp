#include "MachineReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "PrintableText.h"

namespace qelvideo {

using QelUtilVideo::Finding;

namespace {

const char* nameOf(Finding::Area area) {
  switch (area) {
    case Finding::Area::displays:
      return "displays";
    case Finding::Area::drawing:
      return "drawing";
    case Finding::Area::cameras:
      return "cameras";
    case Finding::Area::system:
      break;
  }
  return "system";
}

const char* titleOf(Finding::Area area) {
  switch (area) {
    case Finding::Area::displays:
      return "Capturing displays and windows";
    case Finding::Area::drawing:
      return "Drawing views";
    case Finding::Area::cameras:
      return "Capturing cameras";
    case Finding::Area::system:
      break;
  }
  return "System";
}

const char* nameOf(Finding::State state) {
  switch (state) {
    case Finding::State::ok:
      return "ok";
    case Finding::State::limited:
      return "limited";
    case Finding::State::missing:
      return "missing";
    case Finding::State::unused:
      break;
  }
  return "unused";
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

constexpr std::size_t stateWidth = 9;
constexpr std::size_t subjectWidth = 20;

std::string lines(const Finding& finding) {
  std::string text = "  " + padded(nameOf(finding.state), stateWidth) +
                     padded(printable(finding.subject), subjectWidth) + printable(finding.detail) + "\n";
  if (!finding.remedy.empty())
    text += std::string(2 + stateWidth, ' ') + "-> " + printable(finding.remedy) + "\n";
  return text;
}

}  // namespace

bool MachineReport::works(Finding::Area area) const {
  return std::ranges::none_of(findings_, [area](const Finding& finding) {
    return finding.area == area && finding.state == Finding::State::missing;
  });
}

bool MachineReport::capturesDisplays() const { return works(Finding::Area::displays); }
bool MachineReport::drawsViews() const { return works(Finding::Area::drawing); }

std::string MachineReport::text() const {
  std::string text;
  std::optional<Finding::Area> area;
  for (const Finding& finding : findings_) {
    if (area != finding.area) text += std::string(area ? "\n" : "") + titleOf(finding.area) + "\n";
    area = finding.area;
    text += lines(finding);
  }
  if (!text.empty()) text.pop_back();
  return text;
}

std::string MachineReport::json() const {
  nlohmann::ordered_json findings = nlohmann::ordered_json::array();
  for (const Finding& finding : findings_) {
    nlohmann::ordered_json entry{{"area", nameOf(finding.area)},
                                 {"subject", finding.subject},
                                 {"state", nameOf(finding.state)},
                                 {"detail", finding.detail}};
    if (!finding.remedy.empty()) entry["remedy"] = finding.remedy;
    findings.push_back(std::move(entry));
  }
  const nlohmann::ordered_json report{
      {"capturesDisplays", capturesDisplays()}, {"drawsViews", drawsViews()}, {"findings", findings}};
  // Names come from servers and drivers, which may hold any bytes.
  return report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qelvideo
