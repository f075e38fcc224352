#pragma once

#include "platform/Synchronised.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// Uploads that something may lie idle for, for each object that there is.
inline constexpr std::size_t kMostIdle = 3;

/// Objects that are costly to make, to be used again and again: one that nobody but this holds is spare. One
/// thread at a time.
template <class T>
class Spares {
 public:
  using Objects = std::vector<std::shared_ptr<T>>;

  void add(std::shared_ptr<T> object) { kept_.push_back({std::move(object), 0}); }
  /// The first that fits, spare or not; null when none does.
  template <class Fits>
  [[nodiscard]] std::shared_ptr<T> find(Fits&& fits) const {
    const auto found = std::ranges::find_if(kept_, [&](const Kept& each) { return fits(*each.object); });
    return found == kept_.end() ? nullptr : found->object;
  }
  /// Of the spare ones that fit the one that has been so for longest; null when none does.
  template <class Fits>
  [[nodiscard]] std::shared_ptr<T> take(Fits&& fits) const {
    const Kept* oldest = nullptr;
    for (const Kept& each : kept_) {
      const bool isOlder = !oldest || each.age > oldest->age;
      if (isOlder && each.isSpare() && fits(*each.object)) oldest = &each;
    }
    return oldest ? oldest->object : nullptr;
  }
  /// Removes those that were spare at this and the last `most` calls times the number of all objects, which
  /// is how often objects are asked for while each has its turn; the caller has them, to destroy them where
  /// that does no harm.
  [[nodiscard]] Objects age(std::size_t most) {
    for (Kept& each : kept_) each.age = each.isSpare() ? each.age + 1 : 0;
    const auto isYoung = [&](const Kept& each) { return each.age <= most * kept_.size(); };
    const auto old = std::stable_partition(kept_.begin(), kept_.end(), isYoung);
    Objects removed;
    for (auto each = old; each != kept_.end(); ++each) removed.push_back(std::move(each->object));
    kept_.erase(old, kept_.end());
    return removed;
  }

 private:
  struct Kept {
    std::shared_ptr<T> object;
    std::size_t age = 0;
    [[nodiscard]] bool isSpare() const { return object.use_count() == 1; }
  };
  std::vector<Kept> kept_;
};

/// A spare one that fits, else what `make` answers, kept from here on; null when that does. Lets go of those
/// that nobody has wanted for long.
template <class T, class Fits, class Make>
[[nodiscard]] std::shared_ptr<T> takeOrMake(Synchronised<Spares<T>>& spares, Fits&& fits, Make&& make) {
  auto object = spares.with([&](const auto& all) { return all.take(fits); });
  if (!object) {
    object = make();
    if (!object) return nullptr;
    spares.with([&](auto& all) { all.add(object); });
  }
  // They go outside the lock.
  const auto dropped = spares.with([](auto& all) { return all.age(kMostIdle); });
  return object;
}

}  // namespace QelUtilVideo
