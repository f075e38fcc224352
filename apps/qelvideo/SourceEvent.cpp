#include "SourceEvent.h"

#include <QelUtilVideo/Capturable.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

#include "PrintableText.h"
#include "SourceLookup.h"

namespace qelvideo {

namespace {

std::string kindOf(const QelUtilVideo::Capturable& source) {
  if (source.isCamera()) return "camera";
  // A window counts as a screen too.
  if (source.isWindow()) return "window";
  return isDisplayDevice(source) ? "display device" : "display";
}

const char* nameOf(SourceEvent::What what) {
  switch (what) {
    case SourceEvent::What::present:
      return "present";
    case SourceEvent::What::connected:
      return "connected";
    case SourceEvent::What::disconnected:
      break;
  }
  return "disconnected";
}

std::string formatted(const char* format, const std::tm& time) {
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &time)};
}

std::string timeOfDay(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return formatted("%H:%M:%S", local);
}

std::string universalTime(std::chrono::system_clock::time_point time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - whole);
  const std::time_t seconds = std::chrono::system_clock::to_time_t(whole);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  const std::string fraction = std::to_string(1000 + rest.count()).substr(1);
  return formatted("%Y-%m-%dT%H:%M:%S.", utc) + fraction + "Z";
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

}  // namespace

SourceEvent SourceEvent::now(What what, const QelUtilVideo::Capturable& source) {
  return {std::chrono::system_clock::now(), what, kindOf(source), source.name(), source.uniqueID()};
}

std::string SourceEvent::text() const {
  return timeOfDay(time) + "  " + padded(nameOf(what), 12) + "  " + padded(kind, 14) + "  " +
         printable(name) + "  " + uniqueID;
}

std::string SourceEvent::json() const {
  const nlohmann::ordered_json object{{"time", universalTime(time)},
                                      {"event", nameOf(what)},
                                      {"kind", kind},
                                      {"name", name},
                                      {"uniqueID", uniqueID}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qelvideo
