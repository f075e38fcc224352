#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// An empty folder that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_(testing::TempDir() + "qelvideo_XXXXXX") {
    if (!::mkdtemp(path_.data())) ADD_FAILURE() << "no temporary folder";
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }
  [[nodiscard]] std::string write(const std::string& name, const std::string& contents) const {
    std::ofstream(file(name), std::ios::binary) << contents;
    return file(name);
  }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream stream(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  [[nodiscard]] bool empty() const { return std::filesystem::is_empty(path_); }

 private:
  std::string path_;
};
