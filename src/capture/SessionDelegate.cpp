#include "capture/SessionDelegate.h"

#include "log/Log.h"
#include "platform/HostCall.h"

#include <QelUtilVideo/CapturableOutputDelegate.h>

#include <utility>

namespace QelUtilVideo {
namespace {

thread_local const EventAddressee* innermostAddressee = nullptr;

/// Calls the delegate, if there is one, with the source as a reference that it may keep.
template <class Call>
void tell(SessionDelegate& source, const char* callback, const Call& call) {
  const std::shared_ptr<CapturableOutputDelegate> delegate = EventAddressee::of(source);
  if (!delegate) return;
  callHost(callback,
           [&] { call(*delegate, std::shared_ptr<Capturable>(source.shared_from_this(), &source)); });
}

std::string describe(const Dictionary* userInfo) {
  std::string text;
  if (!userInfo) return text;
  for (const auto& [key, value] : userInfo->entries()) {
    if (!text.empty()) text += ",";
    text += key + ":" + value.description();
  }
  return text;
}

}  // namespace

void SessionDelegate::sessionWillStartRunning() {
  log(LogLevel::info, logName() + "[Delegate] willStartRunning");
  tell(*this, "capturableWillStartRunning",
       [](auto& delegate, const auto& self) { delegate.capturableWillStartRunning(self); });
}

void SessionDelegate::sessionDidFailToStartRunning(const NSError& error) {
  log(LogLevel::info, logName() + "[Delegate] didFailToStartRunning (error: " + error.description() + ")");
  tell(*this, "capturableDidFailToStartRunning",
       [&](auto& delegate, const auto& self) { delegate.capturableDidFailToStartRunning(self, error); });
}

void SessionDelegate::sessionDidStartRunning() {
  log(LogLevel::info, logName() + "[Delegate] didStartRunning");
  tell(*this, "capturableDidStartRunning",
       [](auto& delegate, const auto& self) { delegate.capturableDidStartRunning(self); });
}

void SessionDelegate::sessionDidStopRunning(const NSError* error) {
  const std::string reason = error ? "(error: " + error->description() + ")" : "(no error)";
  log(LogLevel::info, logName() + "[Delegate] didStopRunning " + reason);
  tell(*this, "capturableDidStopRunning",
       [&](auto& delegate, const auto& self) { delegate.capturableDidStopRunning(self, error); });
}

void SessionDelegate::sessionDidBeginInterruption(const Dictionary* userInfo) {
  log(LogLevel::info, logName() + "[Delegate] didBeginInterruption (" + describe(userInfo) + ")");
  tell(*this, "capturableDidBeginInterruption",
       [&](auto& delegate, const auto& self) { delegate.capturableDidBeginInterruption(self, userInfo); });
}

void SessionDelegate::sessionDidEndInterruption() {
  log(LogLevel::info, logName() + "[Delegate] didEndInterruption");
  tell(*this, "capturableDidEndInterruption",
       [](auto& delegate, const auto& self) { delegate.capturableDidEndInterruption(self); });
}

void SessionDelegate::sessionDidOutput(const CVPixelBufferRef& pixelBuffer, double timestamp) {
  tell(*this, "capturableDidOutput",
       [&](auto& delegate, const auto& self) { delegate.capturableDidOutput(self, pixelBuffer, timestamp); });
}

EventAddressee::EventAddressee(const SessionDelegate& source,
                               std::weak_ptr<CapturableOutputDelegate> delegate)
    : source_(source), delegate_(std::move(delegate)), outer_(innermostAddressee) {
  innermostAddressee = this;
}

EventAddressee::~EventAddressee() { innermostAddressee = outer_; }

std::shared_ptr<CapturableOutputDelegate> EventAddressee::of(const SessionDelegate& source) {
  const EventAddressee* scope = innermostAddressee;
  return scope && &scope->source_ == &source ? scope->delegate_.lock() : source.delegate();
}

}  // namespace QelUtilVideo
