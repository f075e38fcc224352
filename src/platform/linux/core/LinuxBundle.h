#pragma once

#include "platform/Bundle.h"

#include <filesystem>
#include <vector>

namespace QelUtilVideo {

/// Finds the library's files relative to where its code was loaded from, so that an installed copy and
/// a build tree both work.
class LinuxBundle final : public Bundle {
 public:
  /// In the folders beside the library: "QelUtilVideo", "../share/QelUtilVideo", and the one where a
  /// program that holds the code itself has its libraries.
  LinuxBundle();
  /// In these folders, the first one first.
  explicit LinuxBundle(std::vector<std::filesystem::path> folders);

  /// Texts, truth values and numbers of "Info.json": whole numbers that fit as signed 64-bit, others as
  /// double. Entries of other kinds are left out.
  [[nodiscard]] std::optional<Dictionary> infoDictionary() override;
  /// The name of a file, without folders.
  [[nodiscard]] std::optional<std::string> pathForResource(const std::string& name) override;

 private:
  std::vector<std::filesystem::path> folders_;
};

}  // namespace QelUtilVideo
