// SPDX-License-Identifier: Apache-2.0
// The panel without its pixels: the real link server, heartbeat, watcher and model on the services of this machine, for
// tests to drive. A command is a line of JSON on standard input; whenever something that a view would draw has changed,
// and after each command, the state goes out as a line of JSON. Ends with its input.
#include "base/json.h"
#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "panel/clipboard_panel_model.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/dbus_notifications.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/key_file_user_defaults.h"
#include "platform/linux/pixbuf_image_codec.h"
#include "platform/linux/system_secure_random.h"
#include "platform/linux/thread_serial_queue.h"
#include "platform/linux/x11_pasteboard.h"

#include <glib-unix.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vexil {

struct PanelCommand {
    std::string command;
    std::optional<Uuid> id; // of a row that is or was visible; else the selected one is meant
    std::optional<Uuid> category;
    std::optional<std::string> text;
};
constexpr auto jsonFields(json::Tag<PanelCommand>) {
    using R = PanelCommand;
    return std::tuple{json::Field{"command", &R::command}, json::Field{"id", &R::id},
                      json::Field{"category", &R::category}, json::Field{"text", &R::text}};
}

struct PanelState {
    std::int64_t commands = 0; // done so far
    std::int64_t picks = 0;    // finished
    bool isConnected = false;
    bool showFavorites = false;
    std::string query;
    std::vector<ClipboardRowSummary> visible;
    std::int64_t historyCount = 0;
    std::int64_t favoritesCount = 0;
    std::vector<ClipboardCategory> categories;
    std::optional<Uuid> selectedCategoryID;
    std::optional<Uuid> selectedRowID;
    std::optional<Uuid> favoriteCandidate;
    std::optional<Uuid> editingRow;
    std::string editingText;
    bool isLoadingEdit = false;
    bool isSavingEdit = false;
    bool canSaveEdit = false;
    std::optional<std::string> editError;
};
constexpr auto jsonFields(json::Tag<PanelState>) {
    using R = PanelState;
    return std::tuple{json::Field{"commands", &R::commands},
                      json::Field{"picks", &R::picks},
                      json::Field{"isConnected", &R::isConnected},
                      json::Field{"showFavorites", &R::showFavorites},
                      json::Field{"query", &R::query},
                      json::Field{"visible", &R::visible},
                      json::Field{"historyCount", &R::historyCount},
                      json::Field{"favoritesCount", &R::favoritesCount},
                      json::Field{"categories", &R::categories},
                      json::Field{"selectedCategoryID", &R::selectedCategoryID},
                      json::Field{"selectedRowID", &R::selectedRowID},
                      json::Field{"favoriteCandidate", &R::favoriteCandidate},
                      json::Field{"editingRow", &R::editingRow},
                      json::Field{"editingText", &R::editingText},
                      json::Field{"isLoadingEdit", &R::isLoadingEdit},
                      json::Field{"isSavingEdit", &R::isSavingEdit},
                      json::Field{"canSaveEdit", &R::canSaveEdit},
                      json::Field{"editError", &R::editError}};
}

namespace {

std::optional<Uuid> idOf(const std::optional<ClipboardRowSummary>& row) {
    return row ? std::optional(row->id) : std::nullopt;
}

class PanelDriver {
public:
    explicit PanelDriver(ClipboardPanelModel& model)
        : model_(model), observation_(model.observe(lifetime_.guard([this](const PanelFields&) { tell(); }))) {
        model_.onPick = lifetime_.guard([this] {
            ++picks_;
            tell();
        });
    }

    // Done, or not understood, which ends the program.
    [[nodiscard]] bool obey(const std::string& line) {
        const auto command = json::read<PanelCommand>(bytesOf(line));
        if (!command || !obey(*command))
            return false;
        ++commands_;
        tell();
        return true;
    }

private:
    [[nodiscard]] bool obey(const PanelCommand& given) {
        const std::string text = given.text.value_or("");
        const std::map<std::string, std::function<void()>> plain = {
            {"show", [&] { model_.prepareForShow(); }},
            {"query", [&] { model_.setQuery(text); }},
            {"tab", [&] { model_.setShowFavorites(text == "favorites"); }},
            {"category", [&] { model_.selectCategory(given.category); }},
            {"down", [&] { (void)model_.moveSelection(1); }},
            {"up", [&] { (void)model_.moveSelection(-1); }},
            {"load", [&] { model_.loadEditText(); }},
            {"text", [&] { model_.setEditingText(text); }},
            {"save", [&] { model_.saveEdit(text, given.category); }},
            {"end edit", [&] { model_.endEdit(); }},
        };
        if (const auto found = plain.find(given.command); found != plain.end()) {
            found->second();
            return true;
        }
        const auto id = given.id ? given.id : model_.selectedRowID();
        const auto row = id ? shown_.find(*id) : shown_.end();
        return row != shown_.end() && obeyOnRow(given, row->second);
    }

    [[nodiscard]] bool obeyOnRow(const PanelCommand& given, const ClipboardRowSummary& row) {
        const std::map<std::string, std::function<void()>> deeds = {
            {"pick", [&] { model_.pick(row); }},
            {"delete", [&] { model_.deleteRow(row.id); }},
            {"pin", [&] { model_.togglePin(row); }},
            {"star", [&] { model_.toggleFavorite(row); }},
            {"favorite", [&] { model_.favorite(row, given.category); }},
            {"edit", [&] { model_.beginEdit(row); }},
        };
        const auto found = deeds.find(given.command);
        if (found == deeds.end())
            return false;
        found->second();
        return true;
    }

    void tell() {
        PanelState state{.commands = commands_,
                         .picks = picks_,
                         .isConnected = model_.isConnected(),
                         .showFavorites = model_.showFavorites(),
                         .query = model_.query(),
                         .visible = {model_.visibleRows().begin(), model_.visibleRows().end()},
                         .historyCount = static_cast<std::int64_t>(model_.history().size()),
                         .favoritesCount = static_cast<std::int64_t>(model_.favorites().size()),
                         .categories = model_.categories(),
                         .selectedCategoryID = model_.selectedCategoryID(),
                         .selectedRowID = model_.selectedRowID(),
                         .favoriteCandidate = idOf(model_.favoriteCandidate()),
                         .editingRow = idOf(model_.editingRow()),
                         .editingText = model_.editingText(),
                         .isLoadingEdit = model_.isLoadingEdit(),
                         .isSavingEdit = model_.isSavingEdit(),
                         .canSaveEdit = model_.canSaveEdit(),
                         .editError = model_.editError()};
        for (auto& row : state.visible) {
            shown_[row.id] = row;
            row.thumbnail.reset();
        }
        Bytes line;
        json::append(line, state);
        line.push_back('\n');
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
    }

    ClipboardPanelModel& model_;
    std::int64_t commands_ = 0;
    std::int64_t picks_ = 0;
    std::unordered_map<Uuid, ClipboardRowSummary>
        shown_; // as each row was told last: a person may act on a row that has gone
    Lifetime lifetime_;
    std::unique_ptr<PanelObservation> observation_;
};

// Standard input, cut into lines that go to the driver; its end, or a line without meaning, ends the queue.
class CommandInput {
public:
    CommandInput(GlibMainQueue& mainQueue, PanelDriver& driver)
        : mainQueue_(mainQueue), driver_(driver), source_(g_unix_fd_add(STDIN_FILENO, G_IO_IN, &onInput, this)) {}
    CommandInput(const CommandInput&) = delete;
    CommandInput& operator=(const CommandInput&) = delete;
    ~CommandInput() {
        if (source_ != 0)
            g_source_remove(source_);
    }

    [[nodiscard]] bool wasUnderstood() const { return wasUnderstood_; }

private:
    static gboolean onInput(gint descriptor, GIOCondition /*condition*/, gpointer self) {
        return static_cast<CommandInput*>(self)->read(descriptor);
    }

    gboolean read(int descriptor) {
        std::array<char, 4096> piece{};
        const ssize_t size = ::read(descriptor, piece.data(), piece.size());
        if (size <= 0)
            return end();
        pending_.append(piece.data(), static_cast<std::size_t>(size));
        for (auto newline = pending_.find('\n'); newline != std::string::npos; newline = pending_.find('\n')) {
            const std::string line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            // In a turn of the queue, like all that a view does.
            mainQueue_.post(lifetime_.guard([this, line] {
                if (!driver_.obey(line)) {
                    std::fprintf(stderr, "panel_driver: cannot do %s\n", line.c_str());
                    wasUnderstood_ = false;
                    mainQueue_.quit();
                }
            }));
        }
        return G_SOURCE_CONTINUE;
    }

    gboolean end() {
        source_ = 0;
        mainQueue_.quit();
        return G_SOURCE_REMOVE;
    }

    GlibMainQueue& mainQueue_;
    PanelDriver& driver_;
    std::string pending_;
    bool wasUnderstood_ = true;
    guint source_;
    Lifetime lifetime_;
};

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

int drive() {
    std::signal(SIGPIPE, SIG_IGN);
    GlibMainQueue mainQueue;
    AsioLoopbackTcp network(mainQueue);
    SystemSecureRandom random;
    DBusNotifications notifications(mainQueue, sessionBusAddress());
    PixbufImageCodec codec;
    X11Pasteboard pasteboard(mainQueue, environment("DISPLAY"));
    ThreadSerialQueue processing("clipboard");
    ThreadSerialQueue worker("panel");
    KeyFileUserDefaults defaults(mainQueue, environment("XDG_CONFIG_HOME") + "/VexilShortcut/defaults.ini");

    ClipboardLinkServer server(mainQueue, network, random);
    HeartbeatBroadcaster heartbeat(mainQueue, notifications);
    ClipboardWatcher watcher(mainQueue, pasteboard, processing, codec, server);
    ClipboardPanelModel model(server, watcher,
                              {.mainQueue = mainQueue,
                               .pasteboard = pasteboard,
                               .imageCodec = codec,
                               .worker = worker,
                               .defaults = defaults});
    PanelDriver driver(model);
    CommandInput input(mainQueue, driver);

    mainQueue.post([&] {
        server.start();
        heartbeat.start(server, [] { return false; });
        watcher.start();
    });
    mainQueue.runUntilTerminated();
    return input.wasUnderstood() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace
} // namespace vexil

int main() {
    return vexil::drive();
}
