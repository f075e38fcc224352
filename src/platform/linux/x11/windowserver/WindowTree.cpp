#include "platform/linux/x11/windowserver/WindowTree.h"

#include "platform/linux/x11/windowserver/PresentationPrograms.h"
#include "platform/linux/x11/windowserver/WindowLayers.h"

namespace QelUtilVideo {

const WindowNode* WindowTree::find(xcb_window_t window) const {
  const auto found = nodes.find(window);
  return found == nodes.end() ? nullptr : &found->second;
}

xcb_window_t WindowTree::topOf(xcb_window_t window) const {
  for (int depth = 0; depth < kDeepest; ++depth) {
    const WindowNode* node = find(window);
    if (!node) break;
    if (node->parent == root) return window;
    window = node->parent;
  }
  return XCB_NONE;
}

bool WindowTree::isViewable(xcb_window_t window) const {
  for (int depth = 0; depth < kDeepest; ++depth) {
    const WindowNode* node = find(window);
    if (!node || !node->isMapped) return false;
    if (node->parent == root) return true;
    window = node->parent;
  }
  return false;
}

WindowTree::Listed WindowTree::listed() const {
  Listed windows;
  std::multimap<xcb_window_t, xcb_window_t> clientsOf;
  for (const xcb_window_t client : clients) {
    const WindowNode* node = find(client);
    const xcb_window_t top = topOf(client);
    if (!node || node->isInputOnly || top == XCB_NONE) continue;
    clientsOf.emplace(top, client);
    if (!isViewable(client)) windows.offScreen.emplace_back(client, top);
  }
  for (auto top = children.rbegin(); top != children.rend(); ++top) {
    const auto [first, last] = clientsOf.equal_range(*top);
    for (auto client = first; client != last; ++client) {
      if (isViewable(client->second)) windows.onScreen.emplace_back(client->second, *top);
    }
    const WindowNode* node = find(*top);
    if (first != last || !node || node->isInputOnly || !isViewable(*top)) continue;
    windows.onScreen.emplace_back(*top, *top);
  }
  return windows;
}

PixelRect WindowTree::areaOf(xcb_window_t window) const {
  const WindowNode* node = find(window);
  PixelRect area{0, 0, node ? node->width : 0, node ? node->height : 0};
  for (int depth = 0; depth < kDeepest && node && window != root; ++depth) {
    area.x += node->x + node->border;
    area.y += node->y + node->border;
    window = node->parent;
    node = find(window);
  }
  return area;
}

std::optional<WindowRecord> WindowTree::record(xcb_window_t window, xcb_window_t top) const {
  const WindowNode* node = find(window);
  const WindowNode* topNode = find(top);
  if (!node || !topNode || !node->properties) return std::nullopt;
  const WindowProperties& properties = *node->properties;
  WindowRecord record;
  record.window = window;
  record.top = top;
  record.topLife = topNode->life;
  record.isTopViewable = topNode->isMapped;
  const int border = topNode->border;
  record.topBounds = {topNode->x, topNode->y, topNode->width + 2 * border, topNode->height + 2 * border};
  record.borderWidth = border;
  record.bounds = withoutShadows(areaOf(window), properties.frameExtents);
  record.depth = topNode->depth;
  record.visual = topNode->visual;
  record.isOnScreen = isViewable(window);

  const PresentationProgram* program = node->application.presentation;
  record.name = windowName(properties);
  LayerFacts facts;
  facts.type = properties.type;
  facts.isOverrideRedirect = node->isOverrideRedirect;
  facts.isTransient =
      properties.transientFor != 0 && properties.transientFor != root && properties.transientFor != window;
  facts.isModal = properties.isModal;
  facts.isSlideShow = program && isSlideShow(*program, properties.instanceName, record.name.value_or(""));
  record.layer = windowLayer(facts);
  record.alpha = windowAlpha(properties.opacity);
  record.processIdentifier = node->process.value_or(0);
  record.ownerName = node->application.name;
  record.bundleIdentifier = node->application.bundleIdentifier;
  return record;
}

WindowRecord WindowTree::desktop() const {
  WindowRecord desktop;
  desktop.window = desktop.top = root;
  desktop.bounds = desktop.topBounds = areaOf(root);
  if (const WindowNode* node = find(root)) {
    desktop.topLife = node->life;
    desktop.depth = node->depth;
    desktop.visual = node->visual;
  }
  desktop.isOnScreen = desktop.isTopViewable = true;
  desktop.layer = kDesktopLayer;
  // The server is a client of its own, with the number 0.
  desktop.processIdentifier = ownerProcess(std::nullopt, std::nullopt, 0);
  desktop.ownerName = "X server";
  return desktop;
}

WindowList WindowTree::list() const {
  WindowList list;
  const Listed windows = listed();
  for (const auto& [window, top] : windows.onScreen) {
    if (auto known = record(window, top)) list.onScreen.push_back(*std::move(known));
  }
  for (const auto& [window, top] : windows.offScreen) {
    if (auto known = record(window, top)) list.offScreen.push_back(*std::move(known));
  }
  list.desktop = desktop();
  return list;
}

}  // namespace QelUtilVideo
