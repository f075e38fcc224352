#pragma once

#include <QelUtilVideo/platform/NotificationCenter.h>

#include "platform/CallSafely.h"
#include "platform/Synchronised.h"

#include <atomic>
#include <vector>

namespace QelUtilVideo {

/// The notification centre itself; nothing in it depends on a machine.
class NotificationCenterImpl final : public NotificationCenter {
 public:
  explicit NotificationCenterImpl(TroubleHandler trouble);
  ~NotificationCenterImpl() override;

  Token addObserver(std::optional<std::string> name, const NSObject* object, Handler handler) override;
  void removeObserver(Token token) override;
  void postNotificationName(const std::string& name, std::shared_ptr<NSObject> object,
                            Dictionary userInfo) override;

 private:
  struct Observer {
    Token token;
    std::optional<std::string> name;
    const NSObject* object;
    Handler handler;
    std::atomic<bool> removed{false};
  };
  struct State {
    Token lastToken = 0;
    std::vector<std::shared_ptr<Observer>> observers;
  };

  [[nodiscard]] std::vector<std::shared_ptr<Observer>> observersOf(const NSNotification& notification) const;

  TroubleHandler trouble_;
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
