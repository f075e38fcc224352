#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "VirtualServer.h"
#include "Y4mHeader.h"
#include "support/TemporaryFolder.h"

namespace {

struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

void expectText(const std::string& text, const std::vector<std::string>& pieces) {
  std::size_t position = 0;
  for (const std::string& piece : pieces) {
    position = text.find(piece, position);
    ASSERT_NE(position, std::string::npos) << "\"" << piece << "\" is not in its place in\n" << text;
    position += piece.size();
  }
}

/// A film of grey pictures.
std::string greyFilm(int width, int height, int frames) {
  const int bytes = width * height + 2 * ((width + 1) / 2) * ((height + 1) / 2);
  std::string text = "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) + " F50:1\n";
  while (frames-- > 0) text += "FRAME\n" + std::string(static_cast<std::size_t>(bytes), '~');
  return text;
}

/// The program as a person would run it, on a small X server of the test's own.
class CommandLine : public testing::Test {
 protected:
  /// Runs a line of bash, in which "qelvideo" and $Q are the program under test, in the
  /// test's folder. A program in the background is $Q, so that $! is its own process.
  Outcome run(const std::string& line) {
    // The doctor unloads drivers again, and nobody can tell then that a leak is theirs.
    const std::string script =
        "Q=" QELVIDEO
        "; qelvideo() { $Q \"$@\"; }; doctor() { ASAN_OPTIONS=detect_leaks=0 $Q doctor "
        "\"$@\"; }; cd " +
        folder.file("") + "; { " + line + "; } >.out 2>.err </dev/null";
    ::setenv("DISPLAY", display.c_str(), 1);
    ::setenv("TEST_SCRIPT", script.c_str(), 1);
    const int status = std::system("exec bash -c \"$TEST_SCRIPT\"");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, folder.read(".out"), folder.read(".err")};
  }
  using Pieces = std::vector<std::string>;
  /// Runs a line that has to end with this status and to write these pieces of text in this order.
  Outcome expect(int status, const std::string& line, const Pieces& output, const Pieces& errors = {}) {
    SCOPED_TRACE(line);
    Outcome outcome = run(line);
    EXPECT_EQ(outcome.status, status) << outcome.errors;
    expectText(outcome.output, output);
    expectText(outcome.errors, errors);
    return outcome;
  }
  void startServer(const std::string& screen = "64x48x24") {
    server.emplace(screen);
    display = server->display();
  }
  /// The frames that follow the header of a film of this size; -1 when it does not end with a frame.
  long framesOf(const std::string& name, std::size_t width, std::size_t height, double seconds = 0.1) {
    const std::string film = folder.read(name);
    const std::size_t line = film.find('\n');
    if (line == std::string::npos) return -1;
    const auto header = qelvideo::Y4mHeader::parse(film.substr(0, line));
    EXPECT_EQ(header.width, width);
    EXPECT_EQ(header.height, height);
    EXPECT_DOUBLE_EQ(header.frameDuration(), seconds);
    const std::size_t frame = 6 + header.frameSize();
    return (film.size() - line - 1) % frame ? -1 : static_cast<long>((film.size() - line - 1) / frame);
  }

  TemporaryFolder folder;
  std::optional<qelvideo::VirtualServer> server;
  std::string display;
};

}  // namespace

TEST_F(CommandLine, wrongUsageIsStatusTwoAndSaysWhatIsRight) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"qelvideo", "name a command"},
      {"qelvideo frobnicate", "frobnicate"},
      {"qelvideo snapshot 1", "output"},
      {"qelvideo capture 1 --frames 0", "frames"},
      {"qelvideo capture 1 --frames 3 --seconds 3", "seconds"},
      {"qelvideo view - --inside here", "'here' is no window ID"},
      {"qelvideo view - --offscreen 5x5 --size 5x5", "--offscreen"},
      {"qelvideo view - --offscreen 5x5 --orientation sideways", "right-mirrored"},
      {"qelvideo view - --offscreen 5x5 --background blue", "#204060"},
      {"qelvideo view - --offscreen 5x5 --fit --fill", "fi"},
      {"qelvideo view - --offscreen 5x5 --backend vulkan", "opengl"},
  };
  for (const auto& [line, text] : cases) expect(2, line, {}, {text});
  expect(0, "qelvideo --help && qelvideo view --help && qelvideo --version", {});
}

TEST_F(CommandLine, withoutAnXServerListsAreEmptyAndCommandsSayWhatToDo) {
  for (const std::string& gone : {std::string(), std::string(":54321")}) {
    display = gone;
    const Outcome list = expect(0, "qelvideo list --json", {});
    EXPECT_EQ(nlohmann::json::parse(list.output)["displays"].size(), 0U);
    for (const char* line : {"qelvideo snapshot 1 -o a.png", "qelvideo capture 1 -o a.y4m",
                             "qelvideo view 1 --offscreen 9x9 --screenshot a.png"}) {
      expect(1, line, {}, {"DISPLAY"});
    }
    EXPECT_EQ(run("ls *.png *.y4m").output, "");
  }
}

TEST_F(CommandLine, listsTheDisplayAndFindsItByItsShortenedID) {
  startServer();
  expect(0, "qelvideo list",
         {"DISPLAY", "SCALE", "QelUtilVideo.CapturableScreen.QWS.CGDirectDisplayID.", "yes", "64x48", "0,0",
          "1"});
  const auto json = nlohmann::json::parse(run("qelvideo list --json").output);
  ASSERT_EQ(json["displays"].size(), 1U);
  const auto& entry = json["displays"][0];
  EXPECT_EQ(entry["size"]["width"], 64);
  EXPECT_EQ(entry["available"], true);
  const auto number = std::to_string(entry["displayID"].get<unsigned>());
  for (const std::string& id :
       {number, entry["uniqueID"].get<std::string>(), entry["name"].get<std::string>(), "DisplayID." + number,
        std::string("Qel")}) {
    expect(0, "qelvideo snapshot '" + id + "' -o picture.png && head -c 8 picture.png",
           {"picture.png: 64x48", "\x89PNG"});
  }
  expect(1, "qelvideo snapshot no-such-thing -o other.png", {}, {"no-such-thing", "qelvideo list"});
}

TEST_F(CommandLine, listsWindowsTakesThemAndTellsWhatHappensToThem) {
  startServer("400x300x24");
  // It does what it reads, and answers.
  run("mkfifo do did; " WINDOW_PROGRAM
      " <>do >did & echo $! >process; read window <did; echo $window >window");
  const std::string tell = "tell() { echo $1 >do; read answer <did; }; ";
  expect(0, "qelvideo list",
         {"WINDOW", "APPLICATION", "qel-slides-first", "Slides", "yes", "200x150", "50,60", "yes"});
  const auto json = nlohmann::json::parse(run("qelvideo list --json").output);
  ASSERT_EQ(json["windows"].size(), 1U);
  EXPECT_EQ(json["windows"][0]["name"], "qel-slides-first - Slides");
  expect(0, "qelvideo snapshot $(cat window) -o picture.png", {"picture.png: 200x150"});
  expect(0,
         "qelvideo list --images pictures && grep -c '<img' pictures/index.html && ls pictures/*.png | wc -l",
         {"Slides", "\n3\n", "3"}, {"pictures/index.html"});
  expect(2, "qelvideo capture 1 -o a.y4m --overlay 5", {}, {"4711:101"});

  run("(sleep 9 | $Q watch --json >events) & for i in {1..90}; do grep -q Slides events && break; sleep 0.1; "
      "done");
  expect(1,
         tell +
             "$Q capture $(cat window) --overlay 1:8 -o film.y4m & sleep 0.5; tell minimize; sleep 0.5; "
             "tell restore; sleep 0.5; kill $(cat process); wait $!",
         {},
         {"did start", "did begin interruption", "did end interruption", "did stop: failedToCapture",
          "window closed"});
  EXPECT_GT(framesOf("film.y4m", 200, 150), 5);
  run("for i in {1..90}; do grep -q disconnected events && break; sleep 0.1; done");
  expectText(folder.read("events"),
             {R"("event":"present","kind":"window","name":"qel-slides-first - Slides")",
              R"("event":"disconnected","kind":"window")"});
}

TEST_F(CommandLine, capturesAFilmOfWholeFramesWithEventsAndStatistics) {
  startServer("65x47x24");
  const Outcome outcome =
      expect(0, "qelvideo --log capture Qel --frames 5 -o film.y4m", {"5 frames in 0.", " fps), 65x47"},
             {"session: will start", "session: did start", "session: did stop", " sample info:"});
  EXPECT_EQ(framesOf("film.y4m", 65, 47), 5);
  EXPECT_EQ(outcome.errors.find('\r'), std::string::npos);

  const Outcome timed = expect(0, "qelvideo capture Qel --seconds 1 --json -o film.y4m", {});
  const auto json = nlohmann::json::parse(timed.output);
  EXPECT_NEAR(json["seconds"].get<double>(), 1, 0.3);
  EXPECT_EQ(json["bytes"], folder.read("film.y4m").size());
  EXPECT_NEAR(static_cast<double>(framesOf("film.y4m", 65, 47)), 10, 1);

  const auto device = nlohmann::json::parse(run("qelvideo list --json").output)["displayDevices"][0];
  expect(0, "qelvideo capture " + device["uniqueID"].get<std::string>() + " --frames 7 -o film.y4m",
         {"7 frames in 0.2"});
  EXPECT_EQ(framesOf("film.y4m", 65, 47, 1.0 / 30), 7);
}

TEST_F(CommandLine, aClosedPipeAndAnInterruptionEndACaptureCleanly) {
  startServer();
  expect(0, "qelvideo capture Qel -o - | head -c 9000 | wc -c; echo status ${PIPESTATUS[0]}",
         {"9000", "status 0"}, {"session: did stop", "frame"});
  expect(0, "$Q capture Qel -o film.y4m & sleep 1; kill -INT $!; wait $!; echo status $?",
         {"frames in", "status 0"});
  EXPECT_GT(framesOf("film.y4m", 64, 48), 3);

  // A frame fills a pipe that nobody reads.
  startServer("1280x1024x24");
  const Outcome stuck =
      run("$Q capture Qel -o - --seconds 1 > >(exec sleep 6) & sleep 1.5; "
          "kill -TERM $!; wait $!; echo status $?");
  expectText(stuck.output + stuck.errors, {"status 0"});
}

TEST_F(CommandLine, aServerThatDiesLeavesTheFilmAndAReason) {
  startServer();
  run("(qelvideo capture Qel -o film.y4m; echo status $?) >result 2>errors & sleep 0.1");
  for (int i = 0; i < 100 && folder.read("film.y4m").size() < 20000; ++i) run("sleep 0.1");
  server.reset();
  for (int i = 0; i < 100 && folder.read("result").find("status") == std::string::npos; ++i) run("sleep 0.1");
  expectText(folder.read("result"), {"frames in", "64x48", "status 1"});
  expectText(folder.read("errors"), {"session: did stop: failedToCapture", "qelvideo: ", "qelvideo list"});
  EXPECT_GE(framesOf("film.y4m", 64, 48), 4);
}

TEST_F(CommandLine, watchTellsWhatComesAndGoesUntilNobodyIsThere) {
  startServer();
  // The input's end ends it; what comes through the input before does not.
  const Outcome watched = expect(
      0,
      "(echo x; sleep 0.5; xrandr --setmonitor Side 9/9x9/9+0+0 none; sleep 0.7; xrandr --delmonitor Side; "
      "sleep 0.7) | qelvideo watch --json",
      {R"("event":"present","kind":"display")", "\n{\"time\":\"", R"(Z","event":"connected")",
       R"("name":"Side","uniqueID":"QelUtilVideo.)", "disconnected", "Side"});
  EXPECT_EQ(std::count(watched.output.begin(), watched.output.end(), '\n'), 6)
      << "each twice, once as a device";
  expect(0, "mkfifo in; { qelvideo watch <>in; echo status $? >&2; } | head -n 1",
         {"  present       display  "}, {"status 0"});
  expect(1, "qelvideo watch >/dev/full", {}, {"space"});
  expect(1, "qelvideo watch >&-", {}, {"standard output"});

  run("$Q watch <>in >lines & echo $! >process");
  for (int i = 0; i < 50 && folder.read("lines").empty(); ++i) run("sleep 0.1");
  server.reset();
  for (int i = 0; i < 50 && folder.read("lines").find("disc") == std::string::npos; ++i) run("sleep 0.1");
  expect(0, "kill -0 $(cat process) && kill -TERM $(cat process); cat lines", {"present", "disconnected"});
}

TEST_F(CommandLine, theDoctorSaysWhatThereIsAndWhatIsMissing) {
  expect(1, "doctor",
         {"Capturing displays and windows\n  missing  X server", "DISPLAY is not set", "-> Set", "OpenGL"},
         {"displays cannot be captured"});
  expect(0, "doctor --catalogue",
         {"protocol QelUtilVideoCapturable : NSObject\n  ", "class QelUtilVideoRenderView",
          "  property contentSize  T{CGSize"});
  startServer();
  expect(0, "doctor", {"ok       X server ", "64x48 at 0,0", "Drawing views", "System log", "Info.json"});
  const auto json = nlohmann::json::parse(run("doctor --json").output);
  EXPECT_EQ(json["capturesDisplays"], true);
  EXPECT_EQ(json["drawsViews"], true);
  for (const auto& finding : json["findings"]) {
    const bool isWell = finding["state"] == "ok" || finding["state"] == "unused";
    EXPECT_NE(finding.contains("remedy"), isWell) << finding;
  }
}

TEST_F(CommandLine, placesThatCannotBeWrittenAreNamed) {
  startServer();
  std::ignore = folder.write("film.y4m", greyFilm(2, 2, 1));
  for (const char* line :
       {"qelvideo snapshot Qel -o absent/a.png", "qelvideo capture Qel --frames 1 -o absent/a.png",
        "qelvideo view film.y4m --offscreen 8x8 --screenshot absent/a.png",
        "qelvideo demo -o /dev/null/absent/a.png"}) {
    expect(1, line, {}, {"absent/a.png"});
  }
  expect(1, "qelvideo list >/dev/full", {}, {"space"});
}

TEST_F(CommandLine, viewsFilmsFromFilesAndPipesAndKeepsWhatWasGoodOfABadOne) {
  for (const auto& [width, height] : std::vector<std::pair<int, int>>{{1, 1}, {3, 5}, {16384, 2}, {2, 2}}) {
    std::ignore = folder.write("film.y4m", greyFilm(width, height, 2));
    expect(0, "qelvideo view film.y4m --offscreen 33x17 --screenshot view.png",
           {"view.png: 33x17", "2 frames, " + std::to_string(width) + "x" + std::to_string(height)});
  }
  expect(
      0,
      "cat film.y4m | qelvideo view - --offscreen 1x1 --frames 1 --orientation 6 --fill --screenshot p.png",
      {"p.png: 1x1", "1 frame, 2x2"});
  expect(1, "head -c 42 film.y4m >cut.y4m; qelvideo view cut.y4m --offscreen 8x8 --screenshot cut.png",
         {"cut.png: 8x8", "1 frame, 2x2"}, {"frame 2 of cut.y4m", "cut short"});
  for (const char* line :
       {"qelvideo view empty.y4m --offscreen 8x8", "head -c 22 film.y4m | qelvideo view - --offscreen 8x8",
        "head -c 9000 /dev/urandom | qelvideo view - --offscreen 8x8"}) {
    expect(1, line, {}, {"qelvideo: cannot"});
  }
}

TEST_F(CommandLine, viewsADisplayAndTheDemoLeavesItsPictures) {
  startServer();
  expect(0, "qelvideo view Qel --offscreen 32x24 --frames 3 --auto-fit --screenshot view.png",
         {"view.png: 32x24", "3 frames", "64x48"});
  expect(0, "unset DISPLAY; qelvideo demo -o pictures && ls pictures",
         {"DISPLAY", "frames in 3.", "1280x720", "snapshot.png", "view.png"},
         {"session: will start", "session: did start", "session: did stop"});
}
