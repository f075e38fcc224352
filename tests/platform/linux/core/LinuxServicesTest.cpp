#include "platform/linux/core/LinuxBundle.h"
#include "platform/linux/core/LinuxDiagnostics.h"
#include "platform/linux/core/LinuxSystemLog.h"
#include "platform/linux/core/LinuxUserDefaults.h"
#include "platform/linux/core/SystemExamination.h"
#include "platform/linux/core/UniqueFD.h"

#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <stdexcept>

namespace QelUtilVideo {
namespace {

using testing::EndsWith;
using testing::MatchesRegex;

// ── User defaults ───────────────────────────────────────────────────────────────────────────────────

class LinuxUserDefaultsTest : public testing::Test {
 protected:
  LinuxUserDefaultsTest() {
    ::setenv("XDG_CONFIG_HOME", folder.file("").c_str(), 1);
    std::filesystem::create_directory(folder.file("QelUtilVideo"));
  }
  ~LinuxUserDefaultsTest() override {
    ::unsetenv("XDG_CONFIG_HOME");
    ::unsetenv("QelTestKey");
  }
  void store(const std::string& json) const { (void)folder.write(kFile, json); }
  [[nodiscard]] bool value() { return defaults.boolForKey("QelTestKey"); }

  static constexpr const char* kFile = "QelUtilVideo/defaults.json";
  TemporaryFolder folder;
  LinuxUserDefaults defaults;
};

TEST_F(LinuxUserDefaultsTest, theEnvironmentDecidesWhenItIsSetElseTheFile) {
  ASSERT_EQ(::mkfifo(folder.file(kFile).c_str(), 0600), 0);
  EXPECT_FALSE(value()) << "and a pipe in place of the file is not waited for";
  std::filesystem::remove(folder.file(kFile));
  for (const char* text : {"1", "true", "YES", "oN", "-2", "0.5"}) {
    ::setenv("QelTestKey", text, 1);
    EXPECT_TRUE(value()) << text;
  }
  store(R"({"QelTestKey": true})");
  for (const char* text : {"", "0", "0.0", "off", "1x", "nan", " 1"}) {
    ::setenv("QelTestKey", text, 1);
    EXPECT_FALSE(value()) << text;
  }
  ::unsetenv("QelTestKey");
  EXPECT_TRUE(value());
}

TEST_F(LinuxUserDefaultsTest, malformedSettingsCountAsAbsent) {
  for (const char* json : {R"({"QelTestKey": true)", R"(["QelTestKey"])", R"({"QelTestKey": [true]})",
                           R"({"QelTestKey": null})", R"({"QelTestKey": 0})", "", "\xff\xfe{}", "{}{}"}) {
    store(json);
    EXPECT_FALSE(value()) << json;
  }
  store(std::string(100'000, '['));
  EXPECT_FALSE(value());
  store(R"({"QelTestKey": "yes"})");
  EXPECT_TRUE(value());
}

TEST_F(LinuxUserDefaultsTest, anExaminationTellsWhetherTheFileCounts) {
  const auto found = [] {
    const Finding finding = examineSystem().at(1);
    EXPECT_EQ(finding.subject, "User defaults");
    EXPECT_EQ(finding.remedy.empty(), finding.state == Finding::State::ok);
    return finding;
  };
  EXPECT_EQ(found().detail, "no file; it would be " + folder.file(kFile));
  store("[]");
  EXPECT_EQ(found().state, Finding::State::limited);
  store("{}");
  EXPECT_EQ(found().detail, folder.file(kFile));
}

// ── Bundle ──────────────────────────────────────────────────────────────────────────────────────────

TEST(LinuxBundleTest, readsTheFirstInformationFileAnew) {
  const TemporaryFolder folder;
  LinuxBundle bundle({folder.file("none"), folder.file("")});
  EXPECT_FALSE(bundle.infoDictionary());
  (void)folder.write("Info.json", R"({"text": "t", "flag": true, "whole": -3, "part": 0.5,
                                  "large": 18446744073709551615, "list": [1]})");
  const auto info = bundle.infoDictionary();
  ASSERT_TRUE(info);
  EXPECT_EQ(*info->get<std::string>("text"), "t");
  EXPECT_EQ(*info->get<bool>("flag"), true);
  EXPECT_EQ(*info->get<std::int64_t>("whole"), -3);
  EXPECT_EQ(*info->get<double>("part"), 0.5);
  EXPECT_EQ(*info->get<double>("large"), 18446744073709551615.0);
  EXPECT_EQ(info->size(), 5U);

  (void)folder.write("Info.json", "{");
  EXPECT_FALSE(bundle.infoDictionary());
}

TEST(LinuxBundleTest, findsFilesOfTheBuildTreeAndNothingOutside) {
  LinuxBundle bundle;
  const auto info = bundle.infoDictionary();
  ASSERT_TRUE(info);
  EXPECT_NE(info->get<std::string>("QelUtilRevision"), nullptr);
  EXPECT_FALSE(bundle.pathForResource("no such file"));
  EXPECT_FALSE(bundle.pathForResource("../QelUtilVideo/Info.json"));
  EXPECT_FALSE(bundle.pathForResource(""));
}

// ── System log ──────────────────────────────────────────────────────────────────────────────────────

/// A reader of records.
class Reader {
 public:
  explicit Reader(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  /// The next record, or an empty text.
  [[nodiscard]] std::string next() const {
    std::vector<char> record(200'000);
    const ssize_t size = ::recv(socket_.get(), record.data(), record.size(), 0);
    return {record.data(), size > 0 ? static_cast<std::size_t>(size) : 0U};
  }

 private:
  UniqueFD socket_;
};

class LinuxSystemLogTest : public testing::Test {
 protected:
  TemporaryFolder folder;
  LinuxSystemLog systemLog{folder.file("journal"), folder.file("log")};
  std::shared_ptr<OSLog> log = systemLog.makeLog("sub", "cat");
};

TEST_F(LinuxSystemLogTest, aJournalGetsFieldsWithTheTypesPriorityAndLongTextsCutBetweenCharacters) {
  const Reader journal(folder.file("journal"));
  log->os_log(os_log_type_t::OS_LOG_TYPE_ERROR, "[:7] e");
  log->os_log(os_log_type_t::OS_LOG_TYPE_DEFAULT, "d");
  log->os_log(os_log_type_t::OS_LOG_TYPE_INFO, "two\nlines");
  const std::string rest = "SYSLOG_IDENTIFIER=QelUtilVideo\nSUBSYSTEM=sub\nCATEGORY=cat\nMESSAGE";
  EXPECT_EQ(journal.next(), "PRIORITY=3\n" + rest + "=[:7] e\n");
  EXPECT_EQ(journal.next(), "PRIORITY=5\n" + rest + "=d\n");
  EXPECT_EQ(journal.next(), "PRIORITY=6\n" + rest + std::string("\n\x09\0\0\0\0\0\0\0two\nlines\n", 19));

  std::string text(48 * 1024 - 1, 'x');
  for (int i = 0; i < 100'000; ++i) text += "\u00e4";
  log->os_log(os_log_type_t::OS_LOG_TYPE_INFO, text);
  EXPECT_THAT(journal.next(), EndsWith("xxx\n"));
}

TEST_F(LinuxSystemLogTest, withoutAJournalTheSystemLoggerGetsALineAndNobodyIsHeldUp) {
  log->os_log(os_log_type_t::OS_LOG_TYPE_INFO, "nobody listens");
  const Reader syslog(folder.file("log"));
  log->os_log(os_log_type_t::OS_LOG_TYPE_ERROR, "[:7] e");
  EXPECT_THAT(
      syslog.next(),
      MatchesRegex("<11>[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ QelUtilVideo/cat\\[[0-9]+\\]: \\[:7\\] e"));
  const Reader journal(folder.file("journal"));
  for (int i = 0; i < 5000; ++i) log->os_log(os_log_type_t::OS_LOG_TYPE_INFO, "more than a reader takes");
  EXPECT_THAT(journal.next(), EndsWith("MESSAGE=more than a reader takes\n"));
  EXPECT_EQ(syslog.next(), "");
}

TEST_F(LinuxSystemLogTest, knowsWhoReads) {
  EXPECT_EQ(systemLog.reader(), LinuxSystemLog::Reader::none);
  const Reader logger(folder.file("log"));
  EXPECT_EQ(systemLog.reader(), LinuxSystemLog::Reader::syslog);
  const Reader journal(folder.file("journal"));
  EXPECT_EQ(systemLog.reader(), LinuxSystemLog::Reader::journal);
  EXPECT_EQ(journal.next() + logger.next(), "");
}

// ── Diagnostics ─────────────────────────────────────────────────────────────────────────────────────

TEST(LinuxDiagnosticsTest, anExaminationThatHangsOrFailsIsAFindingAmongTheOthers) {
  std::promise<void> release;
  using Examination = LinuxDiagnostics::Examination;
  const auto finding = [](const char* subject) {
    return Finding{Finding::Area::system, subject, Finding::State::ok, "", ""};
  };
  const auto ok = [finding](const char* subject) {
    return Examination{finding("no"), [finding, subject] {
                         return std::vector<Finding>{finding(subject), finding("more")};
                       }};
  };
  const Examination hangs{{Finding::Area::drawing, "hanging", Finding::State::limited, "", "wait"},
                          [until = release.get_future().share()]() -> std::vector<Finding> {
                            until.wait();
                            return {};
                          }};
  const Examination fails{finding("failing"),
                          []() -> std::vector<Finding> { throw std::runtime_error("broken"); }};
  const Examination failsOddly{finding("odd"), []() -> std::vector<Finding> { throw 1; }};
  const auto findings = LinuxDiagnostics({ok("a"), hangs, fails, failsOddly, ok("b")}, 0.2).examine();
  std::vector<std::string> subjects;
  for (const Finding& found : findings) subjects.push_back(found.subject);
  EXPECT_THAT(subjects, testing::ElementsAre("a", "more", "hanging", "failing", "odd", "b", "more"));
  EXPECT_EQ(findings[2].state, Finding::State::limited);
  EXPECT_EQ(findings[2].detail, "gives no answer within 0 seconds");
  EXPECT_EQ(findings[2].remedy, "wait");
  EXPECT_THAT(findings[3].detail, EndsWith("broken"));
  release.set_value();
}

}  // namespace
}  // namespace QelUtilVideo
