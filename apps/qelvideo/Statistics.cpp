#include "Statistics.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "Recorder.h"

namespace qelvideo {

namespace {

std::string decimal(double number) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f", number);
  return text;
}

}  // namespace

Statistics::Statistics(const Recording& recording)
    : frames(recording.frames), width(recording.width), height(recording.height) {
  if (frames < 2) return;
  // So many frames lie between one gap fewer.
  const auto count = static_cast<double>(frames);
  seconds = (recording.lastTime - recording.firstTime) * count / (count - 1);
}

double Statistics::framesPerSecond() const { return seconds > 0 ? static_cast<double>(frames) / seconds : 0; }

std::string Statistics::text() const {
  std::string line = std::to_string(frames) + (frames == 1 ? " frame" : " frames");
  if (seconds > 0) line += " in " + decimal(seconds) + " s (" + decimal(framesPerSecond()) + " fps)";
  if (frames > 0) line += ", " + std::to_string(width) + "x" + std::to_string(height);
  if (bytes > 0) line += ", " + decimal(static_cast<double>(bytes) / 1e6) + " MB";
  if (repeated > 0) line += ", " + std::to_string(repeated) + " repeated";
  if (dropped > 0) line += ", " + std::to_string(dropped) + " dropped";
  return line;
}

std::string Statistics::json() const {
  return nlohmann::ordered_json{
      {"frames", frames},   {"seconds", seconds}, {"framesPerSecond", framesPerSecond()},
      {"width", width},     {"height", height},   {"repeated", repeated},
      {"dropped", dropped}, {"bytes", bytes}}
      .dump();
}

}  // namespace qelvideo
