// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/key_file_user_defaults.h"

#include "base/bytes.h"
#include "platform/linux/durable_file.h"

#include <algorithm>
#include <cassert>
#include <future>
#include <system_error>
#include <utility>

namespace vexil {

namespace {

constexpr const char* kGroup = "defaults";

// The characters that need no escaping in a key file.
[[maybe_unused]] bool isKey(const std::string& key) {
    return !key.empty() && std::all_of(key.begin(), key.end(),
                                       [](char c) { return g_ascii_isalnum(c) || c == '.' || c == '-' || c == '_'; });
}

GlibPtr<GKeyFile> read(const std::filesystem::path& file) {
    GlibPtr<GKeyFile> keys(g_key_file_new());
    std::error_code error;
    // Anything else, a pipe for one, might never come to an end.
    if (!std::filesystem::is_regular_file(file, error))
        return keys;
    if (g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr))
        return keys;
    return GlibPtr<GKeyFile>(g_key_file_new()); // what was read before the mistake is not trusted either
}

} // namespace

KeyFileUserDefaults::KeyFileUserDefaults(MainQueue& mainQueue, std::filesystem::path file)
    : mainQueue_(mainQueue), file_(std::move(file)), keys_(read(file_)) {}

// The queue alone would drop what has not begun: a tab chosen just before the session ends.
KeyFileUserDefaults::~KeyFileUserDefaults() {
    if (!hasWritten_)
        return;
    std::promise<void> isWritten;
    writing_.post([&isWritten] { isWritten.set_value(); });
    isWritten.get_future().wait();
}

std::optional<bool> KeyFileUserDefaults::boolean(const std::string& key) const {
    GError* raw = nullptr;
    const bool value = g_key_file_get_boolean(keys_.get(), kGroup, key.c_str(), &raw) != FALSE;
    const GlibPtr<GError> error(raw);
    return error ? std::nullopt : std::optional(value);
}

void KeyFileUserDefaults::setBoolean(const std::string& key, bool value,
                                     UniqueFunction<void(bool isDurable)> completion) {
    assert(isKey(key));
    g_key_file_set_boolean(keys_.get(), kGroup, key.c_str(), value ? TRUE : FALSE);
    gsize size = 0;
    const GlibPtr<gchar> text(g_key_file_to_data(keys_.get(), &size, nullptr));
    auto tell = lifetime_.guard([completion = std::move(completion)](bool isDurable) mutable {
        if (completion)
            completion(isDurable);
    });
    hasWritten_ = true;
    writing_.post([&queue = mainQueue_, file = file_, contents = copyOf(bytesOf({text.get(), size})),
                   tell = std::move(tell)]() mutable {
        const bool isDurable = replaceFileDurably(file, contents);
        queue.post([tell = std::move(tell), isDurable]() mutable { tell(isDurable); });
    });
}

} // namespace vexil
