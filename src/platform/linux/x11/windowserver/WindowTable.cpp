#include "platform/linux/x11/windowserver/WindowTable.h"

#include "platform/linux/x11/windowserver/PresentationPrograms.h"

#include <xcb/res.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

/// Changes come while one asks; a server that never comes to rest is described as it was last.
constexpr int kMostAttempts = 3;
/// Windows that lie deeper in others than this are not looked for.
constexpr int kDeepest = 8;
/// Events after which it is clear that nobody asks any more.
constexpr std::size_t kMostEvents = 500;

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

}  // namespace

std::shared_ptr<WindowTable> WindowTable::make(std::shared_ptr<X11Connection> connection, EventLoop& loop) {
  struct Made : WindowTable {
    Made(std::shared_ptr<X11Connection> server, EventLoop& mainLoop)
        : WindowTable(std::move(server), mainLoop) {}
  };
  auto table = std::make_shared<Made>(std::move(connection), loop);
  table->connection_->addSink(table);
  return table;
}

WindowTable::WindowTable(std::shared_ptr<X11Connection> connection, EventLoop& loop)
    : connection_(std::move(connection)),
      loop_(loop),
      root_(connection_->root()),
      reader_(*connection_),
      hasOwners_(knowsOwners(*connection_)) {}

std::shared_ptr<const WindowList> WindowTable::current() {
  const MutexLock lock(mutex_);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (!receiveEvents()) return nullptr;
    Marks marks = marks_.with([](Marks& noted) {
      Marks taken = std::move(noted);
      noted = Marks{.isTreeStale = false, .areClientsStale = false, .geometry = {}, .properties = {}};
      return taken;
    });
    if (marks.isEmpty() && list_) return list_;
    refresh(std::move(marks));
  }
  return connection_->isAlive() ? list_ : nullptr;
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
    const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    marks_.with([&](Marks& marks) {
      if (reader_.concerns(change.atom)) marks.properties.insert(change.window);
      if (change.window == root_ && reader_.concernsClients(change.atom)) marks.areClientsStale = true;
    });
  } else {
    noteStructure(event);
  }
  const std::size_t events = marks_.with([](Marks& marks) { return ++marks.events; });
  if (events != kMostEvents) return;
  loop_.async([weak = weak_from_this()] {
    if (const auto table = weak.lock()) table->sleepWhenNobodyAsks();
  });
}

void WindowTable::noteStructure(const xcb_generic_event_t& event) {
  switch (event.response_type & kEventTypeMask) {
    case XCB_CREATE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_create_notify_event_t&>(event).window);
    case XCB_DESTROY_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window);
    case XCB_UNMAP_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window);
    case XCB_MAP_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_map_notify_event_t&>(event).window);
    case XCB_REPARENT_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_reparent_notify_event_t&>(event).window);
    case XCB_CONFIGURE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_configure_notify_event_t&>(event).window);
    case XCB_CIRCULATE_NOTIFY:
      return noteWindow(reinterpret_cast<const xcb_circulate_notify_event_t&>(event).window);
    default:
      return;
  }
}

void WindowTable::noteWindow(xcb_window_t window) {
  marks_.with([&](Marks& marks) {
    marks.isTreeStale = true;
    marks.geometry.insert(window);
  });
}

/// Other programs' windows change all day. Whoever asks again finds everything out anew.
void WindowTable::sleepWhenNobodyAsks() {
  {
    const MutexLock lock(mutex_);
    const bool isAsked = marks_.with([](Marks& marks) {
      const bool isInUse = marks.events < kMostEvents;
      if (!isInUse) marks = Marks();
      return isInUse;
    });
    if (isAsked) return;
    list_ = nullptr;
    entries_.clear();
    clients_.clear();
    rootSelection_ = EventSelection();
  }
  whenAsleep_();
}

// ── Asking ────────────────────────────────────────────────────────────────────────────────────────

void WindowTable::refresh(Marks marks) {
  if (!list_) {
    constexpr std::uint32_t kMask =
        XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    rootSelection_ = EventSelection(connection_, root_, kMask);
    marks.isTreeStale = marks.areClientsStale = true;
  }
  for (const xcb_window_t window : marks.geometry) {
    if (const auto entry = entries_.find(window); entry != entries_.end()) entry->second.isStale = true;
  }
  for (const xcb_window_t window : marks.properties) {
    for (auto& [listed, entry] : entries_) {
      if (listed == window || entry.parent == window) entry.properties.reset();
    }
  }
  if (marks.isTreeStale || marks.areClientsStale) askTree(marks.isTreeStale);
  askGeometry();
  dropFormerClients();
  askProperties();
  forgetOthers();
  list_ = compose();
}

void WindowTable::askTree(bool isTreeStale) {
  const Use use(*connection_);
  const auto clientsAsked = reader_.askClients(use, root_);
  if (isTreeStale) {
    const auto tree = use.reply(xcb_query_tree(use, root_), xcb_query_tree_reply);
    children_ = tree ? childrenOf(*tree) : std::vector<xcb_window_t>();
  }
  const auto named = reader_.readClients(use, clientsAsked);
  std::vector<xcb_window_t> clients = named ? *named : findClients(use);
  formerClients_.insert(clients_.begin(), clients_.end());
  for (const xcb_window_t client : clients) formerClients_.erase(client);
  clients.insert(clients.end(), formerClients_.begin(), formerClients_.end());
  clients_ = std::move(clients);
}

void WindowTable::dropFormerClients() {
  const auto isDropped = [&](xcb_window_t client) REQUIRES(mutex_) {
    const Entry* entry = find(client);
    return !entry || !entry->isMapped || entry->parent == root_;
  };
  std::erase_if(clients_, [&](xcb_window_t client) REQUIRES(mutex_) {
    return formerClients_.contains(client) && isDropped(client);
  });
  formerClients_.clear();
}

/// Window managers that keep no list mark their windows.
std::vector<xcb_window_t> WindowTable::findClients(const Use& use) {
  std::vector<xcb_window_t> clients, windows = children_;
  for (int depth = 0; depth <= kFrameDepth && !windows.empty(); ++depth) {
    std::vector<std::pair<xcb_get_property_cookie_t, xcb_query_tree_cookie_t>> asked;
    for (const xcb_window_t window : windows) {
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
  return clients;
}

void WindowTable::askGeometry() {
  std::vector<xcb_window_t> windows = children_;
  windows.insert(windows.end(), clients_.begin(), clients_.end());
  windows.push_back(root_);
  for (int depth = 0; depth < kDeepest && !windows.empty(); ++depth) {
    askGeometry(windows);
    std::vector<xcb_window_t> parents;
    for (const xcb_window_t window : windows) {
      const Entry* entry = find(window);
      if (entry && entry->parent != XCB_NONE && entry->parent != root_) parents.push_back(entry->parent);
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
    const auto [place, isNew] = entries_.try_emplace(window);
    // Watched first and asked for then, so that no change falls between.
    if (isNew && window != root_) place->second.selection = EventSelection(connection_, window, kMask);
    if (!std::exchange(place->second.isStale, false)) continue;
    questions.push_back({window, xcb_get_geometry(use, window), xcb_get_window_attributes(use, window),
                         xcb_query_tree(use, window)});
  }
  for (const Question& question : questions) {
    const auto geometry = use.reply(question.geometry, xcb_get_geometry_reply);
    const auto attributes = use.reply(question.attributes, xcb_get_window_attributes_reply);
    const auto tree = use.reply(question.tree, xcb_query_tree_reply);
    Entry& entry = entries_[question.window];
    entry.isGone = !geometry || !attributes || !tree || geometry->root != root_;
    if (entry.isGone) continue;
    entry.parent = tree->parent;
    entry.x = geometry->x;
    entry.y = geometry->y;
    entry.width = geometry->width;
    entry.height = geometry->height;
    entry.border = geometry->border_width;
    entry.depth = geometry->depth;
    entry.visual = attributes->visual;
    entry.isInputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
    entry.isMapped = attributes->map_state != XCB_MAP_STATE_UNMAPPED;
    entry.isViewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    entry.isOverrideRedirect = attributes->override_redirect;
  }
}

void WindowTable::askProperties() {
  const Listed windows = listed();
  std::vector<std::pair<xcb_window_t, WindowPropertyReader::Question>> questions;
  const Use use(*connection_);
  for (const auto* part : {&windows.onScreen, &windows.offScreen}) {
    for (const auto& [window, top] : *part) {
      if (!entries_[window].properties) questions.emplace_back(window, reader_.ask(use, window, top));
    }
  }
  std::vector<xcb_window_t> fresh;
  for (const auto& [window, question] : questions) {
    entries_[window].properties = reader_.read(use, question);
    fresh.push_back(window);
  }
  findOwners(fresh);
}

void WindowTable::findOwners(const std::vector<xcb_window_t>& windows) {
  const auto processes = askProcesses(windows);
  for (const xcb_window_t window : windows) {
    Entry& entry = entries_[window];
    const std::uint32_t client = clientNumber(window);
    const auto known = processes.find(client);
    const auto process = ownerProcess(known == processes.end() ? std::nullopt : known->second,
                                      entry.properties->processIdentifier, client);
    // Looking a process up reads files; a new title is no reason to.
    if (std::exchange(entry.process, process) == process) continue;
    entry.application = findApplication(process, entry.properties->applicationID);
    if (entry.application.name.empty()) {
      entry.application.name =
          entry.properties->className.empty() ? entry.properties->instanceName : entry.properties->className;
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
  std::set<xcb_window_t> known(children_.begin(), children_.end());
  known.insert(root_);
  for (const xcb_window_t client : clients_) {
    xcb_window_t window = client;
    for (int depth = 0; depth < kDeepest && known.insert(window).second; ++depth) {
      const Entry* entry = find(window);
      if (!entry) break;
      window = entry->parent;
    }
  }
  std::erase_if(entries_,
                [&](const auto& entry) { return entry.second.isGone || !known.contains(entry.first); });
}

// ── Composing ─────────────────────────────────────────────────────────────────────────────────────

const WindowTable::Entry* WindowTable::find(xcb_window_t window) const {
  const auto found = entries_.find(window);
  return found == entries_.end() || found->second.isGone ? nullptr : &found->second;
}

xcb_window_t WindowTable::topOf(xcb_window_t window) const {
  for (int depth = 0; depth < kDeepest; ++depth) {
    const Entry* entry = find(window);
    if (!entry) break;
    if (entry->parent == root_) return window;
    window = entry->parent;
  }
  return XCB_NONE;
}

WindowTable::Listed WindowTable::listed() const {
  Listed windows;
  std::multimap<xcb_window_t, xcb_window_t> clientsOf;
  for (const xcb_window_t client : clients_) {
    const Entry* entry = find(client);
    const xcb_window_t top = topOf(client);
    if (!entry || entry->isInputOnly || top == XCB_NONE) continue;
    clientsOf.emplace(top, client);
    if (!entry->isViewable) windows.offScreen.emplace_back(client, top);
  }
  for (auto top = children_.rbegin(); top != children_.rend(); ++top) {
    const auto [first, last] = clientsOf.equal_range(*top);
    for (auto client = first; client != last; ++client) {
      if (find(client->second)->isViewable) windows.onScreen.emplace_back(client->second, *top);
    }
    const Entry* entry = find(*top);
    if (first != last || !entry || entry->isInputOnly || !entry->isViewable) continue;
    windows.onScreen.emplace_back(*top, *top);
  }
  return windows;
}

PixelRect WindowTable::areaOf(xcb_window_t window) const {
  const Entry* entry = find(window);
  PixelRect area{0, 0, entry ? entry->width : 0, entry ? entry->height : 0};
  for (int depth = 0; depth < kDeepest && entry && window != root_; ++depth) {
    area.x += entry->x + entry->border;
    area.y += entry->y + entry->border;
    window = entry->parent;
    entry = find(window);
  }
  return area;
}

WindowRecord WindowTable::record(xcb_window_t window, xcb_window_t top) const {
  WindowRecord record;
  record.window = window;
  record.top = top;
  const Entry* entry = find(window);
  const Entry* topEntry = find(top);
  if (!entry || !topEntry || !entry->properties) return record;
  const int border = topEntry->border;
  record.topBounds = {topEntry->x, topEntry->y, topEntry->width + 2 * border, topEntry->height + 2 * border};
  record.borderWidth = border;
  const WindowProperties& properties = *entry->properties;
  record.bounds = withoutShadows(areaOf(window), properties.frameExtents);
  record.depth = topEntry->depth;
  record.visual = topEntry->visual;
  record.isOnScreen = entry->isViewable;

  const PresentationProgram* program = entry->application.presentation;
  const auto name = windowName(properties);
  LayerFacts facts;
  facts.type = properties.type;
  facts.isOverrideRedirect = entry->isOverrideRedirect;
  facts.isTransient =
      properties.transientFor != 0 && properties.transientFor != root_ && properties.transientFor != window;
  facts.isModal = properties.isModal;
  facts.isSlideShow = program && isSlideShow(*program, properties.instanceName, name.value_or(""));
  record.layer = windowLayer(facts);
  record.alpha = windowAlpha(properties.opacity);
  record.processIdentifier = entry->process.value_or(0);
  record.ownerName = entry->application.name;
  record.bundleIdentifier = entry->application.bundleIdentifier;
  record.name = name;
  return record;
}

std::shared_ptr<const WindowList> WindowTable::compose() {
  auto list = std::make_shared<WindowList>();
  const Listed windows = listed();
  const auto add = [&](const auto& pairs, std::vector<WindowRecord>& records) REQUIRES(mutex_) {
    for (const auto& [window, top] : pairs) {
      if (entries_[window].properties) records.push_back(record(window, top));
    }
  };
  add(windows.onScreen, list->onScreen);
  add(windows.offScreen, list->offScreen);

  WindowRecord& desktop = list->desktop;
  desktop.window = desktop.top = root_;
  desktop.bounds = desktop.topBounds = areaOf(root_);
  desktop.depth = connection_->screen().root_depth;
  desktop.visual = connection_->screen().root_visual;
  desktop.isOnScreen = true;
  desktop.layer = kDesktopLayer;
  // The server is a client of its own, with the number 0.
  desktop.processIdentifier = ownerProcess(std::nullopt, std::nullopt, 0);
  desktop.ownerName = "X server";
  return list;
}

std::uint32_t WindowTable::clientNumber(xcb_window_t window) const {
  const std::uint32_t mask = connection_->setup().resource_id_mask;
  return mask == 0 ? window : (window & ~mask) >> std::bit_width(mask);
}

}  // namespace QelUtilVideo
