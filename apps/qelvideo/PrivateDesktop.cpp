#include "PrivateDesktop.h"

#include <cstdlib>

#include "Failure.h"
#include "Terminal.h"

namespace qelvideo {

namespace {

VirtualServer startServer() {
  try {
    return VirtualServer("1280x720x24");
  } catch (const Failure& failure) {
    throw Failure(std::string(failure.what()) +
                  "; without a desktop (DISPLAY is not set) the demo needs it: install the package xvfb, or "
                  "set DISPLAY to a running X server");
  }
}

void paintBackground() { ChildProcess({"xsetroot", "-solid", "#27506e"}).wait(5); }

}  // namespace

PrivateDesktop::PrivateDesktop(Terminal& terminal) {
  server_.emplace(startServer());
  ::setenv("DISPLAY", display().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
  try {
    paintBackground();
  } catch (const Failure& failure) {
    terminal.note(std::string(failure.what()) + " (package x11-xserver-utils): the background stays black");
  }
  const std::vector<std::vector<std::string>> programs{
      {"xclock", "-update", "1", "-geometry", "260x260+80+80"},
      {"xeyes", "-geometry", "300x200+480+110"},
      {"xlogo", "-geometry", "260x260+920+80"},
      {"xclock", "-digital", "-update", "1", "-geometry", "420x60+420+520"},
  };
  for (const auto& program : programs) {
    try {
      programs_.emplace_back(program);
    } catch (const Failure& failure) {
      terminal.note(std::string(failure.what()) + " (package x11-apps): the desktop does without it");
    }
  }
}

}  // namespace qelvideo
