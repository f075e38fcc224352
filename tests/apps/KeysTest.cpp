#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "FileDescriptor.h"
#include "HostLoop.h"
#include "KeyDecoder.h"
#include "TerminalKeys.h"
#include "ViewKeys.h"

using namespace QelUtilVideo;
using namespace qelvideo;
using testing::ElementsAre;
using Keys = std::vector<std::string>;

// What keys do

TEST(ViewKeys, eachKeyAsksForOneThingAndTheHelpTellsAllThatShow) {
  const std::vector<std::pair<Keys, std::optional<ViewAction>>> cases{
      {{"f"}, ViewAction::fit},
      {{"F", "c"}, ViewAction::fill},
      {{"a"}, ViewAction::automatic},
      {{"o"}, ViewAction::nextOrientation},
      {{"O"}, ViewAction::previousOrientation},
      {{"b"}, ViewAction::moreBlur},
      {{"B"}, ViewAction::lessBlur},
      {{"0"}, ViewAction::noBlur},
      {{"g"}, ViewAction::nextBackground},
      {{"t"}, ViewAction::toggleAnimation},
      {{"s"}, ViewAction::saveScreenshot},
      {{"h", "?"}, ViewAction::showHelp},
      {{"q", "Escape"}, ViewAction::quit},
      {{"", "x", "Q", "escape", "ff", "Return"}, std::nullopt},
  };
  for (const auto& [keys, action] : cases) {
    for (const std::string& key : keys) EXPECT_EQ(viewAction(key), action) << key;
  }
  const std::string help = viewKeysText();
  for (const char* line : {"\n  F, c        ", "\n  q, Escape   ", "\n  t           "}) {
    EXPECT_NE(help.find(line), std::string::npos) << help;
  }
  EXPECT_EQ(help.find("blur"), std::string::npos);
}

TEST(ViewState, eachActionChangesItsOwnSettingAndGoesRound) {
  ViewOptions options;
  options.orientation = CGImagePropertyOrientation::left;
  options.background = NSColor::deviceRGB(1, 0, 0, 1);
  options.blurRadius = 5;
  ViewState state(options);
  const auto after = [&state](std::initializer_list<ViewAction> actions) {
    for (const ViewAction action : actions) EXPECT_TRUE(state.apply(action));
    return state.options();
  };
  using A = ViewAction;
  EXPECT_EQ(after({A::fill}).placing, ViewOptions::Placing::fill);
  EXPECT_EQ(after({A::automatic}).placing, ViewOptions::Placing::automatic);
  EXPECT_EQ(after({A::fit}).placing, ViewOptions::Placing::fit);
  EXPECT_EQ(after({A::nextOrientation}).orientation, CGImagePropertyOrientation::up);
  EXPECT_EQ(after({A::previousOrientation, A::previousOrientation}).orientation,
            CGImagePropertyOrientation::rightMirrored);
  EXPECT_TRUE(after({A::toggleAnimation}).animates);
  EXPECT_FALSE(after({A::toggleAnimation}).animates);
  for (const float radius : {8.0F, 16.0F, 32.0F, 64.0F, 64.0F}) {
    EXPECT_EQ(after({A::moreBlur}).blurRadius, radius);
  }
  EXPECT_EQ(after({A::noBlur}).blurRadius, 0);
  EXPECT_EQ(after({A::lessBlur}).blurRadius, 0);
  EXPECT_EQ(after({A::moreBlur, A::moreBlur, A::lessBlur}).blurRadius, 2);
  EXPECT_NE(after({A::nextBackground}).background, options.background);
  EXPECT_EQ(after(std::initializer_list<A>{A::nextBackground, A::nextBackground, A::nextBackground,
                                           A::nextBackground})
                .background,
            options.background);
  for (const A other : {A::saveScreenshot, A::showHelp, A::quit}) EXPECT_FALSE(state.apply(other));
}

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

/// What standard input gave until it ended, or until the key.
struct Received {
  Keys keys;
  bool ended = false;

  void runUntil(HostLoop& loop, const std::string& key) {
    EXPECT_EQ(loop.runUntil([&] { return ended || (!keys.empty() && keys.back() == key); }, 20),
              HostLoop::End::done);
  }
};

TEST(TerminalKeys, aTerminalGivesEachKeyAndIsPutBack) {
  HostLoop loop;
  Keyboard keyboard;
  Received received;
  {
    TerminalKeys keys(
        loop, [&](const std::string& key) { received.keys.push_back(key); }, [&] { received.ended = true; });
    EXPECT_FALSE(keyboard.gathersLines());
    keyboard.press("f\x1b[A\x1b");
    received.runUntil(loop, "Escape");
    EXPECT_THAT(received.keys, ElementsAre("f", "Up", "Escape"));
    keyboard.press("g\x04q");
    received.runUntil(loop, "q");
    EXPECT_THAT(received.keys, ElementsAre("f", "Up", "Escape", "g"));
    EXPECT_TRUE(received.ended);
    EXPECT_TRUE(keyboard.gathersLines());
  }
  received = {};
  TerminalKeys again(
      loop, [&](const std::string& key) { received.keys.push_back(key); }, [&] { received.ended = true; });
  EXPECT_FALSE(keyboard.gathersLines());
  keyboard.unplug();
  received.runUntil(loop, "");
  EXPECT_TRUE(received.ended);
}

TEST(TerminalKeys, aTerminalIsPutBackWhateverEndsTheProcess) {
  Keyboard keyboard;
  const auto endBy = [](int signal) {
    HostLoop loop;
    const TerminalKeys keys(
        loop, [](const std::string&) {}, [] {});
    // The first of those that ask for an end is heeded, the second one obeyed.
    for (int i = 0; i < 2; ++i) std::raise(signal);
  };
  for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGABRT, SIGFPE}) {
    EXPECT_EXIT(endBy(signal), testing::KilledBySignal(signal), "") << signal;
    EXPECT_TRUE(keyboard.gathersLines()) << signal;
  }
  const auto leave = [] {
    HostLoop loop;
    const TerminalKeys keys(
        loop, [](const std::string&) {}, [] {});
    std::exit(3);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(3), "");
  EXPECT_TRUE(keyboard.gathersLines());
}

TEST(TerminalKeys, aPipeGivesItsCharactersAndItsEndAndAFileNothing) {
  HostLoop loop;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  Received received;
  {
    const StandardInput input(reading.get());
    ASSERT_EQ(::write(writing.get(), "q\x1b\x04?", 4), 4);
    TerminalKeys keys(
        loop, [&](const std::string& key) { received.keys.push_back(key); }, [&] { received.ended = true; });
    received.runUntil(loop, "?");
    EXPECT_FALSE(received.ended);
    writing = FileDescriptor();
    received.runUntil(loop, "");
    EXPECT_TRUE(received.ended);
    EXPECT_THAT(received.keys, ElementsAre("q", "Escape", "?"));
  }
  const FileDescriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const StandardInput input(nothing.get());
  received = {};
  TerminalKeys keys(
      loop, [](const std::string&) {}, [&] { received.ended = true; });
  loop.runUntil([] { return false; }, 0.05);
  EXPECT_FALSE(received.ended);
}
