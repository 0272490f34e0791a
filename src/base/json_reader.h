// SPDX-License-Identifier: Apache-2.0
// Pulls values out of a JSON text, one after the other.
#pragma once

#include "base/bytes.h"
#include "base/uuid.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace vexil::json {

struct Error {
    std::string_view reason; // English, of static storage
    std::size_t offset = 0;  // of the token where reading stopped

    bool operator==(const Error&) const = default;
};

// Objects and arrays inside one another; a deeper text is refused.
inline constexpr int kMaxDepth = 64;

// Each read takes the next value and returns true, or returns false, after which error() says why and nothing more
// can be read. What is skipped is checked like what is read, so that a text is either JSON (RFC 8259, valid UTF-8) or
// refused as a whole; of a skipped number only the grammar is checked, not the range.
class Reader {
public:
    // `text` outlives the reader and needs no padding.
    explicit Reader(ByteView text);

    [[nodiscard]] bool readBool(bool& value);
    // Also takes 2.0 and 1e2: what counts is the value, which must be integral and in range.
    [[nodiscard]] bool readInteger(std::int64_t& value);
    // Refuses what a double cannot hold, too close to zero included.
    [[nodiscard]] bool readDouble(double& value);
    [[nodiscard]] bool readString(std::string& value);
    [[nodiscard]] bool readUuid(Uuid& value);
    [[nodiscard]] bool readBase64(Bytes& value);
    // A string that is one of `names`; `index` tells which.
    [[nodiscard]] bool readName(std::span<const std::string_view> names, std::size_t& index);
    [[nodiscard]] bool skip();

    // Takes a null and returns true, or returns false and takes nothing.
    [[nodiscard]] bool takeNull();

    // `onMember(key)` reads or skips the value; the key is valid until it does. `expected`, which may change from
    // member to member, is handed out itself where it is the next key, and is quicker to recognise than another.
    template <class F> [[nodiscard]] bool readObject(const std::string_view& expected, F&& onMember) {
        if (!open('{', "expected an object"))
            return false;
        if (close('}'))
            return true;
        do {
            std::string_view key = expected;
            if ((!takeKey(expected) && !readKey(key)) || !onMember(key))
                return false;
        } while (take(','));
        return close('}') || fail("expected a comma or the end of the object");
    }
    template <class F> [[nodiscard]] bool readObject(F&& onMember) {
        return readObject(std::string_view(), std::forward<F>(onMember));
    }

    // `onElement()` reads or skips the value.
    template <class F> [[nodiscard]] bool readArray(F&& onElement) {
        if (!open('[', "expected an array"))
            return false;
        if (close(']'))
            return true;
        do {
            if (!onElement())
                return false;
        } while (take(','));
        return close(']') || fail("expected a comma or the end of the array");
    }

    // After the one value of a text: true if nothing follows it.
    [[nodiscard]] bool finish();

    // Notes the first failure; always false. `reason` is of static storage.
    bool fail(std::string_view reason);
    [[nodiscard]] Error error() const { return error_.value_or(Error{}); }

    // A place to come back to: at the start of a value that was skipped, or that could not be read as what was hoped.
    class Mark {
        friend class Reader;
        const std::uint32_t* next_ = nullptr;
        int depth_ = 0;
    };
    [[nodiscard]] Mark mark() const;
    void rewind(const Mark& mark);

private:
    [[nodiscard]] bool isNext(char first) const {
        return next_ != end_ && text_[*next_] == static_cast<std::uint8_t>(first);
    }
    [[nodiscard]] bool take(char punctuation) {
        const bool taken = isNext(punctuation);
        next_ += taken ? 1 : 0;
        return taken;
    }
    [[nodiscard]] bool open(char bracket, std::string_view otherwise) {
        if (!take(bracket))
            return fail(otherwise);
        return ++depth_ <= kMaxDepth || fail("nested too deeply");
    }
    [[nodiscard]] bool close(char bracket) {
        const bool closed = take(bracket);
        depth_ -= closed ? 1 : 0;
        return closed;
    }
    // Takes `key`, which needs no escapes, and its colon, or nothing.
    [[nodiscard]] bool takeKey(std::string_view key);
    [[nodiscard]] bool readKey(std::string_view& key);
    [[nodiscard]] std::string_view token() const;
    // The inside of the string that is next, escapes and all.
    [[nodiscard]] bool readRawString(std::string_view& raw);
    // The inside of the string that is next; views `storage` where there were escapes.
    [[nodiscard]] bool readText(std::string_view& text, std::string& storage);
    // A string of which `parse` makes a value, or none, and never makes one where there is a backslash.
    template <class T, class F> [[nodiscard]] bool readParsed(T& value, std::string_view otherwise, F&& parse);

    ByteView text_;
    std::unique_ptr<const std::uint32_t[]> index_; // where each token starts, then the length of the text
    const std::uint32_t* next_ = nullptr;
    const std::uint32_t* end_ = nullptr;
    int depth_ = 0;
    std::string unescapedKey_;
    std::optional<Error> error_;
};

} // namespace vexil::json
