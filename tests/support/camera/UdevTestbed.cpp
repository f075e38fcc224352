#include "support/camera/UdevTestbed.h"

#include "support/WarmUp.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

namespace qeltest {

namespace {

/// One for the process, since each leaves descriptors behind.
UMockdevTestbed* shared() {
  static const std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> testbed = [] {
    std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> made(umockdev_testbed_new(), g_object_unref);
    // It would answer calls on nodes, which have answers of their own.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets it by now
    if (const char* folder = std::getenv("UMOCKDEV_DIR")) {
      ::unlink((std::string(folder) + "/ioctl/_default").c_str());
    }
    return made;
  }();
  return testbed.get();
}

std::string systemPath(const std::string& name) {
  return "/sys/devices/usb/" + name + "/video4linux/" + name;
}

}  // namespace

std::optional<std::string> UdevTestbed::whyNot() {
  std::ifstream maps("/proc/self/maps");
  const std::string loaded{std::istreambuf_iterator<char>(maps), {}};
  if (loaded.find("libumockdev-preload") != std::string::npos) return std::nullopt;
  return "the library umockdev is not preloaded, as ctest does it; run this by ctest, or with "
         "LD_PRELOAD=libumockdev-preload.so.0";
}

UdevTestbed::UdevTestbed() { (void)shared(); }

UdevTestbed::~UdevTestbed() {
  while (!plugged_.empty()) unplug(std::string(*plugged_.begin()));
  tidy();
}

void UdevTestbed::tidy() {
  constexpr int mostDescriptors = 4096;
  for (int fd = 3; fd < mostDescriptors; ++fd) {
    int domain = 0, type = 0, listens = 0;
    socklen_t size = sizeof domain;
    sockaddr_un address{};
    socklen_t length = sizeof address;
    // It could not be connected, since its other end was taken away.
    if (::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX &&
        ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM &&
        ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && !listens &&
        ::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 && errno == ENOTCONN) {
      ::close(fd);
    }
  }
}

namespace {
/// What umockdev makes once, some of it on a thread.
const WarmUp kWarmUp([] {
  if (UdevTestbed::whyNot()) return;
  UdevTestbed();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
});
}  // namespace

void UdevTestbed::plug(const Node& node) {
  std::string text = "P: " + systemPath(node.name).substr(4) + "\nE: DEVNAME=" + node.path +
                     "\nE: SUBSYSTEM=video4linux\nA: name=" + node.product + "\nA: index=" + node.index +
                     "\n";
  if (!node.serial.empty()) {
    text += "E: ID_SERIAL=" + node.serial + "\nE: ID_PATH=" + node.port +
            "\nE: ID_V4L_PRODUCT=" + node.product +
            "\nE: ID_V4L_CAPABILITIES=" + (node.index == "0" ? ":capture:" : ":") + "\n";
  }
  plugged_.insert(node.name);
  GError* error = nullptr;
  EXPECT_TRUE(umockdev_testbed_add_from_string(shared(), text.c_str(), &error)) << error->message;
  umockdev_testbed_uevent(shared(), systemPath(node.name).c_str(), "add");
}

void UdevTestbed::unplug(const std::string& name) {
  if (plugged_.erase(name) == 0) return;
  umockdev_testbed_uevent(shared(), systemPath(name).c_str(), "remove");
  umockdev_testbed_remove_device(shared(), systemPath(name).c_str());
}

}  // namespace qeltest
