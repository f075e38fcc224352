#include "support/simulated/SimulatedPlatform.h"

#include <utility>

namespace QelUtilVideo {

SimulatedPlatform::SimulatedPlatform()
    : trouble_([this](const std::string& text) { platformTrouble(*this, text); }),
      dispatch_(clock_, trouble_),
      center_(trouble_),
      displays_(center_),
      captureDevices_(center_) {}

SimulatedPlatform::~SimulatedPlatform() = default;

std::unique_ptr<Platform> makePlatform() { return std::make_unique<SimulatedPlatform>(); }

ScopedMachine::ScopedMachine() {
  auto machine = std::make_unique<SimulatedPlatform>();
  machine_ = machine.get();
  Root::replace(std::make_unique<Root>(std::move(machine)));
}

ScopedMachine::~ScopedMachine() {
  // Blocks may hold objects that still need the root.
  machine_->dispatch().discardPending();
  Root::replace(nullptr);
}

}  // namespace QelUtilVideo
