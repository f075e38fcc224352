#include "render/RenderStage.h"
#include "render/opengl/Shaders.h"

#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

namespace QelUtilVideo {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

class TellingDelegate final : public RenderViewDelegate {
 public:
  std::vector<RenderView*> told;
  std::function<void()> then;
  void renderViewWillRender(RenderView& view) override {
    told.push_back(&view);
    if (then) then();
  }
};

struct RenderContextTest : RenderStage {
  double now = 0;
  /// Puts a frame with a new timestamp into the buffer and draws it; the calls that it took.
  std::vector<std::string> frame(const CVPixelBufferRef& pixels,
                                 CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up,
                                 std::uint8_t deviceID = 0, std::uint8_t deviceType = 0) {
    buffer->setImage(pixels, now += 1, orientation, deviceID, deviceType);
    return callsOfOneRefresh();
  }
};

/// What every draw begins with, and what shows a picture that has been placed before.
const std::vector<std::string> clearing{"glClearColor(0,0,0,1)", "glClear(16384)", "glGetIntegerv(36006)"};

// ── Preparing ─────────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, preparingMakesTexturesAndProgramInThisOrderAndChecksEachCall) {
  view->setBlurRadius(0);
  EXPECT_THAT(
      callsOfOneRefresh(),
      ElementsAre("glGenTextures(2)",  //
                  "glActiveTexture(33984)", "glBindTexture(3553,1)", "glTexParameteri(3553,10242,33071)",
                  "glTexParameteri(3553,10243,33071)", "glTexParameteri(3553,10241,9729)",
                  "glTexParameteri(3553,10240,9729)",  //
                  "glActiveTexture(33985)", "glBindTexture(3553,2)", "glTexParameteri(3553,10242,33071)",
                  "glTexParameteri(3553,10243,33071)", "glTexParameteri(3553,10241,9729)",
                  "glTexParameteri(3553,10240,9729)",  //
                  "glCreateShader(35633)", "glCreateShader(35632)", "glCreateProgram()",
                  "glAttachShader(5,3)", "glAttachShader(5,4)", "glGenVertexArrays(1)", "glGenBuffers(1)",  //
                  "glShaderSource(3,1)", "glCompileShader(3)", "glGetShaderiv(3,35713)",                    //
                  "glShaderSource(4,1)", "glCompileShader(4)", "glGetShaderiv(4,35713)",                    //
                  "glBindVertexArray(6)", "glBindBuffer(34962,7)", "glLinkProgram(5)",
                  "glGetProgramiv(5,35714)", "glValidateProgram(5)", "glGetProgramiv(5,35715)",
                  "glGetAttribLocation(5,position)", "glGetAttribLocation(5,texcoord)",
                  "glGetUniformLocation(5,transform)", "glEnableVertexAttribArray(0)",
                  "glVertexAttribPointer(0,2,5126,0,16,0)", "glEnableVertexAttribArray(1)",
                  "glVertexAttribPointer(1,2,5126,0,16,8)", "glBindVertexArray(0)",  //
                  "glUseProgram(5)", "glGetUniformLocation(5,textureY)", "glUniform1i(3,0)",
                  "glGetUniformLocation(5,textureUV)", "glUniform1i(4,1)",  //
                  clearing[0], clearing[1], clearing[2]));
  EXPECT_EQ(gl().shaderSource(3), opengl::vertexShaderSource);
  EXPECT_EQ(gl().shaderSource(4), opengl::fragmentShaderSource);

  const auto all = gl().allCalls();
  const std::vector<std::string> unchecked{"glCreateShader", "glCreateProgram", "glGetAttribLocation",
                                           "glGetUniformLocation"};
  for (std::size_t index = 0; index < all.size(); ++index) {
    if (all[index] == "glGetError") continue;
    const bool checked = index + 1 < all.size() && all[index + 1] == "glGetError";
    const auto name = all[index].substr(0, all[index].find('('));
    EXPECT_EQ(checked, std::ranges::find(unchecked, name) == unchecked.end()) << all[index];
  }
}

TEST_F(RenderContextTest, anErrorIsLoggedWithItsCodeAndTheWorkGoesOn) {
  gl().errorAfter("glLinkProgram", 1282);
  gl().errorAfter("glUniform1i(3,0)", 1281);
  view->setBlurRadius(0);
  EXPECT_EQ(draws(1), 1u);
  EXPECT_THAT(log.messages(LogLevel::error),
              ElementsAre("[RenderView:OpenGL:1] GL error: 1282", "[RenderView:OpenGL:1] GL error: 1281"));
  // An error while the samplers are set ends that step alone.
  EXPECT_EQ(gl().count("glUniform1i"), 1u);
}

TEST_F(RenderContextTest, shadersAndProgramsThatFailAreLoggedWithTheirInfoLogAndStillUsed) {
  gl().compileStatus = gl().linkStatus = gl().validateStatus = 0;
  gl().shaderInfoLog = "0:1: syntax error";
  gl().locations.clear();
  buffer->setImage(makeFrame(64, 48), 1);
  view->setImageBuffer(buffer);
  EXPECT_EQ(draws(1), 1u);
  EXPECT_THAT(log.messages(LogLevel::error),
              ElementsAre("[RenderView:OpenGL:1] shader compile error: 0:1: syntax error",
                          "[RenderView:OpenGL:1] shader compile error: 0:1: syntax error",
                          "[RenderView:OpenGL:1] program link error: n/a",
                          "[RenderView:OpenGL:1] program validate error: n/a"));
  EXPECT_EQ(gl().count("glEnableVertexAttribArray"), 0u);
  EXPECT_EQ(gl().count("glVertexAttribPointer"), 0u);
  EXPECT_EQ(gl().count("glDrawArrays"), 1u);
}

// ── Uploading and drawing ─────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, paddedRowsAreUploadedInPlaceAndLaterFramesUpdateTheSameTextures) {
  showAndSettle();
  EXPECT_THAT(frame(makeFrame(1280, 720, 1344)),
              ElementsAre(clearing[0], clearing[1], clearing[2],  //
                          "glActiveTexture(33984)", "glBindTexture(3553,1)", "glPixelStorei(3314,1344)",
                          "glTexImage2D(3553,0,6403,1280,720,0,6403,5121)",  //
                          "glActiveTexture(33985)", "glBindTexture(3553,2)", "glPixelStorei(3314,672)",
                          "glTexImage2D(3553,0,33319,640,360,0,33319,5121)", "glPixelStorei(3314,0)",  //
                          "glViewport(0,0,640,360)", "glUseProgram(5)", "glBindBuffer(34962,7)",
                          "glBufferData(34962,64,35044)", "glUniformMatrix4fv(2,1,0)",  //
                          "glBindVertexArray(6)", "glDrawArrays(5,0,4)", "glBindVertexArray(0)"));
  draws(5);
  EXPECT_THAT(frame(makeFrame(1280, 720, 1344)),
              ElementsAre(clearing[0], clearing[1], clearing[2],  //
                          "glActiveTexture(33984)", "glBindTexture(3553,1)", "glPixelStorei(3314,1344)",
                          "glTexSubImage2D(3553,0,0,0,1280,720,6403,5121)",  //
                          "glActiveTexture(33985)", "glBindTexture(3553,2)", "glPixelStorei(3314,672)",
                          "glTexSubImage2D(3553,0,0,0,640,360,33319,5121)", "glPixelStorei(3314,0)",  //
                          "glViewport(0,0,640,360)",                                                  //
                          "glBindVertexArray(6)", "glDrawArrays(5,0,4)", "glBindVertexArray(0)"));
  EXPECT_THAT(frame(makeFrame(640, 480)), IsSupersetOf({"glTexImage2D(3553,0,6403,640,480,0,6403,5121)",
                                                        "glTexImage2D(3553,0,33319,320,240,0,33319,5121)"}));
}

TEST_F(RenderContextTest, rowsThatBeginAtAnyByteAreUploadedAsTheyLie) {
  showAndSettle();
  EXPECT_THAT(frame(makeFrame(33, 20, 34)),
              IsSupersetOf({"glPixelStorei(3314,34)", "glPixelStorei(3314,17)", "glPixelStorei(3317,1)",
                            "glPixelStorei(3317,4)", "glTexImage2D(3553,0,33319,17,10,0,33319,5121)"}));
}

TEST_F(RenderContextTest, theSameFrameIsNotUploadedTwice) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  view->setBackgroundColor(NSColor::deviceRGB(0.5, 0.25, 1, 0.75));
  EXPECT_EQ(draws(2), 2u);
  EXPECT_EQ(gl().count("glTex"), 0u);
  EXPECT_EQ(gl().count("glClearColor(0.5,0.25,1,0.75)"), 2u);
  view->setBackgroundColor(NSColor::pattern());
  draws(1);
  EXPECT_EQ(gl().count("glClearColor(0,0,0,1)"), 1u);
}

TEST_F(RenderContextTest, picturesThatCannotBeShownLeaveTheBackground) {
  showAndSettle();
  frame(makeFrame(64, 48));
  machine->settle();
  EXPECT_EQ(view->contentSize(), (CGSize{64, 48}));
  CVPixelBufferRef packed;
  ASSERT_EQ(CVPixelBufferCreate(64, 48, kCVPixelFormatType_32BGRA, packed), kCVReturnSuccess);
  for (const auto& picture : {packed, CVPixelBufferRef()}) {
    EXPECT_EQ(frame(picture), clearing);
    machine->settle();
    EXPECT_EQ(view->contentSize(), (CGSize{0, 0}));
    frame(makeFrame(64, 48));
  }
  view->setDeviceType(1);
  EXPECT_EQ(frame(makeFrame(64, 48)), clearing);
  EXPECT_EQ(frame(makeFrame(64, 48), CGImagePropertyOrientation::up, 0, 1).back(), "glBindVertexArray(0)");
}

TEST_F(RenderContextTest, aSourceWithoutImageAndNewsAsksForNothing) {
  showAndSettle();
  EXPECT_EQ(draws(3), 0u);
  view->setFrame(CGRectMake(0, 0, 100, 100));
  EXPECT_EQ(draws(3), 0u);
}

TEST_F(RenderContextTest, theAutomaticFitModeIsReadableAndYieldsToTheHostUntilTheNextPlacement) {
  view->setAutomaticallyAdjustsFitMode(true);
  buffer->setImage(makeFrame(48, 64), now = 1);
  showAndSettle();
  EXPECT_TRUE(view->fitInBounds());
  view->setFitInBounds(false);
  EXPECT_FALSE(view->fitInBounds());
  draws(1);
  EXPECT_TRUE(view->fitInBounds());
  // The delegate is told in the middle of a draw: what it sees set then is not overwritten by it.
  auto delegate = std::make_shared<TellingDelegate>();
  delegate->then = [&] { view->setFitInBounds(false); };
  view->setDelegate(delegate);
  frame(makeFrame(48, 66));
  EXPECT_FALSE(view->fitInBounds());
  delegate->then = {};
  draws(2);
  EXPECT_TRUE(view->fitInBounds());
}

TEST_F(RenderContextTest, onlyFramesOfOneSourceAndDeviceTurnWithAnAnimation) {
  using Orientation = CGImagePropertyOrientation;
  view->setRotateAnimationEnabled(true);
  showAndSettle();
  frame(makeFrame(64, 48), Orientation::up, 1, 1);
  draws(5);
  const auto turning = [&] { return draws(3) > 1; };
  frame(makeFrame(64, 48), Orientation::left, 2, 1);
  EXPECT_FALSE(turning());
  frame(makeFrame(64, 48), Orientation::up, 2, 0);
  EXPECT_FALSE(turning());
  auto other = std::make_shared<QelKit::QelVideoImageBuffer>();
  other->setImage(makeFrame(64, 48), now += 1, Orientation::down, 2, 0);
  view->setImageBuffer(other);
  draws(2);
  EXPECT_FALSE(turning());
  other->setImage(makeFrame(64, 48), now += 1, Orientation::up, 2, 0);
  draws(1);
  EXPECT_TRUE(turning());
}

// ── The delegate ──────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, theDelegateIsToldOncePerNewFrameAndWhenTheLastOneGoes) {
  auto delegate = std::make_shared<TellingDelegate>();
  view->setDelegate(delegate);
  showAndSettle();
  EXPECT_THAT(delegate->told, IsEmpty());
  delegate->then = [&] { EXPECT_EQ(gl().count("glClear"), 0u); };
  frame(makeFrame(64, 48));
  EXPECT_THAT(delegate->told, ElementsAre(view.get()));
  view->setBlurRadius(0);
  draws(4);
  EXPECT_EQ(delegate->told.size(), 1u);
  frame(makeFrame(64, 48));
  EXPECT_EQ(delegate->told.size(), 2u);
  gl().clear();
  view->setImageBuffer(nullptr);
  draws(4);
  EXPECT_EQ(delegate->told.size(), 3u);
}

TEST_F(RenderContextTest, hostCodeThatThrowsIsReportedAndTheViewGoesOn) {
  class Thrower final : public RenderViewDataSource {
   public:
    double timestamp() const override { throw std::runtime_error("no time"); }
    bool hasImage() const override { return false; }
    std::shared_ptr<const RenderViewData> data() const override { throw std::runtime_error("no data"); }
  };
  view->setDataSource(std::make_shared<Thrower>());
  EXPECT_EQ(draws(1), 1u);
  EXPECT_EQ(draws(2), 1u);
  EXPECT_THAT(machine->systemLog().troubles(), IsSupersetOf({HasSubstr("no time"), HasSubstr("no data")}));

  auto delegate = std::make_shared<TellingDelegate>();
  delegate->then = [] { throw 7; };
  view->setDelegate(delegate);
  view->setImageBuffer(buffer);
  frame(makeFrame(64, 48));
  EXPECT_EQ(gl().count("glDrawArrays"), 1u);
  EXPECT_THAT(machine->systemLog().troubles(), Contains(HasSubstr("RenderViewDelegate")));
}

TEST_F(RenderContextTest, aFrameAtTimeZeroIsNoFrameYet) {
  buffer->setImage(makeFrame(64, 48), 0);
  view->setImageBuffer(buffer);
  draws(2);
  EXPECT_EQ(gl().count("glTexImage2D"), 0u);
  for (const float element : gl().lastBufferData()) EXPECT_TRUE(std::isfinite(element));
}

}  // namespace
}  // namespace QelUtilVideo
