// qel-emulated-camera FILE [--card NAME] [--bus TEXT] [--formats LIST] [--mode OCTAL] [--padding BYTES]
//                          [--no-sizes] [--kind capture|metadata|output|m2m]
//
// Serves a V4L2 camera at FILE until standard input ends. LIST is as in
// "YUYV:1280x720@30,10;MJPG:640x480@30". Prints "ready", then carries out the lines that it reads and answers
// each with one:
//
//   status              says how the camera stands, as JSON
//   busy on|off         as if another program streamed
//   freeze on|off       no pictures come
//   slow MS             the time from picture to picture; 0: that of the mode
//   open-slow MS        how long setting a format takes
//   short N             the next N pictures end early
//   damaged N           the next N are marked as damaged
//   corrupt N           the next N are wrong from their middle on
//   fault EIO           the next attempt to take a picture fails so
//   vanish              the camera is pulled out

#include "support/camera/FuseNode.h"

#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

/// The FUSE library keeps the name of what it has mounted, which somebody else unmounts.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:fuse_session_mount\n";
}

namespace {

using namespace qeltest;

std::uint32_t capabilitiesOf(const std::string& kind) {
  if (kind == "metadata") return V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING;
  if (kind == "output") return V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING;
  if (kind == "m2m") return V4L2_CAP_VIDEO_M2M | V4L2_CAP_STREAMING;
  return V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
}

struct Arguments {
  std::string path;
  CameraOptions options;
  unsigned mode = 0660;
};

Arguments parse(int argc, char** argv) {
  Arguments arguments;
  arguments.options.modes = parseModes("YUYV:640x480@30");
  static const std::array<option, 9> known{{{"card", required_argument, nullptr, 'c'},
                                            {"bus", required_argument, nullptr, 'b'},
                                            {"formats", required_argument, nullptr, 'f'},
                                            {"mode", required_argument, nullptr, 'm'},
                                            {"padding", required_argument, nullptr, 'p'},
                                            {"no-sizes", no_argument, nullptr, 's'},
                                            {"kind", required_argument, nullptr, 'k'},
                                            {}}};
  for (int key = 0; (key = ::getopt_long(argc, argv, "", known.data(), nullptr)) != -1;) {
    const std::string value = ::optarg ? ::optarg : "";
    if (key == 'c') arguments.options.card = value;
    if (key == 'b') arguments.options.bus = value;
    if (key == 'f') arguments.options.modes = parseModes(value);
    if (key == 'm') arguments.mode = static_cast<unsigned>(std::stoul(value, nullptr, 8));
    if (key == 'p') arguments.options.padding = static_cast<std::uint32_t>(std::stoul(value));
    if (key == 's') arguments.options.listsSizes = false;
    if (key == 'k') arguments.options.capabilities = capabilitiesOf(value);
  }
  if (::optind < argc) arguments.path = argv[::optind];
  return arguments;
}

/// Takes the whole lines off the text.
void obey(FuseNode& node, std::string& text) {
  for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
    const std::string line = text.substr(0, end);
    const std::string answer = node.model().command(line);
    if (line == "vanish") node.remove();
    std::printf("%s\n", answer.c_str());
    std::fflush(stdout);
  }
}

volatile std::sig_atomic_t isOver = 0;

void serve(FuseNode& node) {
  std::string text;
  bool isServing = true;
  while (!isOver) {
    std::array<pollfd, 2> entries{
        {{STDIN_FILENO, POLLIN, 0}, {isServing ? node.descriptor() : -1, POLLIN, 0}}};
    if (::poll(entries.data(), entries.size(), -1) < 0) continue;
    if (entries[0].revents) {
      std::array<char, 256> bytes{};
      const ssize_t size = ::read(STDIN_FILENO, bytes.data(), bytes.size());
      if (size <= 0) return;
      text.append(bytes.data(), static_cast<std::size_t>(size));
      obey(node, text);
    }
    if (entries[1].revents) isServing = node.serve();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Arguments arguments = parse(argc, argv);
  if (arguments.path.empty() || arguments.options.modes.empty()) {
    std::fprintf(stderr, "qel-emulated-camera: name a file, and formats as in YUYV:640x480@30\n");
    return 2;
  }
  struct sigaction action {};
  action.sa_handler = [](int) { isOver = 1; };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(signal, &action, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  const auto node = FuseNode::mount(arguments.path, arguments.options, arguments.mode);
  if (!node) {
    std::fprintf(stderr, "qel-emulated-camera: cannot mount %s: %s\n", arguments.path.c_str(),
                 std::strerror(errno));
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  std::thread pictures([&] { node->model().run(); });
  serve(*node);
  // Nobody may wait for us when we go.
  (void)node->model().command("vanish");
  node->remove();
  node->model().end();
  pictures.join();
  return 0;
}
