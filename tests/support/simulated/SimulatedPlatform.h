#pragma once

#include "platform/NotificationCenterImpl.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "platform/linux/media/PixmanImages.h"
#include "support/simulated/SimulatedCaptureDevices.h"
#include "support/simulated/SimulatedDispatch.h"
#include "support/simulated/SimulatedDisplays.h"
#include "support/simulated/SimulatedMetal.h"
#include "support/simulated/SimulatedOpenGL.h"
#include "support/simulated/SimulatedServices.h"
#include "support/simulated/SimulatedViews.h"
#include "support/simulated/SimulatedWindowServer.h"

namespace QelUtilVideo {

/// A machine that does what the test says and nothing else:
///
///     ScopedMachine machine;
///     machine->displays().set({{.id = 7, .name = "Left"}});
///     …                                  // use the library
///     machine->advance(0.3);             // three tenths of a second pass at once
class SimulatedPlatform final : public Platform {
 public:
  SimulatedPlatform();
  ~SimulatedPlatform() override;

  SimulatedDispatch& dispatch() override { return dispatch_; }
  NotificationCenter& notificationCenter() override { return center_; }
  SimulatedClock& clock() override { return *clock_; }
  SimulatedSystemVersion& systemVersion() override { return systemVersion_; }
  SimulatedUserDefaults& userDefaults() override { return userDefaults_; }
  SimulatedBundle& bundle() override { return bundle_; }
  SimulatedSystemLog& systemLog() override { return systemLog_; }
  SimulatedDisplays& displays() override { return displays_; }
  SimulatedDisplayLinks& displayLinks() override { return displayLinks_; }
  SimulatedWindowServer& windowServer() override { return windowServer_; }
  SimulatedCaptureDevices& captureDevices() override { return captureDevices_; }
  SimulatedCursor& cursor() override { return cursor_; }
  SimulatedViews& views() override { return views_; }
  Images& images() override { return images_; }
  SimulatedMetal& metal() override { return metal_; }
  SimulatedOpenGL& openGL() override { return openGL_; }
  SimulatedDiagnostics& diagnostics() override { return diagnostics_; }

  // What tests do most; see SimulatedDispatch.
  void runMain() { dispatch_.runMain(); }
  void runQueues() { dispatch_.runQueues(); }
  void settle() { dispatch_.settle(); }
  void advance(double seconds) { dispatch_.advance(seconds); }

 private:
  SimulatedSystemLog systemLog_;
  TroubleHandler trouble_;
  std::shared_ptr<SimulatedClock> clock_ = std::make_shared<SimulatedClock>();
  SimulatedDispatch dispatch_;
  NotificationCenterImpl center_;
  SimulatedSystemVersion systemVersion_;
  SimulatedUserDefaults userDefaults_;
  SimulatedBundle bundle_;
  SimulatedDisplays displays_;
  SimulatedDisplayLinks displayLinks_;
  SimulatedWindowServer windowServer_;
  SimulatedCaptureDevices captureDevices_;
  SimulatedCursor cursor_;
  SimulatedViews views_;
  PixmanImages images_;
  SimulatedMetal metal_;
  SimulatedOpenGL openGL_;
  SimulatedDiagnostics diagnostics_;
};

/// Puts the library on a fresh machine, with a root of its own, for the life of a test. Objects of the
/// library go before it does.
class ScopedMachine {
 public:
  ScopedMachine();
  ScopedMachine(const ScopedMachine&) = delete;
  ScopedMachine& operator=(const ScopedMachine&) = delete;
  ~ScopedMachine();

  [[nodiscard]] SimulatedPlatform& operator*() const { return *machine_; }
  [[nodiscard]] SimulatedPlatform* operator->() const { return machine_; }

 private:
  SimulatedPlatform* machine_;
};

}  // namespace QelUtilVideo
