#include "TerminalKeys.h"

#include <QelUtilVideo/platform/MainLoop.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace qelvideo {

namespace {

/// Seconds within which a terminal sends the rest of what begins like an escape, even far away.
constexpr double restTimeout = 0.05;
constexpr char controlD = 0x04;

bool isTerminal() { return ::isatty(STDIN_FILENO) == 1; }

}  // namespace

TerminalKeys::TerminalKeys(HostLoop& loop, Handler pressed)
    : loop_(loop),
      pressed_(std::move(pressed)),
      decoder_(isTerminal() ? KeyDecoder::Source::terminal : KeyDecoder::Source::pipe) {
  if (isTerminal()) {
    mode_.emplace(loop_, [this] { followTerminal(); });
    followTerminal();
  } else {
    watch_ = loop_.watch(STDIN_FILENO, POLLIN, [this](short events) { read(events); });
  }
}

/// In the background its keys are for somebody else, but its end still counts.
void TerminalKeys::followTerminal() {
  const short events = mode_->isTaken() ? POLLIN : 0;
  watch_ = loop_.watch(STDIN_FILENO, events, [this](short ready) { read(ready); });
}

void TerminalKeys::read(short events) {
  if (mode_ && !mode_->isTaken()) {
    if (events & (POLLHUP | POLLERR | POLLNVAL)) end();
    return;
  }
  std::array<char, 256> bytes;
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count > 0) return handOut({bytes.data(), static_cast<std::size_t>(count)});
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  // A terminal that has nothing to read after all is there still.
  if (count == 0 && mode_ && !(events & POLLHUP)) return;
  end();
}

void TerminalKeys::handOut(std::string_view bytes) {
  const std::size_t last = mode_ ? bytes.find(controlD) : std::string_view::npos;
  for (const std::string& key : decoder_.decode(bytes.substr(0, last))) pressed_(key);
  if (last != std::string_view::npos) return end();
  if (mode_ && decoder_.isWaiting()) awaitRest();
}

void TerminalKeys::awaitRest() {
  const int wait = ++*waits_;
  QelUtilVideo::MainLoop::main().after(restTimeout, [this, wait, weak = std::weak_ptr(waits_)] {
    const auto waits = weak.lock();
    if (!waits || *waits != wait || !decoder_.isWaiting()) return;
    const std::string key = decoder_.giveUp();
    if (!key.empty()) pressed_(key);
  });
}

void TerminalKeys::end() {
  watch_.reset();
  ++*waits_;
  mode_.reset();
  ended_ = true;
}

}  // namespace qelvideo
