#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Cancellation.h"
#include "FrameHolder.h"
#include "Y4mReader.h"

namespace qelvideo {

/// Plays a Y4M film for a view at the film's own rate, on a thread of its own. The last
/// frame stays. Main thread.
class FramePlayer {
 public:
  /// Where the playing stands.
  struct State {
    std::uint64_t frames = 0;
    std::size_t width = 0;
    std::size_t height = 0;
    bool ended = false;
    std::optional<std::string> failure;  ///< what kept it from playing to the end
  };

  /// Begins at once. `cancellation` is the reader's. After `most` frames it ends.
  FramePlayer(std::unique_ptr<Y4mReader> reader, std::shared_ptr<Cancellation> cancellation,
              std::shared_ptr<FrameHolder> frames, std::optional<std::uint64_t> most);
  FramePlayer(const FramePlayer&) = delete;
  FramePlayer& operator=(const FramePlayer&) = delete;
  /// Ends the playing.
  ~FramePlayer();

  /// Any thread. When the playing ends, the host loop is woken.
  [[nodiscard]] State state() const;

 private:
  void run(std::optional<std::uint64_t> most);
  void play(std::optional<std::uint64_t> most);

  std::unique_ptr<Y4mReader> reader_;
  std::shared_ptr<Cancellation> cancellation_;
  std::shared_ptr<FrameHolder> frames_;
  mutable std::mutex mutex_;
  State state_;
  std::thread thread_;
};

}  // namespace qelvideo
