// SPDX-License-Identifier: Apache-2.0
// A clipboard owner for the tests that tells what it is asked for.
//
//   clipboard_owner [--hang] TARGET=FILE...
//
// Takes CLIPBOARD and offers each target with the bytes of its file (at most 60,000, so that no INCR is needed).
// Prints "owned", then a line "asked TARGET" per request, in order. With --hang it answers TARGETS and nothing else.
// Ends with "lost" when another client takes the clipboard.

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kMaxBytes = 60'000;

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T> using Reply = std::unique_ptr<T, Free>;

class ClipboardOwner {
public:
    explicit ClipboardOwner(bool hangs) : connection_(xcb_connect(nullptr, nullptr)), hangs_(hangs) {}
    ~ClipboardOwner() { xcb_disconnect(connection_); }
    ClipboardOwner(const ClipboardOwner&) = delete;
    ClipboardOwner& operator=(const ClipboardOwner&) = delete;

    [[nodiscard]] bool isConnected() const { return xcb_connection_has_error(connection_) == 0; }

    void offer(const std::string& target, std::string bytes) { offered_[atom(target)] = std::move(bytes); }

    bool own() {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        window_ = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
        xcb_set_selection_owner(connection_, window_, atom("CLIPBOARD"), XCB_CURRENT_TIME);
        const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
            connection_, xcb_get_selection_owner(connection_, atom("CLIPBOARD")), nullptr));
        return owner && owner->owner == window_;
    }

    void serve() {
        while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection_)}) {
            const int type = event->response_type & 0x7f;
            if (type == XCB_SELECTION_CLEAR) {
                say("lost");
                return;
            }
            if (type == XCB_SELECTION_REQUEST)
                answer(*reinterpret_cast<const xcb_selection_request_event_t*>(event.get()));
        }
    }

    static void say(const std::string& line) {
        std::puts(line.c_str());
        std::fflush(stdout);
    }

private:
    xcb_atom_t atom(const std::string& name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    std::string nameOf(xcb_atom_t atom) {
        const Reply<xcb_get_atom_name_reply_t> reply(
            xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr));
        if (!reply)
            return "?";
        return {xcb_get_atom_name_name(reply.get()),
                static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
    }

    void answer(const xcb_selection_request_event_t& request) {
        say("asked " + nameOf(request.target));
        const bool asksTargets = request.target == atom("TARGETS");
        if (hangs_ && !asksTargets)
            return;
        xcb_atom_t property = request.property == XCB_ATOM_NONE ? request.target : request.property;
        if (asksTargets) {
            std::vector<xcb_atom_t> targets{atom("TARGETS")};
            for (const auto& [target, bytes] : offered_)
                targets.push_back(target);
            xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM, 32,
                                static_cast<std::uint32_t>(targets.size()), targets.data());
        } else if (const auto found = offered_.find(request.target); found != offered_.end()) {
            xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target, 8,
                                static_cast<std::uint32_t>(found->second.size()), found->second.data());
        } else {
            property = XCB_ATOM_NONE;
        }
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = property;
        xcb_send_event(connection_, 0, request.requestor, 0, reinterpret_cast<const char*>(&notify));
        xcb_flush(connection_);
    }

    xcb_connection_t* connection_;
    bool hangs_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    std::map<xcb_atom_t, std::string> offered_;
};

int fail(const std::string& message) {
    std::fprintf(stderr, "clipboard_owner: %s\n", message.c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    const bool hangs = !words.empty() && words.front() == "--hang";
    if (hangs)
        words.erase(words.begin());
    ClipboardOwner owner(hangs);
    if (!owner.isConnected())
        return fail("no X display answers");
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos)
            return fail("not TARGET=FILE: " + word);
        std::ifstream file(word.substr(equals + 1), std::ios::binary);
        if (!file)
            return fail("cannot read " + word.substr(equals + 1));
        std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        if (bytes.size() > kMaxBytes)
            return fail(word + " holds more than one property takes");
        owner.offer(word.substr(0, equals), std::move(bytes));
    }
    if (!owner.own())
        return fail("another client holds on to the clipboard");
    ClipboardOwner::say("owned");
    owner.serve();
    return 0;
}
