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

/// What every draw begins with.
const std::vector<std::string> clearing{"glClearColor(0,0,0,1)", "glClear(16384)", "glGetIntegerv(36006)"};

// ── Preparing ─────────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, preparingMakesTexturesAndProgramAndChecksEachCall) {
  view->setBlurRadius(0);
  callsOfOneRefresh();
  for (const char* setting : {"10242,33071)", "10243,33071)", "10241,9729)", "10240,9729)"}) {
    EXPECT_EQ(gl().count(std::string("glTexParameteri(3553,") + setting), 4u) << setting;
  }
  EXPECT_THAT(gl().calls(), IsSupersetOf({"glVertexAttribPointer(0,2,5126,0,16,0)", "glUniform1i(3,0)",
                                          "glVertexAttribPointer(1,2,5126,0,16,8)", "glUniform1i(4,1)"}));
  EXPECT_EQ(gl().shaderSource(3), opengl::vertexShaderSource);
  EXPECT_EQ(gl().shaderSource(4), opengl::fragmentShaderSource);

  const auto all = gl().allCalls();
  for (std::size_t index = 0; index + 1 < all.size(); ++index) {
    if (all[index] == "glGetError") continue;
    const bool answers =
        all[index].starts_with("glCreate") || all[index].find("Location(") != std::string::npos;
    EXPECT_EQ(all[index + 1] == "glGetError", !answers) << all[index];
  }
}

TEST_F(RenderContextTest, whatFailsIsLoggedAndTheWorkGoesOn) {
  gl().compileStatus = gl().linkStatus = gl().validateStatus = 0;
  gl().shaderInfoLog = "0:1: syntax error";
  gl().locations = {{"textureY", 3}, {"textureUV", 4}};
  gl().errorAfter("glLinkProgram", 1282);
  gl().errorAfter("glUniform1i(3,0)", 1281);
  buffer->setImage(makeFrame(64, 48), 1);
  view->setImageBuffer(buffer);
  EXPECT_EQ(draws(1), 1u);
  std::string lines;
  for (const std::string& message : log.messages(LogLevel::error)) lines += message.substr(22) + "\n";
  EXPECT_EQ(lines,
            "shader compile error: 0:1: syntax error\nshader compile error: 0:1: syntax error\n"
            "GL error: 1282\nprogram link error: n/a\nprogram validate error: n/a\nGL error: 1281\n");
  EXPECT_EQ(gl().count("glEnableVertexAttribArray") + gl().count("glVertexAttribPointer"), 0u);
  // An error while the samplers are set ends that step alone.
  EXPECT_EQ(gl().count("glUniform1i"), 1u);
  EXPECT_EQ(gl().count("glDrawArrays"), 1u);
}

// ── Uploading and drawing ─────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, paddedRowsAreUploadedInPlaceAndLaterFramesUpdateTheSameTextures) {
  showAndSettle();
  EXPECT_THAT(frame(makeFrame(1280, 720, 1344)),
              IsSupersetOf({"glTexImage2D(3553,0,6403,1280,720,0,6403,5121)", "glViewport(0,0,640,360)",
                            "glTexImage2D(3553,0,33319,640,360,0,33319,5121)", "glUseProgram(5)",
                            "glBufferData(34962,64,35044)", "glUniformMatrix4fv(2,1,0)"}));
  draws(5);
  EXPECT_THAT(frame(makeFrame(1280, 720, 1344)),
              IsSupersetOf({"glPixelStorei(3314,1344)", "glTexSubImage2D(3553,0,0,0,1280,720,6403,5121)",
                            "glPixelStorei(3314,672)", "glTexSubImage2D(3553,0,0,0,640,360,33319,5121)",
                            "glPixelStorei(3314,0)", "glDrawArrays(5,0,4)"}));
  for (const char* settled : {"glTexImage2D", "glBufferData", "glUniform", "glUseProgram"}) {
    EXPECT_EQ(gl().count(settled), 0u) << settled;
  }
  // Rows that begin at any byte.
  EXPECT_THAT(frame(makeFrame(33, 20, 34)),
              IsSupersetOf({"glPixelStorei(3314,34)", "glPixelStorei(3314,17)", "glPixelStorei(3317,1)",
                            "glPixelStorei(3317,4)", "glTexImage2D(3553,0,33319,17,10,0,33319,5121)"}));
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
  view->setBackgroundColor(NSColor::pattern());
  EXPECT_EQ(frame(makeFrame(64, 48)), clearing);
  EXPECT_EQ(frame(makeFrame(64, 48), CGImagePropertyOrientation::up, 0, 1).back(), "glBindVertexArray(0)");
}

TEST_F(RenderContextTest, aSourceWithoutImageOrWithOneAtTimeZeroShowsNothing) {
  showAndSettle();
  view->setFrame(CGRectMake(0, 0, 100, 100));
  EXPECT_EQ(draws(3), 0u);
  buffer->setImage(makeFrame(64, 48), 0);
  view->setBlurRadius(0);
  EXPECT_EQ(draws(3), 2u);
  EXPECT_EQ(gl().count("glTexImage2D"), 0u);
  for (const float element : gl().lastBufferData()) EXPECT_TRUE(std::isfinite(element));
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
  const auto turns = [&](Orientation orientation, std::uint8_t deviceID, std::uint8_t deviceType) {
    frame(makeFrame(64, 48), orientation, deviceID, deviceType);
    return draws(3) > 1;
  };
  turns(Orientation::up, 1, 1);
  EXPECT_FALSE(turns(Orientation::left, 2, 1));
  EXPECT_FALSE(turns(Orientation::up, 2, 0));
  buffer = std::make_shared<QelKit::QelVideoImageBuffer>();
  buffer->setImage(makeFrame(64, 48), now += 1, Orientation::down, 2, 0);
  view->setImageBuffer(buffer);
  draws(2);
  EXPECT_EQ(draws(3), 0u);
  EXPECT_TRUE(turns(Orientation::up, 2, 0));
}

// ── The delegate ──────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderContextTest, theDelegateIsToldOncePerNewFrameAndWhenTheLastOneGoes) {
  auto delegate = std::make_shared<TellingDelegate>();
  view->setDelegate(delegate);
  showAndSettle();
  EXPECT_THAT(delegate->told, IsEmpty());
  delegate->then = [&] { EXPECT_EQ(gl().count("glClear"), 0u); };
  for (const std::size_t count : {1u, 2u}) {
    frame(makeFrame(64, 48));
    view->setBlurRadius(0);
    draws(4);
    EXPECT_EQ(delegate->told, std::vector(count, view.get()));
  }
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

}  // namespace
}  // namespace QelUtilVideo
