#include "platform/NotificationCenterImpl.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace QelUtilVideo {

NotificationCenterImpl::NotificationCenterImpl(TroubleHandler trouble) : trouble_(std::move(trouble)) {}
NotificationCenterImpl::~NotificationCenterImpl() = default;

NotificationCenter::Token NotificationCenterImpl::addObserver(std::optional<std::string> name,
                                                              const NSObject* object, Handler handler) {
  auto observer = std::make_shared<Observer>();
  observer->name = std::move(name);
  observer->object = object;
  observer->handler = std::move(handler);
  return state_.with([&](State& state) {
    observer->token = ++state.lastToken;
    state.observers.push_back(std::move(observer));
    return state.lastToken;
  });
}

void NotificationCenterImpl::removeObserver(Token token) {
  // Leaves the scope after the lock: letting go of a handler may run anything.
  const auto removed = state_.with([&](State& state) -> std::shared_ptr<Observer> {
    const auto found = std::find_if(state.observers.begin(), state.observers.end(),
                                    [&](const auto& observer) { return observer->token == token; });
    if (found == state.observers.end()) return nullptr;
    auto observer = std::move(*found);
    state.observers.erase(found);
    return observer;
  });
  if (removed) removed->removed = true;
}

void NotificationCenterImpl::postNotificationName(const std::string& name, std::shared_ptr<NSObject> object,
                                                  Dictionary userInfo) {
  const NSNotification notification{name, std::move(object), std::move(userInfo)};
  for (const auto& observer : observersOf(notification)) {
    if (observer->removed || !observer->handler) continue;
    callSafely(trouble_, "An observer of " + name, [&] { observer->handler(notification); });
  }
}

std::vector<std::shared_ptr<NotificationCenterImpl::Observer>> NotificationCenterImpl::observersOf(
    const NSNotification& notification) const {
  return state_.with([&](const State& state) {
    std::vector<std::shared_ptr<Observer>> addressed;
    std::copy_if(state.observers.begin(), state.observers.end(), std::back_inserter(addressed),
                 [&](const auto& observer) {
                   return (!observer->name || *observer->name == notification.name) &&
                          (!observer->object || observer->object == notification.object.get());
                 });
    return addressed;
  });
}

}  // namespace QelUtilVideo
