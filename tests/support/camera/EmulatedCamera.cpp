#include "support/camera/EmulatedCamera.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>

extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace qeltest {

std::optional<std::string> EmulatedCamera::whyNot() {
  static const std::optional<std::string> reason = []() -> std::optional<std::string> {
    if (::access("/dev/fuse", R_OK | W_OK) != 0)
      return "there is no /dev/fuse, through which cameras are emulated";
    if (!start({})) return "file systems cannot be mounted here, and emulated cameras are such";
    return std::nullopt;
  }();
  return reason;
}

std::unique_ptr<EmulatedCamera> EmulatedCamera::start(const Options& options) {
  std::unique_ptr<EmulatedCamera> camera(new EmulatedCamera);
  camera->path_ = options.path.empty() ? camera->folder_.file("node") : options.path;
  std::array<int, 2> input{}, output{};
  if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) return nullptr;
  camera->in_ = input[1];
  camera->out_ = output[0];

  std::vector<std::string> words{QEL_EMULATED_CAMERA, camera->path_, "--formats", options.formats};
  words.insert(words.end(), options.arguments.begin(), options.arguments.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  // What is preloaded here, to make a world up, has no place in the camera.
  std::vector<char*> environment;
  for (char** entry = environ; *entry; ++entry) {
    if (!std::string_view(*entry).starts_with("LD_PRELOAD=")) environment.push_back(*entry);
  }
  environment.push_back(nullptr);
  const int failed = ::posix_spawn(&camera->process_, words[0].c_str(), &actions, nullptr, arguments.data(),
                                   environment.data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(input[0]);
  ::close(output[1]);
  if (failed) camera->process_ = -1;
  if (camera->readLine() != "ready") return nullptr;
  return camera;
}

EmulatedCamera::~EmulatedCamera() {
  ::close(in_);
  ::close(out_);
  if (process_ < 0) return;
  constexpr int attempts = 300;
  for (int i = 0; i < attempts; ++i) {
    if (::waitpid(process_, nullptr, WNOHANG) != 0) return;
    ::usleep(10'000);
  }
  ADD_FAILURE() << "an emulated camera does not end";
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

std::string EmulatedCamera::command(const std::string& line) {
  const std::string text = line + "\n";
  if (::write(in_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return {};
  return readLine();
}

std::string EmulatedCamera::readLine() const {
  std::string line;
  constexpr int patience = 5000;
  for (char byte = 0;;) {
    pollfd entry{out_, POLLIN, 0};
    if (::poll(&entry, 1, patience) <= 0 || ::read(out_, &byte, 1) != 1) return {};
    if (byte == '\n') return line;
    line += byte;
  }
}

}  // namespace qeltest
