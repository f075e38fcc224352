#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

#include "ByteOutput.h"
#include "Failure.h"
#include "TemporaryFolder.h"

using namespace qelvideo;

namespace {

std::vector<std::byte> bytes(std::size_t count, char value) {
  return std::vector<std::byte>(count, static_cast<std::byte>(value));
}

/// Puts the write end of a new pipe in place of standard output for as long as it lives.
class PipedStandardOutput {
 public:
  PipedStandardOutput() : saved_(::dup(STDOUT_FILENO)) {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reading_ = FileDescriptor(ends[0]);
    const FileDescriptor writing(ends[1]);
    ::dup2(writing.get(), STDOUT_FILENO);
  }
  ~PipedStandardOutput() { ::dup2(saved_.get(), STDOUT_FILENO); }
  void closeReader() { reading_ = FileDescriptor(); }

 private:
  FileDescriptor saved_;
  FileDescriptor reading_;
};

}  // namespace

TEST(ByteOutput, keepsAnOldFileUntilTheFirstPieceAndRemovesANewEmptyOne) {
  const TemporaryFolder folder;
  const std::string old = folder.write("old", "precious and long");
  static_cast<void>(ByteOutput::open(old, std::make_shared<Cancellation>()));
  EXPECT_EQ(folder.read("old"), "precious and long");
  {
    ByteOutput output = ByteOutput::open(old, std::make_shared<Cancellation>());
    EXPECT_EQ(output.write(bytes(3, 'x')), ByteOutput::Outcome::written);
  }
  EXPECT_EQ(folder.read("old"), "xxx");
  std::remove(old.c_str());
  static_cast<void>(ByteOutput::open(folder.file("new"), std::make_shared<Cancellation>()));
  EXPECT_TRUE(folder.empty());
}

TEST(ByteOutput, namesAFileThatCannotBeWritten) {
  const TemporaryFolder folder;
  for (const std::string& path : {folder.file("absent/film.y4m"), folder.file("")}) {
    try {
      static_cast<void>(ByteOutput::open(path, std::make_shared<Cancellation>()));
      ADD_FAILURE() << path;
    } catch (const Failure& failure) {
      EXPECT_NE(std::string(failure.what()).find(path), std::string::npos);
    }
  }
}

TEST(ByteOutput, aFullDiskLeavesOnlyWholePieces) {
  const TemporaryFolder folder;
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit unlimited = limit;
  ByteOutput output = ByteOutput::open(folder.file("film"), std::make_shared<Cancellation>());
  limit.rlim_cur = 2500;
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(output.write(bytes(1000, 'a')), ByteOutput::Outcome::written);
  EXPECT_EQ(output.write(bytes(1000, 'b')), ByteOutput::Outcome::written);
  EXPECT_THROW(static_cast<void>(output.write(bytes(1000, 'c'))), Failure);
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  EXPECT_EQ(folder.read("film"), std::string(1000, 'a') + std::string(1000, 'b'));
}

TEST(ByteOutput, aReaderThatGoesAwayIsAnOutcomeAndAStuckOneCanBeCancelled) {
  ::signal(SIGPIPE, SIG_IGN);
  PipedStandardOutput pipe;
  const auto cancellation = std::make_shared<Cancellation>();
  ByteOutput output = ByteOutput::open("-", cancellation);
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    cancellation->set();
  });
  EXPECT_EQ(output.write(bytes(4 << 20, 'a')), ByteOutput::Outcome::cancelled);
  canceller.join();
  pipe.closeReader();
  ByteOutput another = ByteOutput::open("-", std::make_shared<Cancellation>());
  EXPECT_EQ(another.write(bytes(10, 'a')), ByteOutput::Outcome::readerGone);
}
