#include "SourceLookup.h"

#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <functional>

#include "Failure.h"

namespace qelvideo {

using QelUtilVideo::Capturable;
using QelUtilVideo::CapturableDeviceManager;
using QelUtilVideo::CapturableWindowManager;

namespace {

bool startsWithInAnyCase(std::string_view text, std::string_view start) {
  return text.size() >= start.size() &&
         std::equal(start.begin(), start.end(), text.begin(),
                    [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::string_view lastComponent(std::string_view uniqueID) { return uniqueID.substr(uniqueID.rfind('.') + 1); }

std::string describe(const SourceName& source) {
  return "\n  " + source.uniqueID + "  (" + source.name + ")";
}

}  // namespace

std::vector<std::size_t> matchingSources(std::string_view query, const std::vector<SourceName>& sources) {
  if (query.empty()) return {};
  const std::vector<std::function<bool(const SourceName&)>> rules{
      [query](const SourceName& source) { return source.uniqueID == query; },
      [query](const SourceName& source) {
        return lastComponent(source.uniqueID) == query || source.name == query;
      },
      [query](const SourceName& source) {
        return source.uniqueID.starts_with(query) || source.uniqueID.ends_with(query) ||
               startsWithInAnyCase(source.name, query);
      },
  };
  std::vector<std::size_t> matches;
  for (const auto& fits : rules) {
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (fits(sources[i])) matches.push_back(i);
    }
    if (!matches.empty()) break;
  }
  return matches;
}

std::vector<std::shared_ptr<Capturable>> availableSources() {
  std::vector<std::shared_ptr<Capturable>> sources;
  const auto append = [&](const auto& more) { sources.insert(sources.end(), more.begin(), more.end()); };
  append(CapturableWindowManager::screens());
  append(CapturableWindowManager::windows());
  append(CapturableDeviceManager::allDevices());
  return sources;
}

std::shared_ptr<Capturable> findSource(const std::string& query) {
  const std::vector<std::shared_ptr<Capturable>> sources = availableSources();
  if (sources.empty()) throw Failure("cannot look for \"" + query + "\": " + noSourcesText());

  std::vector<SourceName> names;
  names.reserve(sources.size());
  for (const auto& source : sources) names.push_back({source->uniqueID(), source->name()});
  std::vector<std::size_t> matches = matchingSources(query, names);
  const auto isDevice = [&](std::size_t match) { return isDisplayDevice(*sources[match]); };
  if (!std::all_of(matches.begin(), matches.end(), isDevice)) std::erase_if(matches, isDevice);
  if (matches.empty()) {
    throw Failure("no source is called \"" + query + "\"; `qelvideo list` shows what there is");
  }
  if (matches.size() > 1) {
    std::string text = "\"" + query + "\" fits more than one source; say more of the unique ID:";
    for (const std::size_t match : matches) text += describe(names[match]);
    throw Failure(text);
  }
  return sources[matches.front()];
}

bool isDisplayDevice(const Capturable& source) {
  return source.isScreen() && !source.isWindow() && CapturableDeviceManager::device(source.uniqueID());
}

int framesPerSecond(const Capturable& source) {
  return source.isCamera() || isDisplayDevice(source) ? 30 : 10;
}

std::string noSourcesText() {
  const char* display = std::getenv("DISPLAY");  // NOLINT(concurrency-mt-unsafe): nobody sets it by now
  if (!display || !*display) {
    return "there is no camera, and there are no displays or windows, since DISPLAY is not set; set it to a "
           "running X server (as in "
           "DISPLAY=:0), or try `qelvideo demo`, which starts one of its own";
  }
  return std::string("there is no camera, and there are no displays or windows on the X server DISPLAY=") +
         display +
         "; check that it runs and lets this user in, and that it has the RANDR extension; `qelvideo doctor` "
         "looks";
}

}  // namespace qelvideo
