#pragma once

#include <optional>
#include <set>
#include <string>

namespace qeltest {

/// Stands in for the system's list of devices in this process and those that it starts, and tells those who
/// watch it of changes. Works where the process was started with umockdev's library preloaded.
class UdevTestbed {
 public:
  struct Node {
    std::string name;    ///< "video0"
    std::string path;    ///< what it is in the file system, below /dev
    std::string serial;  ///< ID_SERIAL; empty: none of the properties that rules set
    std::string port;    ///< ID_PATH
    std::string product;
    std::string index = "0";
  };

  /// Why there can be none, if so; a sentence.
  static std::optional<std::string> whyNot();

  UdevTestbed();
  UdevTestbed(const UdevTestbed&) = delete;
  UdevTestbed& operator=(const UdevTestbed&) = delete;
  ~UdevTestbed();

  /// Adds a node, and says so twice.
  void plug(const Node& node);
  void unplug(const std::string& name);
  /// Closes what umockdev leaves behind for each node that was opened. While nobody opens any.
  static void tidy();

 private:
  std::set<std::string> plugged_;
};

}  // namespace qeltest
