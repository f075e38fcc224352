#include "render/opengl/Blur.h"

#include "render/RenderStage.h"
#include "render/opengl/BlurKernel.h"
#include "render/opengl/BlurShaders.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace QelUtilVideo {
namespace {

using opengl::BlurKernel;
using testing::ElementsAre;
using testing::IsEmpty;

// ── Kernel and shaders ────────────────────────────────────────────────────────────────────────────

TEST(BlurKernelTest, strengthAndReachFollowTheImagesSizeUpToALimit) {
  EXPECT_EQ(opengl::blurSigma(0.005F, {1280, 720}), 5u);
  EXPECT_EQ(opengl::blurSigma(1e-9F, {1280, 720}), 1u);
  constexpr float infinity = std::numeric_limits<float>::infinity();
  for (const float most : {0.02F, 1e30F}) EXPECT_EQ(opengl::blurSigma(most, {1280, 720}), 16u);
  for (const float off : {0.0F, -0.0F, -1.0F, infinity, -infinity, std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(opengl::blurSigma(off, {1280, 720}), 0u) << off;
  }
  EXPECT_EQ(opengl::blurSigma(1, {0, 720}), 0u);

  std::vector<std::uint32_t> reach;
  for (std::uint32_t sigma = 1; sigma <= 16; ++sigma) reach.push_back(opengl::blurTapRadius(sigma));
  EXPECT_THAT(reach, ElementsAre(3, 5, 7, 10, 12, 14, 16, 18, 19, 21, 23, 24, 26, 27, 29, 30));
  EXPECT_EQ(opengl::blurTapRadius(200), 200u) << "where the formula has no answer";
  EXPECT_EQ(BlurKernel(0, 1).pairs.size(), 1u);
}

TEST(BlurKernelTest, aSmallKernelHasAllItsTapsInterpolated) {
  const BlurKernel kernel(3, 1);
  EXPECT_EQ(opengl::blurVertexShaderSource(kernel),
            "#version 150\nuniform vec2 texelSize;\nuniform mat4 transform;\nin vec2 position;\n"
            "in vec2 texcoord;\nout vec2 blurCoordinates[5];\nvoid main()\n{\n"
            "gl_Position = transform * vec4(position, 0, 1);blurCoordinates[0] = texcoord.xy;\n"
            "blurCoordinates[1] = texcoord.xy + texelSize * 1.3775406687981455;\n"
            "blurCoordinates[2] = texcoord.xy - texelSize * 1.3775406687981455;\n"
            "blurCoordinates[3] = texcoord.xy + texelSize * 3.0758581800212434;\n"
            "blurCoordinates[4] = texcoord.xy - texelSize * 3.0758581800212434;\n}\n");
  EXPECT_EQ(opengl::blurFragmentShaderSource(kernel),
            "#version 150\nuniform sampler2D inputTexture;\nuniform vec2 texelSize;\n"
            "in vec2 blurCoordinates[5];\nout vec4 fragColor;\nvoid main()\n{\nvec4 sum = vec4(0.0);\n"
            "sum += texture(inputTexture, blurCoordinates[0]) * 0.3990502796524549;"
            "sum += texture(inputTexture, blurCoordinates[1]) * 0.6410865090285691;\n"
            "sum += texture(inputTexture, blurCoordinates[2]) * 0.6410865090285691;\n"
            "sum += texture(inputTexture, blurCoordinates[3]) * 0.058438630797658236;\n"
            "sum += texture(inputTexture, blurCoordinates[4]) * 0.058438630797658236;\n"
            "fragColor = sum;\n}\n");
}

TEST(BlurKernelTest, theLargestKernelComputesItsOuterTapsPerPixel) {
  const BlurKernel kernel(30, 16);
  const std::string vertex = opengl::blurVertexShaderSource(kernel);
  const std::string fragment = opengl::blurFragmentShaderSource(kernel);
  EXPECT_TRUE(
      vertex.ends_with("blurCoordinates[13] = texcoord.xy + texelSize * 13.487795393491103;\n"
                       "blurCoordinates[14] = texcoord.xy - texelSize * 13.487795393491103;\n}\n"));
  std::string end =
      "sum += texture(inputTexture, blurCoordinates[13]) * 0.03894888878286273;\n"
      "sum += texture(inputTexture, blurCoordinates[14]) * 0.03894888878286273;\n";
  std::istringstream numbers(
      "15.485843628206934 0.035053815468126005 17.483892294590255 0.03105963091780349 19.481941452026575 "
      "0.027094307407003075 21.479991159841575 0.023269153472259996 23.47804147729388 0.01967450792012846 "
      "25.47609246356786 0.016377512392895154 27.474144177766497 0.013421861555508365 29.47219667890423 "
      "0.010829248775881945");
  for (std::string offset, weight; numbers >> offset >> weight;) {
    for (const std::string sign : {" + ", " - "}) {
      end += "sum += texture(inputTexture, blurCoordinates[0]" + sign + "texelSize * " + offset + ") * " +
             weight + ";\n";
    }
  }
  EXPECT_TRUE(fragment.ends_with(end + "fragColor = sum;\n}\n"));
  for (const std::string& text : {vertex, fragment}) {
    EXPECT_NE(text.find(" vec2 blurCoordinates[15];\n"), std::string::npos);
  }
}

// ── On the view ───────────────────────────────────────────────────────────────────────────────────

/// Names as they are handed out: the main program is 5 with vertex array 6 and buffer 7; the blur has
/// textures 8 and 9, framebuffers 10 and 11, and programs 14 (15, 16) and 17 (18, 19). The view's own
/// framebuffer is 7.
struct BlurTest : RenderStage {
  const std::string line = "[RenderView:OpenGL:1] setup blur sample radius=";
  const std::vector<std::string> clearing{"glClearColor(0,0,0,1)", "glClear(16384)", "glGetIntegerv(36006)"};

  BlurTest() {
    buffer->setImage(makeFrame(64, 48), 1);
    showAndSettle();
    log.clear();
  }
  std::vector<std::string> callsAt(float radius) {
    view->setBlurRadius(radius);
    return callsOfOneRefresh();
  }
  /// The calls of a draw through a blur that is set up.
  std::vector<std::string> blurredDraw(bool quads, bool placement) {
    std::vector<std::string> calls = clearing;
    const auto add = [&](const std::string& words) {
      std::istringstream more(words);
      for (std::string call; more >> call;) calls.push_back(call);
    };
    const std::string send = "glBufferData(34962,64,35044) glUniformMatrix4fv(2,1,0)";
    const std::string draw = "glDrawArrays(5,0,4) glBindVertexArray(0)";
    add("glClearColor(0,0,0,1) glViewport(0,0,64,48) glBindFramebuffer(36160,10) glClear(16384)");
    add("glUseProgram(5)" + (quads ? " glBindBuffer(34962,7) " + send : ""));
    add("glBindVertexArray(6) " + draw);
    add("glBindFramebuffer(36160,11) glClear(16384) glUseProgram(14) glBindVertexArray(15) " + draw);
    add("glBindFramebuffer(36160,7) glViewport(0,0,640,360) glUseProgram(17)");
    add((quads || placement ? "glBindBuffer(34962,19) " + send : "") + " glBindVertexArray(18) " + draw);
    return calls;
  }
};

TEST_F(BlurTest, aBlurIsSetUpOnceAndDrawnInThreePassesEndingOnTheViewsOwnFramebuffer) {
  auto calls = callsAt(0.05F);
  const auto setup = calls.begin() + 3;
  const auto passes = std::find(calls.begin(), calls.end(), "glViewport(0,0,64,48)") - 1;
  std::istringstream steps(
      "glActiveTexture(33986) glBindTexture(3553,8) glTexImage2D(3553,0,6408,64,48,0,6408,5121) "
      "glBindFramebuffer(36160,10) glFramebufferTexture2D(36160,36064,3553,8,0) "
      "glCheckFramebufferStatus(36160) glActiveTexture(33987) glBindTexture(3553,9) "
      "glTexImage2D(3553,0,6408,64,48,0,6408,5121) glBindFramebuffer(36160,11) "
      "glFramebufferTexture2D(36160,36064,3553,9,0) glCheckFramebufferStatus(36160) glCompileShader(12) "
      "glCompileShader(13) glLinkProgram(14) glUseProgram(14) glBindBuffer(34962,16) "
      "glBufferData(34962,64,35044) glUniformMatrix4fv(2,1,0) glUniform2f(5,0.015625,0) glUniform1i(6,2) "
      "glLinkProgram(17) glUseProgram(17) glUniform2f(5,0,0.0208333) glUniform1i(6,3)");
  auto step = setup;
  for (std::string call; steps >> call;) {
    step = std::find(step, passes, call);
    ASSERT_NE(step, passes) << call;
  }
  EXPECT_EQ(gl().count("glCompileShader"), 2u);
  EXPECT_EQ(gl().shaderSource(13), opengl::blurFragmentShaderSource(BlurKernel(7, 3)));
  calls.erase(setup, passes);
  EXPECT_EQ(calls, blurredDraw(true, true));

  EXPECT_EQ(callsOfOneRefresh(), blurredDraw(false, false));
  EXPECT_EQ(callsAt(0.0501F), blurredDraw(false, false)) << "the same strength";
  view->setFitInBounds(!view->fitInBounds());
  EXPECT_EQ(callsOfOneRefresh(), blurredDraw(false, true));
  EXPECT_THAT(log.messages(), ElementsAre(line + "7 sigma=3 size=(w: 64, h: 48)"));
}

TEST_F(BlurTest, anotherStrengthOrSizeOrContextSetsUpAnewAndOffBringsThePlacedQuadBack) {
  callsAt(0.05F);
  callsAt(1);
  buffer->setImage(makeFrame(32, 24), 2);
  callsOfOneRefresh();
  EXPECT_EQ(gl().count("glTexImage2D(3553,0,6408,32,24,"), 2u);
  EXPECT_EQ(gl().count("glCompileShader"), 2u);
  EXPECT_THAT(log.messages(),
              ElementsAre(line + "7 sigma=3 size=(w: 64, h: 48)", line + "30 sigma=16 size=(w: 64, h: 48)",
                          line + "30 sigma=16 size=(w: 32, h: 24)"));
  log.clear();

  for (const float off : {0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()}) {
    callsAt(off);
    const bool first = off == 0;
    EXPECT_EQ(gl().count("glUseProgram(5)"), first ? 1u : 0u);
    EXPECT_EQ(gl().count("glBufferData"), first ? 1u : 0u);
    EXPECT_EQ(gl().count("glDrawArrays"), 1u);
    EXPECT_EQ(gl().count("glBindFramebuffer") + gl().count("glCompileShader"), 0u);
  }
  EXPECT_THAT(log.messages(), IsEmpty());

  callsAt(1);
  log.clear();
  machine->openGL().contexts().back()->lost = true;
  draws(3);
  machine->settle();
  draws(3);
  EXPECT_EQ(std::ranges::count(log.messages(), line + "30 sigma=16 size=(w: 32, h: 24)"), 1);
}

TEST_F(BlurTest, whatFailsInTheSetUpIsLoggedAndTheDrawGoesOn) {
  gl().framebufferStatus = 36054;
  gl().errorAfter("glFramebufferTexture2D", 1282);
  gl().errorAfter("glUniform2f(5,0,", 1281);
  callsAt(0.05F);
  const std::string name = "[RenderView:OpenGL:1] ";
  EXPECT_THAT(log.messages(LogLevel::error),
              ElementsAre(name + "GL error: 1282", name + "framebuffer incomplete: 36054",
                          name + "framebuffer incomplete: 36054", name + "GL error: 1281"));
  EXPECT_EQ(gl().count("glDrawArrays"), 3u);
}

}  // namespace
}  // namespace QelUtilVideo
