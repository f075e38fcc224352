#pragma once

#include <mutex>
#include <string>

namespace qelvideo {

/// What the person sees: results on standard output, everything else on standard error, with one
/// progress line at the bottom that is drawn only when standard error is a terminal. Any thread.
class Terminal {
 public:
  Terminal();

  /// A line on standard error.
  void note(const std::string& line);
  /// Replaces the progress line; without a terminal nothing.
  void progress(const std::string& text);
  void clearProgress();
  /// A line on standard output. Throws `Failure` when it cannot be written; a reader that has gone is
  /// no failure.
  void result(const std::string& line);

 private:
  void eraseProgress();

  std::mutex mutex_;
  const bool drawsProgress_;
  bool progressShown_ = false;
};

}  // namespace qelvideo
