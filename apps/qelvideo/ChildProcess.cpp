#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Failure.h"

namespace qelvideo {

namespace {

/// What posix_spawn is told beside the program and its arguments.
class SpawnSetting {
 public:
  SpawnSetting() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
  }
  SpawnSetting(const SpawnSetting&) = delete;
  SpawnSetting& operator=(const SpawnSetting&) = delete;
  ~SpawnSetting() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  void silenceStandardStreams() {
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  void pass(int descriptor) { ::posix_spawn_file_actions_adddup2(&actions_, descriptor, 3); }
  /// A process group of its own keeps the terminal's Ctrl-C away; ignored signals would stay ignored.
  void separateSignals() {
    sigset_t all;
    ::sigemptyset(&all);
    for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM}) ::sigaddset(&all, number);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }

  [[nodiscard]] const posix_spawn_file_actions_t* actions() const { return &actions_; }
  [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, std::optional<int> passedDescriptor) {
  SpawnSetting setting;
  setting.silenceStandardStreams();
  if (passedDescriptor) setting.pass(*passedDescriptor);
  setting.separateSignals();

  std::vector<std::string> words = arguments;
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const int error = ::posix_spawnp(&process_, pointers[0], setting.actions(), setting.attributes(),
                                   pointers.data(), environ);
  if (error != 0) {
    process_ = -1;
    throw systemFailure("cannot start " + arguments[0], error);
  }
}

ChildProcess::~ChildProcess() {
  if (process_ < 0) return;
  ::kill(process_, SIGTERM);
  if (wait(2)) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

bool ChildProcess::wait(double seconds) {
  constexpr int step = 10;  // milliseconds
  for (double left = seconds * 1000; process_ >= 0; left -= step) {
    if (::waitpid(process_, nullptr, WNOHANG) != 0) {
      process_ = -1;
    } else if (left <= 0) {
      return false;
    } else {
      ::poll(nullptr, 0, step);
    }
  }
  return true;
}

}  // namespace qelvideo
