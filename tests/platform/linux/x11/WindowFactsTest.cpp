#include "platform/linux/x11/windowserver/Applications.h"
#include "platform/linux/x11/windowserver/PresentationPrograms.h"
#include "platform/linux/x11/windowserver/WindowLayers.h"
#include "platform/linux/x11/windowserver/WindowProperties.h"
#include "platform/linux/x11/windowserver/WindowSelection.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <limits>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(WindowLayers, followWhatAWindowIs) {
  using Type = WindowType;
  const auto layer = [](std::optional<Type> type, LayerFacts others = {}) {
    others.type = type;
    return windowLayer(others);
  };
  EXPECT_EQ(layer(std::nullopt), 0);
  EXPECT_EQ(layer(Type::normal), 0);
  EXPECT_EQ(layer(Type::dialog), 0) << "a program that is nothing but a dialog is a window to share";
  for (const auto type : {std::optional(Type::dialog), std::optional(Type::normal), std::optional<Type>()}) {
    EXPECT_EQ(layer(type, {.isTransient = true}), 8);
    EXPECT_EQ(layer(type, {.isModal = true}), 8);
    EXPECT_EQ(layer(type, {.isOverrideRedirect = true, .isTransient = true}), 101);
  }
  EXPECT_EQ(layer(Type::utility), 3);
  EXPECT_EQ(layer(Type::toolbar, {.isTransient = true}), 3);
  EXPECT_EQ(layer(Type::utility, {.isOverrideRedirect = true}), 101);
  EXPECT_EQ(layer(Type::dock), 20);
  EXPECT_EQ(layer(Type::notification, {.isOverrideRedirect = true}), 25);
  for (const Type type :
       {Type::menu, Type::dropdownMenu, Type::popupMenu, Type::tooltip, Type::combo, Type::dnd}) {
    EXPECT_EQ(layer(type), 101);
  }
  EXPECT_LT(layer(Type::desktop), -1000000);
  EXPECT_EQ(layer(Type::normal, {.isSlideShow = true}), 1);
  EXPECT_EQ(layer(Type::normal, {.isTransient = true, .isSlideShow = true}), 8);
}

TEST(WindowProperties, areReadAsTheyWereMeant) {
  EXPECT_EQ(windowName({.netName = "new", .legacyName = "old"}), "new");
  EXPECT_EQ(windowName({.netName = "", .legacyName = "old"}), "old");
  EXPECT_EQ(windowName({}), std::nullopt);

  EXPECT_EQ(windowAlpha(std::nullopt), 1.0);
  EXPECT_EQ(windowAlpha(0xFFFFFFFF), 1.0);
  EXPECT_EQ(windowAlpha(0), 0.0);
  EXPECT_LT(windowAlpha(0xFFFFFFFE), 1.0);

  const PixelRect area{10, 20, 300, 200};
  const auto shadows = [&](std::uint32_t left, std::uint32_t right, std::uint32_t top, std::uint32_t bottom) {
    return withoutShadows(area, std::array{left, right, top, bottom});
  };
  EXPECT_EQ(withoutShadows(area, std::nullopt), area);
  EXPECT_EQ(shadows(1, 2, 3, 4), (PixelRect{11, 23, 297, 193}));
  EXPECT_EQ(shadows(150, 150, 0, 0), area) << "shadows that leave nothing are none";
  EXPECT_EQ(shadows(0xFFFFFFFF, 1, 0, 0), area);

  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(ownerProcess(11, 22, 3), 11);
  EXPECT_EQ(ownerProcess(0, 22, 3), 22);
  EXPECT_EQ(ownerProcess(std::nullopt, kMost + 1, 3), -4);
  EXPECT_NE(ownerProcess(0, 0, 3), ownerProcess(0, 0, 4));
  EXPECT_LT(ownerProcess({}, {}, 0xFFFFFFFF), 0);
}

TEST(WindowSelection, isRelativeToWindowsOnScreenOnly) {
  WindowList list;
  for (const xcb_window_t window : {1U, 2U, 3U}) list.onScreen.push_back({.window = window});
  list.offScreen.push_back({.window = 4});
  list.desktop.window = 9;
  const auto numbers = [](const std::vector<WindowRecord>& windows) {
    std::vector<xcb_window_t> all;
    for (const auto& window : windows) all.push_back(window.window);
    return all;
  };
  const auto select = [&](std::uint32_t options, CGWindowID window) {
    return numbers(selectWindows(list, options, window));
  };
  constexpr std::uint32_t kAbove = kCGWindowListOptionOnScreenAboveWindow;
  constexpr std::uint32_t kIncluding = kCGWindowListOptionIncludingWindow;
  constexpr std::uint32_t kNoDesktop = kCGWindowListExcludeDesktopElements;
  EXPECT_THAT(select(kCGWindowListOptionAll, 0), ElementsAre(1, 2, 3, 4, 9));
  EXPECT_THAT(select(kNoDesktop, 0), ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(select(kCGWindowListOptionOnScreenOnly | kNoDesktop, 0), ElementsAre(1, 2, 3));
  EXPECT_THAT(select(kAbove, 3), ElementsAre(1, 2));
  EXPECT_THAT(select(kAbove | kIncluding, 3), ElementsAre(1, 2, 3));
  EXPECT_THAT(select(kAbove | kIncluding, 4), ElementsAre(1, 2, 3, 9)) << "never mistaken for the last one";
  EXPECT_THAT(select(kAbove | kIncluding, 77), ElementsAre(1, 2, 3, 9));
  EXPECT_THAT(select(kIncluding, 4), ElementsAre(4));
  EXPECT_THAT(select(kIncluding, 77), IsEmpty());
  const std::array<CGWindowID, 4> some{9, 4, 2, 2};
  EXPECT_THAT(numbers(selectWindows(list, some)), ElementsAre(2, 4, 9));
  EXPECT_EQ(findWindow(list, 4), &list.offScreen.front());
  EXPECT_EQ(findWindow(list, 5), nullptr);
}

// ── Applications ──────────────────────────────────────────────────────────────────────────────────

TEST(Applications, areNamedInControlGroups) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases{
      {"0::/user.slice/user-1000.slice/user@1000.service/app.slice/app-gnome-org.gnome.Terminal-4242.scope",
       "org.gnome.Terminal"},
      {R"(0::/app.slice/app-gnome-my\x2deditor-17.scope)", "my-editor"},
      {"0::/app.slice/app-firefox-9.scope", "firefox"},
      {"0::/app.slice/app-org.kde.konsole@0a1b2c.service", "org.kde.konsole"},
      {"0::/app.slice/app-dbus-org.gnome.Nautilus.service", "org.gnome.Nautilus"},
      {"0::/snap.code.code.1234-5678.scope", "code"},
      {"0::/app.slice/app-.scope", std::nullopt},
      {"0::/user.slice/session-2.scope", std::nullopt},
      {R"(0::/app-x-\x-1.scope)", R"(\x)"},
      {"", std::nullopt},
  };
  for (const auto& [line, id] : cases) EXPECT_EQ(applicationOfControlGroup(line), id) << line;
}

TEST(Applications, haveTheirNamesFromDesktopEntriesElseFromTheirFiles) {
  const TemporaryFolder folder;
  const std::filesystem::path root = folder.file("");
  const ApplicationSources sources{root / "proc", {root / "empty", root / "share"}};
  std::filesystem::create_directories(root / "share/applications");
  std::ofstream(root / "share/applications/org.example.Draw.desktop")
      << "# Name=comment\n[Desktop Action New]\nName=Wrong\n[Desktop Entry]\nName=Draw & "
         "Paint\nName[de]=Malen\n";
  const auto addProcess = [&](int number, const std::string& executable) {
    const auto process = root / "proc" / std::to_string(number);
    std::filesystem::create_directories(process / "root");
    if (!executable.empty()) std::filesystem::create_symlink("/usr/bin/" + executable, process / "exe");
    std::ofstream(process / "comm") << "short\n";
    return process;
  };
  std::ofstream(addProcess(1, "draw") / "cgroup") << "1:name=x:/\n0::/app-gnome-org.example.Draw-5.scope\n";
  addProcess(2, "plain (deleted)");
  addProcess(3, "");
  std::ofstream(addProcess(4, "runner") / "root/.flatpak-info")
      << "[Context]\nname=no\n[Application]\nname=org.example.Draw\n";
  addProcess(5, "soffice.bin");
  std::ofstream(addProcess(6, "draw") / "cgroup") << "0::/app-gnome-..-..-etc-5.scope\n";

  const auto find = [&](int process, std::optional<std::string> ofWindows = {}) {
    return findApplication(process, ofWindows, sources);
  };
  EXPECT_EQ(find(1).name, "Draw & Paint");
  EXPECT_EQ(find(1).bundleIdentifier, "org.example.Draw");
  EXPECT_EQ(find(1, "other/../id").bundleIdentifier, "other/../id");
  EXPECT_EQ(find(1, "other/../id").name, "draw") << "an ID is no path";
  EXPECT_EQ(find(2).name, "plain");
  EXPECT_EQ(find(2).bundleIdentifier, std::nullopt);
  EXPECT_EQ(find(3).name, "short");
  EXPECT_EQ(find(3, "\xff").bundleIdentifier, "\xEF\xBF\xBD");
  EXPECT_EQ(find(4).name, "Draw & Paint");
  EXPECT_EQ(find(5, "org.libreoffice").bundleIdentifier, "com.apple.iWork.Keynote");
  for (const int nobody : {0, -7, 12345}) EXPECT_EQ(find(nobody).name, "");

  // Programs choose what lies under these names.
  const auto facts = [&](int number) { return addProcess(number, "draw") / "root/.flatpak-info"; };
  ASSERT_EQ(::mkfifo(facts(7).c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", facts(8));
  std::filesystem::create_directory(facts(9));
  std::ofstream(facts(10)) << std::string(1'000'000, 'x') << "\n[Application]\nname=org.example.Draw\n";
  for (const int liar : {7, 8, 9, 10}) {
    EXPECT_EQ(find(liar).bundleIdentifier, std::nullopt) << liar;
    EXPECT_EQ(find(liar).name, "draw") << liar;
  }
}

TEST(PresentationPrograms, showTheirSlidesInWindowsThatCanBeTold) {
  const auto* office = findPresentationProgram("soffice.bin");
  ASSERT_TRUE(office);
  EXPECT_TRUE(isSlideShow(*office, "soffice", "Pr\xC3\xA4sentation: talk"));
  EXPECT_FALSE(isSlideShow(*office, "soffice", "talk.odp - LibreOffice Impress"))
      << "the presenter's console";
  EXPECT_FALSE(isSlideShow(*office, "libreoffice", "talk.odp"));
  EXPECT_EQ(findPresentationProgram("soffice"), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo
