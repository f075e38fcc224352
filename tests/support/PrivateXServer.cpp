#include "support/PrivateXServer.h"

#include "platform/linux/core/UniqueFD.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace qeltest {
namespace {

using QelUtilVideo::UniqueFD;

constexpr int kStartMilliseconds = 10000;

/// The line that the server writes once it takes connections; empty when it does not come.
std::string readLine(int fd) {
  std::string line;
  while (line.find('\n') == std::string::npos) {
    pollfd waiting{fd, POLLIN, 0};
    std::array<char, 32> bytes;
    if (::poll(&waiting, 1, kStartMilliseconds) <= 0) return {};
    const ssize_t count = ::read(fd, bytes.data(), bytes.size());
    if (count <= 0) return {};
    line.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return line.substr(0, line.find('\n'));
}

const char* programName(PrivateXServer::Program program) {
  return program == PrivateXServer::Program::tigervnc ? "Xtigervnc" : "Xvfb";
}

std::vector<std::string> commandOf(const PrivateXServer::Options& options, int displayFD) {
  const std::string size = std::to_string(options.width) + "x" + std::to_string(options.height);
  const std::string depth = std::to_string(options.depth);
  std::vector<std::string> command{programName(options.program), "-nolisten", "tcp", "-noreset", "-displayfd",
                                   std::to_string(displayFD)};
  if (options.program == PrivateXServer::Program::tigervnc) {
    command.insert(command.end(), {"-geometry", size, "-depth", depth, "-SecurityTypes", "None", "-rfbport",
                                   "-1", "-rfbunixpath", options.socket});
  } else {
    command.insert(command.end(), {"-screen", "0", size + "x" + depth});
  }
  command.insert(command.end(), options.arguments.begin(), options.arguments.end());
  return command;
}

/// Starts the program without its output; the descriptor stays open in it. Negative: it does not start.
pid_t spawn(std::vector<std::string> command, int inherited) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  // Onto itself: clears the mark that closes it.
  posix_spawn_file_actions_adddup2(&actions, inherited, inherited);
  pid_t process = -1;
  const int failed = ::posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed ? -1 : process;
}

}  // namespace

bool PrivateXServer::isInstalled(Program program) {
  return std::system(("command -v " + std::string(programName(program)) + " > /dev/null").c_str()) == 0;
}

std::unique_ptr<PrivateXServer> PrivateXServer::start(const Options& options) {
  struct Started : PrivateXServer {};
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return nullptr;
  const UniqueFD reading(ends[0]);
  UniqueFD writing(ends[1]);
  // Owned from the start, so that a server that never answers is ended too.
  auto server = std::make_unique<Started>();
  server->process_ = spawn(commandOf(options, writing.get()), writing.get());
  writing.reset();
  server->display_ = ":" + readLine(reading.get());
  return server->display_.size() > 1 ? std::move(server) : nullptr;
}

PrivateXServer::~PrivateXServer() { end(SIGTERM); }

void PrivateXServer::kill() { end(SIGKILL); }

void PrivateXServer::end(int signal) {
  if (process_ < 0) return;
  ::kill(process_, signal);
  ::waitpid(process_, nullptr, 0);
  process_ = -1;
}

}  // namespace qeltest
