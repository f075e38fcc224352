#pragma once

#include "platform/Bundle.h"
#include "platform/Cursor.h"
#include "platform/Diagnostics.h"
#include "platform/Metal.h"
#include "platform/Synchronised.h"
#include "platform/SystemLog.h"
#include "platform/SystemVersion.h"
#include "platform/UserDefaults.h"

#include <atomic>
#include <map>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Keeps every record.
class SimulatedSystemLog final : public SystemLog {
 public:
  struct Record {
    std::string subsystem;
    std::string category;
    os_log_type_t type;
    std::string text;
  };

  [[nodiscard]] std::shared_ptr<OSLog> makeLog(std::string subsystem, std::string category) override {
    logsMade_ += 1;
    return std::make_shared<Log>(records_, std::move(subsystem), std::move(category));
  }

  [[nodiscard]] std::vector<Record> records() const { return records_->copy(); }
  /// The texts of one category, in order.
  [[nodiscard]] std::vector<std::string> texts(const std::string& category = "video") const {
    std::vector<std::string> texts;
    for (const Record& record : records()) {
      if (record.category == category) texts.push_back(record.text);
    }
    return texts;
  }
  /// What the platform layer complained about.
  [[nodiscard]] std::vector<std::string> troubles() const { return texts("platform"); }
  [[nodiscard]] int logsMade() const { return logsMade_; }

 private:
  using Records = Synchronised<std::vector<Record>>;

  struct Log final : OSLog {
    Log(std::shared_ptr<Records> into, std::string subsystem, std::string category)
        : records(std::move(into)), from(std::move(subsystem), std::move(category)) {}
    void os_log(os_log_type_t type, const std::string& text) override {
      records->with([&](auto& all) { all.push_back({from.first, from.second, type, text}); });
    }
    std::shared_ptr<Records> records;
    std::pair<std::string, std::string> from;
  };

  std::shared_ptr<Records> records_ = std::make_shared<Records>();
  std::atomic<int> logsMade_{0};
};

class SimulatedUserDefaults final : public UserDefaults {
 public:
  [[nodiscard]] bool boolForKey(const std::string& key) override { return values_.copy()[key]; }
  void set(const std::string& key, bool value) {
    values_.with([&](auto& values) { values[key] = value; });
  }

 private:
  Synchronised<std::map<std::string, bool>> values_;
};

/// No files; no information unless the test says otherwise.
class SimulatedBundle final : public Bundle {
 public:
  [[nodiscard]] std::optional<Dictionary> infoDictionary() override { return info_.copy(); }
  [[nodiscard]] std::optional<std::string> pathForResource(const std::string&) override { return {}; }
  void setInfoDictionary(std::optional<Dictionary> info) {
    info_.with([&](auto& current) { current = std::move(info); });
  }

 private:
  Synchronised<std::optional<Dictionary>> info_;
};

/// 14.0 unless the test says otherwise.
class SimulatedSystemVersion final : public SystemVersion {
 public:
  [[nodiscard]] bool isAtLeast(int major, int minor) override { return version_ >= major * 1000 + minor; }
  void set(int major, int minor) { version_ = major * 1000 + minor; }

 private:
  std::atomic<int> version_{14'000};
};

/// No pointer and no cursor unless the test says otherwise.
class SimulatedCursor final : public Cursor {
 public:
  [[nodiscard]] std::optional<CGPoint> CGEventGetLocation() override { return location_.copy(); }
  [[nodiscard]] std::optional<NSCursor> currentSystemCursor() override { return cursor_.copy(); }
  void setLocation(std::optional<CGPoint> location) {
    location_.with([&](auto& current) { current = location; });
  }
  void setCursor(std::optional<NSCursor> cursor) {
    cursor_.with([&](auto& current) { current = std::move(cursor); });
  }

 private:
  Synchronised<std::optional<CGPoint>> location_;
  Synchronised<std::optional<NSCursor>> cursor_;
};

/// All is well unless the test says otherwise.
class SimulatedDiagnostics final : public Diagnostics {
 public:
  [[nodiscard]] std::vector<Finding> examine() override { return findings_.copy(); }
  void set(std::vector<Finding> findings) {
    findings_.with([&](auto& current) { current = std::move(findings); });
  }

 private:
  Synchronised<std::vector<Finding>> findings_{
      {{Finding::Area::displays, "Displays", Finding::State::ok, "one", ""},
       {Finding::Area::drawing, "OpenGL", Finding::State::ok, "scripted", ""}}};
};

}  // namespace QelUtilVideo
