#include "platform/linux/x11/windowserver/WindowTable.h"

#include <unistd.h>
#include <xcb/res.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

/// Changes come while one asks; a server that never comes to rest is described as it was last.
constexpr int kMostAttempts = 3;
/// Events after which it is worth looking whether anybody still asks.
constexpr std::size_t kMostEvents = 500;
/// More than a desktop has: whoever names more is not believed.
constexpr std::size_t kMostClients = 2000;

/// Where the windows of a window manager without a list lie below the root's children, at the most.
constexpr int kFrameDepth = 2;

bool knowsOwners(X11Connection& connection) {
  const Use use(connection);
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_res_id);
  if (!extension || !extension->present) return false;
  const auto version = use.reply(xcb_res_query_version(use, 1, 2), xcb_res_query_version_reply);
  return version && (version->server_major > 1 || version->server_minor >= 2);
}

std::vector<xcb_window_t> childrenOf(const xcb_query_tree_reply_t& tree) {
  const xcb_window_t* first = xcb_query_tree_children(&tree);
  return {first, first + xcb_query_tree_children_length(&tree)};
}

/// The process in the answer about one client; absent when it has none.
std::optional<std::uint32_t> processIn(const xcb_res_query_client_ids_reply_t& reply) {
  for (auto ids = xcb_res_query_client_ids_ids_iterator(&reply); ids.rem > 0;
       xcb_res_client_id_value_next(&ids)) {
    const bool isProcess = ids.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID;
    if (isProcess && xcb_res_client_id_value_value_length(ids.data) > 0) {
      return *xcb_res_client_id_value_value(ids.data);
    }
  }
  return std::nullopt;
}

std::string hostName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

std::shared_ptr<WindowTable> WindowTable::make(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                                               Pause longestPause) {
  struct Made : WindowTable {
    Made(std::shared_ptr<X11Connection> server, EventLoop& mainLoop, Pause pause)
        : WindowTable(std::move(server), mainLoop, pause) {}
  };
  auto table = std::make_shared<Made>(std::move(connection), loop, longestPause);
  table->connection_->addSink(table);
  return table;
}

WindowTable::WindowTable(std::shared_ptr<X11Connection> connection, EventLoop& loop, Pause longestPause)
    : connection_(std::move(connection)),
      loop_(loop),
      root_(connection_->root()),
      longestPause_(longestPause),
      reader_(*connection_),
      hasOwners_(knowsOwners(*connection_)),
      machine_(hostName()),
      tree_(root_) {}

std::shared_ptr<const WindowList> WindowTable::current() {
  const MutexLock lock(mutex_);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (!receiveEvents()) return nullptr;
    Marks marks = events_.with([](Events& events) {
      events.count = 0;
      events.lastAsked = std::chrono::steady_clock::now();
      return std::exchange(events.marks, {});
    });
    if (marks.isEmpty() && list_) return list_;
    try {
      refresh(std::move(marks));
    } catch (...) {
      forgetAll();  // half of it is new and half of it old
      throw;
    }
  }
  return connection_->isAlive() ? list_ : nullptr;
}

std::shared_ptr<const WindowList> WindowTable::lastKnown() {
  const MutexLock lock(mutex_);
  const bool isUnchanged = events_.with([](Events& events) {
    events.lastAsked = std::chrono::steady_clock::now();
    return events.marks.isEmpty();
  });
  return isUnchanged ? list_ : nullptr;
}

bool WindowTable::isStill(const std::shared_ptr<const WindowList>& list) {
  connection_->awaitEvents();
  const MutexLock lock(mutex_);
  return list == list_ && events_.with([](Events& events) { return events.marks.isEmpty(); });
}

// ── Events ────────────────────────────────────────────────────────────────────────────────────────

/// An answer to anything comes after the events before it.
bool WindowTable::receiveEvents() {
  {
    const Use use(*connection_);
    if (!use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply)) return false;
  }
  connection_->awaitEvents();
  return true;
}

void WindowTable::handleEvent(const xcb_generic_event_t& event) {
  if ((event.response_type & kEventTypeMask) == XCB_PROPERTY_NOTIFY) {
    noteProperty(reinterpret_cast<const xcb_property_notify_event_t&>(event));
  } else {
    noteStructure(event);
  }
  const bool isForNobody = events_.with([&](Events& events) {
    if (++events.count < kMostEvents) return false;
    events.count = 0;
    return std::chrono::steady_clock::now() - events.lastAsked > longestPause_;
  });
  if (!isForNobody) return;
  loop_.async([weak = weak_from_this()] {
    if (const auto table = weak.lock()) table->sleepWhenNobodyAsks();
  });
}

void WindowTable::noteStructure(const xcb_generic_event_t& event) {
  switch (event.response_type & kEventTypeMask) {
    case XCB_CREATE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_create_notify_event_t&>(event).window, true);
    case XCB_DESTROY_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window, true);
    case XCB_UNMAP_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window);
    case XCB_MAP_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_map_notify_event_t&>(event).window);
    case XCB_REPARENT_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_reparent_notify_event_t&>(event).window);
    case XCB_CONFIGURE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_configure_notify_event_t&>(event).window);
    case XCB_GRAVITY_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_gravity_notify_event_t&>(event).window);
    case XCB_CIRCULATE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_circulate_notify_event_t&>(event).window);
    default:
      return;
  }
}

void WindowTable::noteWindow(xcb_window_t window, bool isAnother) {
  events_.with([&](Events& events) {
    events.marks.isTreeStale = true;
    events.marks.geometry.insert(window);
    if (isAnother) events.marks.others.insert(window);
  });
}

void WindowTable::noteProperty(const xcb_property_notify_event_t& change) {
  const bool areClients =
      change.window == root_ ? reader_.concernsClients(change.atom) : reader_.concernsState(change.atom);
  events_.with([&](Events& events) {
    if (areClients) events.marks.areClientsStale = true;
    if (reader_.concerns(change.atom)) events.marks.properties.insert(change.window);
  });
}

/// Other programs' windows change all day. Whoever asks again finds everything out anew.
void WindowTable::sleepWhenNobodyAsks() {
  {
    const MutexLock lock(mutex_);
    const bool isAsked = events_.with([this](Events& events) {
      return std::chrono::steady_clock::now() - events.lastAsked <= longestPause_;
    });
    if (isAsked) return;
    forgetAll();
    xcb_flush(Use(*connection_));
  }
  whenAsleep_();
}

void WindowTable::forgetAll() {
  list_ = nullptr;
  watches_.clear();
  searched_.clear();
  formerClients_.clear();
  tree_ = WindowTree(root_);
  rootSelection_ = EventSelection();
  events_.with([](Events& events) { events.marks = {}; });
}

// ── Asking ────────────────────────────────────────────────────────────────────────────────────────

void WindowTable::refresh(Marks marks) {
  if (!list_) {
    constexpr std::uint32_t kMask =
        XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    rootSelection_ = EventSelection(connection_, root_, kMask);
    marks.isTreeStale = true;
  }
  forget(marks);
  if (marks.isTreeStale || marks.areClientsStale) askTree(marks.isTreeStale);
  askGeometry();
  dropFormerClients();
  askProperties();
  forgetOthers();
  list_ = std::make_shared<WindowList>(tree_.list());
}

void WindowTable::forget(const Marks& marks) {
  for (const xcb_window_t window : marks.others) {
    watches_.erase(window);
    searched_.erase(window);
    tree_.nodes.erase(window);
  }
  for (const xcb_window_t window : marks.geometry) {
    if (const auto watch = watches_.find(window); watch != watches_.end()) watch->second.isStale = true;
  }
  if (marks.properties.empty()) return;
  for (auto& [window, node] : tree_.nodes) {
    if (marks.properties.contains(window) || marks.properties.contains(node.propertiesTop)) {
      node.propertiesTop = XCB_NONE;
    }
  }
}

void WindowTable::askTree(bool isTreeStale) {
  const Use use(*connection_);
  const auto clientsAsked = reader_.askClients(use, root_);
  if (isTreeStale) {
    const auto tree = use.reply(xcb_query_tree(use, root_), xcb_query_tree_reply);
    tree_.children = tree ? childrenOf(*tree) : std::vector<xcb_window_t>();
  }
  if (auto named = reader_.readClients(use, clientsAsked)) {
    searched_.clear();
    takeClients(*std::move(named));
  } else {
    takeClients(findClients(use));
  }
}

void WindowTable::takeClients(std::vector<xcb_window_t> named) {
  std::vector<xcb_window_t> clients;
  std::set<xcb_window_t> known;
  for (const xcb_window_t client : named) {
    if (clients.size() < kMostClients && known.insert(client).second) clients.push_back(client);
  }
  for (const xcb_window_t former : tree_.clients) {
    if (!known.insert(former).second) continue;
    formerClients_.insert(former);
    clients.push_back(former);
  }
  tree_.clients = std::move(clients);
}

/// Window managers that keep no list mark their windows.
std::vector<xcb_window_t> WindowTable::findClients(const Use& use) {
  std::vector<xcb_window_t> clients, windows = tree_.children;
  std::map<xcb_window_t, EventSelection> searched;
  for (int depth = 0; depth <= kFrameDepth && !windows.empty(); ++depth) {
    std::vector<std::pair<xcb_get_property_cookie_t, xcb_query_tree_cookie_t>> asked;
    for (const xcb_window_t window : windows) {
      // The mark may come later than the window.
      auto known = searched_.extract(window);
      searched.emplace(window, known.empty()
                                   ? EventSelection(use, connection_, window, XCB_EVENT_MASK_PROPERTY_CHANGE)
                                   : std::move(known.mapped()));
      asked.emplace_back(reader_.askState(use, window), xcb_query_tree(use, window));
    }
    std::vector<xcb_window_t> below;
    for (std::size_t i = 0; i < windows.size(); ++i) {
      const bool isClient = WindowPropertyReader::readState(use, asked[i].first);
      const auto tree = use.reply(asked[i].second, xcb_query_tree_reply);
      if (isClient) clients.push_back(windows[i]);
      if (isClient || !tree) continue;
      const auto children = childrenOf(*tree);
      below.insert(below.end(), children.begin(), children.end());
    }
    windows = std::move(below);
  }
  searched_ = std::move(searched);
  return clients;
}

void WindowTable::askGeometry() {
  std::vector<xcb_window_t> windows = tree_.children;
  windows.insert(windows.end(), tree_.clients.begin(), tree_.clients.end());
  windows.push_back(root_);
  for (int depth = 0; depth < WindowTree::kDeepest && !windows.empty(); ++depth) {
    askGeometry(windows);
    std::vector<xcb_window_t> parents;
    for (const xcb_window_t window : windows) {
      const WindowNode* node = tree_.find(window);
      if (node && node->parent != XCB_NONE && node->parent != root_) parents.push_back(node->parent);
    }
    windows = std::move(parents);
  }
}

void WindowTable::askGeometry(const std::vector<xcb_window_t>& windows) {
  constexpr std::uint32_t kMask = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
  struct Question {
    xcb_window_t window;
    xcb_get_geometry_cookie_t geometry;
    xcb_get_window_attributes_cookie_t attributes;
    xcb_query_tree_cookie_t tree;
  };
  const Use use(*connection_);
  std::vector<Question> questions;
  for (const xcb_window_t window : windows) {
    const auto [place, isNew] = watches_.try_emplace(window);
    // Watched first and asked for then, so that no change falls between.
    if (isNew && window != root_) place->second.selection = EventSelection(use, connection_, window, kMask);
    if (!std::exchange(place->second.isStale, false)) continue;
    questions.push_back({window, xcb_get_geometry(use, window), xcb_get_window_attributes(use, window),
                         xcb_query_tree(use, window)});
  }
  for (const Question& question : questions) {
    const auto geometry = use.reply(question.geometry, xcb_get_geometry_reply);
    const auto attributes = use.reply(question.attributes, xcb_get_window_attributes_reply);
    const auto tree = use.reply(question.tree, xcb_query_tree_reply);
    if (!geometry || !attributes || !tree || geometry->root != root_) {
      tree_.nodes.erase(question.window);
      continue;
    }
    WindowNode& node = tree_.nodes[question.window];
    if (node.life == 0) node.life = ++lives_;
    node.parent = tree->parent;
    node.x = geometry->x;
    node.y = geometry->y;
    node.width = geometry->width;
    node.height = geometry->height;
    node.border = geometry->border_width;
    node.depth = geometry->depth;
    node.visual = attributes->visual;
    node.isInputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
    node.isMapped = attributes->map_state != XCB_MAP_STATE_UNMAPPED;
    node.isOverrideRedirect = attributes->override_redirect;
  }
}

void WindowTable::dropFormerClients() {
  std::erase_if(tree_.clients, [&](xcb_window_t client) REQUIRES(mutex_) {
    if (!formerClients_.contains(client)) return false;
    const WindowNode* node = tree_.find(client);
    return !node || !node->isMapped || node->parent == root_;
  });
  formerClients_.clear();
}

void WindowTable::askProperties() { findOwners(readProperties()); }

/// Of the listed windows whose properties are not known; gives these windows.
std::vector<xcb_window_t> WindowTable::readProperties() {
  const WindowTree::Listed windows = tree_.listed();
  std::vector<std::pair<xcb_window_t, WindowPropertyReader::Question>> questions;
  const Use use(*connection_);
  for (const auto* part : {&windows.onScreen, &windows.offScreen}) {
    for (const auto& [window, top] : *part) {
      WindowNode& node = tree_.nodes[window];
      if (std::exchange(node.propertiesTop, top) == top) continue;
      questions.emplace_back(window, reader_.ask(use, window, top));
    }
  }
  std::vector<xcb_window_t> fresh;
  for (const auto& [window, question] : questions) {
    WindowProperties properties = reader_.read(use, question);
    WindowNode& node = tree_.nodes[window];
    if (!node.properties || !node.properties->isOfSameApplication(properties)) node.process.reset();
    node.properties = std::move(properties);
    fresh.push_back(window);
  }
  return fresh;
}

void WindowTable::findOwners(const std::vector<xcb_window_t>& windows) {
  const auto processes = askProcesses(windows);
  std::map<std::pair<std::int32_t, std::optional<std::string>>, Application> applications;
  for (const xcb_window_t window : windows) {
    WindowNode& node = tree_.nodes[window];
    const WindowProperties& properties = *node.properties;
    const std::uint32_t client = clientNumber(window);
    const auto known = processes.find(client);
    const bool isOfHere = !properties.clientMachine || properties.clientMachine == machine_;
    const auto process = ownerProcess(known == processes.end() ? std::nullopt : known->second,
                                      isOfHere ? properties.processIdentifier : std::nullopt, client);
    // Looking a process up reads files; a new title is no reason to.
    if (std::exchange(node.process, process) == process) continue;
    const auto [found, isNew] = applications.try_emplace({process, properties.applicationID});
    if (isNew) found->second = findApplication(process, properties.applicationID);
    node.application = found->second;
    if (node.application.name.empty()) {
      node.application.name = properties.className.empty() ? properties.instanceName : properties.className;
    }
  }
}

/// The processes of the clients that these windows belong to, by the clients' numbers.
std::map<std::uint32_t, std::optional<std::uint32_t>> WindowTable::askProcesses(
    const std::vector<xcb_window_t>& windows) {
  std::map<std::uint32_t, std::optional<std::uint32_t>> processes;
  if (!hasOwners_) return processes;
  const Use use(*connection_);
  std::map<std::uint32_t, xcb_res_query_client_ids_cookie_t> asked;
  for (const xcb_window_t window : windows) {
    const xcb_res_client_id_spec_t about{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const std::uint32_t client = clientNumber(window);
    if (!asked.contains(client)) asked[client] = xcb_res_query_client_ids(use, 1, &about);
  }
  for (const auto& [client, cookie] : asked) {
    const auto reply = use.reply(cookie, xcb_res_query_client_ids_reply);
    if (reply) processes[client] = processIn(*reply);
  }
  return processes;
}

void WindowTable::forgetOthers() {
  std::set<xcb_window_t> known(tree_.children.begin(), tree_.children.end());
  known.insert(root_);
  for (const xcb_window_t client : tree_.clients) {
    xcb_window_t window = client;
    for (int depth = 0; depth < WindowTree::kDeepest && known.insert(window).second; ++depth) {
      const WindowNode* node = tree_.find(window);
      if (!node) break;
      window = node->parent;
    }
  }
  const auto isOther = [&](const auto& entry) { return !known.contains(entry.first); };
  std::erase_if(tree_.nodes, isOther);
  std::erase_if(watches_, isOther);
}

std::uint32_t WindowTable::clientNumber(xcb_window_t window) const {
  const std::uint32_t mask = connection_->setup().resource_id_mask;
  return mask == 0 ? window : (window & ~mask) >> std::bit_width(mask);
}

}  // namespace QelUtilVideo
