#include "platform/linux/core/LinuxDiagnostics.h"
#include "platform/linux/core/UniqueFD.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Examination.h"
#include "support/PrivateXServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using State = Finding::State;

/// The finding about the subject, which begins like this; an empty one when there is none.
Finding about(const std::vector<Finding>& findings, std::string_view subject) {
  const auto found = std::ranges::find_if(
      findings, [subject](const Finding& finding) { return finding.subject.starts_with(subject); });
  return found == findings.end() ? Finding{} : *found;
}

bool isMissing(const Finding& finding) { return finding.state == State::missing; }

/// A window manager, as far as one can be told from outside, until it is gone.
class NamedManager {
 public:
  explicit NamedManager(const std::string& display) : connection_(X11Connection::open(display.c_str())) {
    const X11Connection::Use use(*connection_);
    const xcb_window_t window = xcb_generate_id(use);
    xcb_create_window(use, XCB_COPY_FROM_PARENT, window, connection_->root(), 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    const std::string_view name = "Neat";
    for (const xcb_window_t holder : {window, connection_->root()}) {
      xcb_change_property(use, XCB_PROP_MODE_REPLACE, holder, atom("_NET_SUPPORTING_WM_CHECK"),
                          XCB_ATOM_WINDOW, 32, 1, &window);
      xcb_change_property(use, XCB_PROP_MODE_REPLACE, holder, atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8,
                          static_cast<std::uint32_t>(name.size()), name.data());
    }
    (void)atom("WM_NAME");
  }

 private:
  [[nodiscard]] xcb_atom_t atom(std::string_view name) const {
    const X11Connection::Use use(*connection_);
    const auto length = static_cast<std::uint16_t>(name.size());
    return use.reply(xcb_intern_atom(use, 0, length, name.data()), xcb_intern_atom_reply)->atom;
  }

  std::shared_ptr<X11Connection> connection_;
};

TEST(Examination, namesWhatTheServerHasAndWhatToDoAboutTheRest) {
  QEL_REQUIRE_X_SERVER();
  const auto full = PrivateXServer::start({});
  ASSERT_TRUE(full);
  std::vector<Finding> findings = examineX11(full->display().c_str());
  EXPECT_EQ(std::ranges::count_if(findings, isMissing), 0);
  for (const char* subject : {"X server", "RANDR", "MIT-SHM", "XFIXES", "Display screen"}) {
    EXPECT_EQ(about(findings, subject).state, State::ok) << subject;
    EXPECT_NE(about(findings, subject).detail, "") << subject;
  }
  EXPECT_EQ(about(findings, "Display screen").detail, "320x240 at 0,0");
  {
    const NamedManager manager(full->display());
    EXPECT_EQ(about(examineX11(full->display().c_str()), "Window manager").detail, "Neat");
  }
  EXPECT_EQ(about(examineX11(full->display().c_str()), "Window manager").state, State::limited);

  const auto poor = PrivateXServer::start(
      {.arguments = {"-extension", "RANDR", "-extension", "MIT-SHM", "-extension", "XFIXES"}});
  ASSERT_TRUE(poor);
  findings = examineX11(poor->display().c_str());
  EXPECT_EQ(std::ranges::count_if(findings, isMissing), 0);
  for (const char* subject : {"RANDR", "MIT-SHM", "XFIXES"}) {
    EXPECT_EQ(about(findings, subject).state, State::limited) << subject;
    EXPECT_NE(about(findings, subject).remedy, "") << subject;
  }

  const auto indexed = PrivateXServer::start({.depth = 8});
  ASSERT_TRUE(indexed);
  EXPECT_TRUE(isMissing(about(examineX11(indexed->display().c_str()), "Display ")));
  EXPECT_TRUE(isMissing(about(examineX11(":54321"), "X server")));
}

TEST(Examination, aServerThatNeverAnswersIsGivenUp) {
  // Whoever connects waits for somebody to take the connection.
  UniqueFD socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(socket.get(), 1), 0);
  ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  constexpr int portOfDisplay0 = 6000;
  const std::string name = "127.0.0.1:" + std::to_string(ntohs(address.sin_port) - portOfDisplay0);

  const auto ended = std::make_shared<std::binary_semaphore>(0);
  LinuxDiagnostics diagnostics({{{Finding::Area::displays, "X server", State::missing, "", "End it."},
                                 [name, ended] {
                                   const std::vector<Finding> found = examineX11(name.c_str());
                                   ended->release();
                                   return found;
                                 }}},
                               0.3);
  const std::vector<Finding> findings = diagnostics.examine();
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_TRUE(isMissing(findings[0]));
  EXPECT_EQ(findings[0].remedy, "End it.");
  // The thread that was left behind is told that there will be no answer.
  socket.reset();
  ended->acquire();
}

}  // namespace
}  // namespace QelUtilVideo
