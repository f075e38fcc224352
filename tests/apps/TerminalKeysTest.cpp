#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "FileDescriptor.h"
#include "HostLoop.h"
#include "KeyDecoder.h"
#include "TerminalKeys.h"

using namespace qelvideo;
using testing::ElementsAre;
using Keys = std::vector<std::string>;

// Bytes as keys

TEST(KeyDecoder, namesKeysWhereverTheirBytesAreCut) {
  const std::vector<std::pair<std::string, Keys>> cases{
      {"q?", {"q", "?"}},
      {"\x1b[A\x1bOB\x1b[1;5CO", {"Up", "Down", "Right", "O"}},
      {"\x1b[5~\x1b[24~q", {"q"}},
      {"\x1bxq", {"q"}},
      {"\x1b\x1b[D", {"Escape", "Left"}},
      {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}},
      {"\xc3q\x80\xfe\xc0\xf0\x9f\x1b[H", {"q", "Home"}},
      {"\r\n\t\x7f\b\x01", {"Return", "Return", "Tab", "BackSpace", "BackSpace"}},
  };
  for (const auto& [bytes, keys] : cases) {
    KeyDecoder whole(KeyDecoder::Source::terminal);
    EXPECT_EQ(whole.decode(bytes), keys);
    EXPECT_FALSE(whole.isWaiting());
    KeyDecoder cut(KeyDecoder::Source::terminal);
    Keys found;
    for (const char byte : bytes) {
      for (std::string& key : cut.decode({&byte, 1})) found.push_back(std::move(key));
    }
    EXPECT_EQ(found, keys);
  }
  KeyDecoder lone(KeyDecoder::Source::terminal);
  EXPECT_THAT(lone.decode("a\x1b"), ElementsAre("a"));
  EXPECT_TRUE(lone.isWaiting());
  EXPECT_EQ(lone.giveUp(), "Escape");
  EXPECT_FALSE(lone.isWaiting());
  EXPECT_THAT(lone.decode("\x1b["), ElementsAre());
  EXPECT_EQ(lone.giveUp(), "");
  KeyDecoder pipe(KeyDecoder::Source::pipe);
  EXPECT_THAT(pipe.decode("\x1b[A"), ElementsAre("Escape", "[", "A"));
}

// Standard input

/// Puts another file in the place of standard input.
class StandardInput {
 public:
  explicit StandardInput(int descriptor) : before_(::dup(STDIN_FILENO)) { ::dup2(descriptor, STDIN_FILENO); }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;
  ~StandardInput() { ::dup2(before_.get(), STDIN_FILENO); }

 private:
  FileDescriptor before_;
};

/// A terminal of the test's own, at standard input; the test is the person in front of it.
class Keyboard {
 public:
  Keyboard() : person_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(::grantpt(person_.get()), 0);
    EXPECT_EQ(::unlockpt(person_.get()), 0);
    program_ = FileDescriptor(::open(::ptsname(person_.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    input_.emplace(program_.get());
  }
  void press(const std::string& keys) const {
    EXPECT_EQ(::write(person_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  [[nodiscard]] bool gathersLines() const {
    termios mode{};
    EXPECT_EQ(::tcgetattr(program_.get(), &mode), 0);
    return (mode.c_lflag & ICANON) && (mode.c_lflag & ECHO);
  }
  void unplug() { person_ = FileDescriptor(); }

 private:
  FileDescriptor person_;
  FileDescriptor program_;
  std::optional<StandardInput> input_;
};

/// What standard input gave.
struct Received {
  Keys keys;

  TerminalKeys::Handler handler() {
    return [this](const std::string& key) { keys.push_back(key); };
  }
};

void runUntil(HostLoop& loop, const std::function<bool()>& done) {
  EXPECT_EQ(loop.runUntil(done, 20), HostLoop::End::done);
}

TEST(TerminalKeys, aTerminalGivesEachKeyAndIsPutBack) {
  HostLoop loop;
  Keyboard keyboard;
  Received received;
  {
    TerminalKeys keys(loop, received.handler());
    EXPECT_FALSE(keyboard.gathersLines());
    keyboard.press("f\x1b[A\x1b");
    runUntil(loop, [&] { return received.keys.size() == 3; });
    EXPECT_FALSE(keys.ended());
    keyboard.press("g\x04q");
    runUntil(loop, [&] { return keys.ended(); });
    EXPECT_THAT(received.keys, ElementsAre("f", "Up", "Escape", "g"));
    EXPECT_TRUE(keyboard.gathersLines());
  }
  TerminalKeys again(loop, received.handler());
  EXPECT_FALSE(keyboard.gathersLines());
  keyboard.unplug();
  runUntil(loop, [&] { return again.ended(); });
}

TEST(TerminalKeys, aTerminalIsPutBackWhateverEndsTheProcess) {
  Keyboard keyboard;
  const auto endBy = [](int signal) {
    HostLoop loop;
    const TerminalKeys keys(loop, [](const std::string&) {});
    // The first of those that ask for an end is heeded, the second one obeyed.
    for (int i = 0; i < 2; ++i) std::raise(signal);
  };
  for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGABRT}) {
    EXPECT_EXIT(endBy(signal), testing::KilledBySignal(signal), "") << signal;
    EXPECT_TRUE(keyboard.gathersLines()) << signal;
  }
  const auto leave = [] {
    HostLoop loop;
    const TerminalKeys keys(loop, [](const std::string&) {});
    std::exit(3);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(3), "");
  EXPECT_TRUE(keyboard.gathersLines());
}

TEST(TerminalKeys, aPipeAndAFileGiveTheirCharactersAndTheirEnd) {
  HostLoop loop;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  Received received;
  {
    const StandardInput input(reading.get());
    ASSERT_EQ(::write(writing.get(), "q\x1b\x04?", 4), 4);
    TerminalKeys keys(loop, received.handler());
    runUntil(loop, [&] { return received.keys.size() == 3; });
    EXPECT_FALSE(keys.ended());
    writing = FileDescriptor();
    runUntil(loop, [&] { return keys.ended(); });
    EXPECT_THAT(received.keys, ElementsAre("q", "Escape", "?"));
  }
  const FileDescriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const StandardInput input(nothing.get());
  TerminalKeys keys(loop, received.handler());
  runUntil(loop, [&] { return keys.ended(); });
}
