#pragma once

#include "platform/Synchronised.h"

#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/CapturableOutputDelegate.h>

#include <functional>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Writes down what it is told, in short words, and lets a test act from inside each call.
class RecordingDelegate final : public CapturableOutputDelegate {
 public:
  using Capturables = const std::shared_ptr<Capturable>&;

  /// Called, after the note is taken, with the note and the source.
  std::function<void(const std::string&, Capturables)> react = [](const std::string&, Capturables) {};

  [[nodiscard]] std::vector<std::string> events() const { return events_.copy(); }
  [[nodiscard]] std::vector<double> timestamps() const { return timestamps_.copy(); }
  [[nodiscard]] CVPixelBufferRef lastFrame() const { return lastFrame_.copy(); }

  void capturableWillStartRunning(Capturables source) override { note("willStart", source); }
  void capturableDidFailToStartRunning(Capturables source, const NSError& error) override {
    note("didFailToStart " + error.description(), source);
  }
  void capturableDidStartRunning(Capturables source) override { note("didStart", source); }
  void capturableDidStopRunning(Capturables source, const NSError* error) override {
    note("didStop " + (error ? error->description() : "none"), source);
  }
  void capturableDidBeginInterruption(Capturables source, const Dictionary* userInfo) override {
    note("begin" + (userInfo ? " " + std::to_string(userInfo->size()) : ""), source);
  }
  void capturableDidEndInterruption(Capturables source) override { note("end", source); }
  void capturableDidOutput(Capturables source, const CVPixelBufferRef& frame, double timestamp) override {
    timestamps_.with([&](auto& all) { all.push_back(timestamp); });
    lastFrame_.with([&](auto& last) { last = frame; });
    note("frame", source);
  }

 private:
  void note(const std::string& event, Capturables source) {
    events_.with([&](auto& all) { all.push_back(event); });
    react(event, source);
  }

  Synchronised<std::vector<std::string>> events_;
  Synchronised<std::vector<double>> timestamps_;
  Synchronised<CVPixelBufferRef> lastFrame_;
};

}  // namespace QelUtilVideo
