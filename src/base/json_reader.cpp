// SPDX-License-Identifier: Apache-2.0
#include "base/json_reader.h"

#include "base/base64.h"
#include "base/json_scalars.h"

#include <simdjson.h>

#include <algorithm>
#include <cassert>
#include <limits>

namespace vexil::json {

namespace {

constexpr std::uint32_t kNothing[] = {0};

bool isSpace(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

} // namespace

// Of simdjson only the first stage is used, which checks the UTF-8 and finds the tokens at several bytes per cycle. Its
// second stage would build a tree or a tape that the records have no use for, and its on-demand reader does not check
// what it skips.
Reader::Reader(ByteView text) : text_(text), next_(kNothing), end_(kNothing) {
    if (text.empty() || text.size() >= std::numeric_limits<std::uint32_t>::max()) {
        fail(text.empty() ? "empty text" : "text too long");
        return;
    }
    std::unique_ptr<simdjson::internal::dom_parser_implementation> stages;
    auto status = simdjson::get_active_implementation()->create_dom_parser_implementation(text.size(), 1, stages);
    if (status == simdjson::SUCCESS)
        status = stages->stage1(text.data(), text.size(), simdjson::stage1_mode::regular);
    if (status != simdjson::SUCCESS) {
        fail(status == simdjson::UTF8_ERROR ? "not UTF-8" : "no tokens of JSON");
        return;
    }
    const std::uint32_t count = stages->n_structural_indexes;
    index_ = std::move(stages->structural_indexes);
    next_ = index_.get();
    end_ = next_ + count;
    assert(*end_ == text.size());
}

// From the start of the token to the start of the next one, white space cut off.
std::string_view Reader::token() const {
    if (next_ == end_)
        return {};
    const char* const first = reinterpret_cast<const char*>(text_.data()) + next_[0];
    std::size_t size = next_[1] - next_[0];
    while (size > 0 && isSpace(first[size - 1]))
        --size;
    return {first, size};
}

bool Reader::readRawString(std::string_view& raw) {
    const std::string_view quoted = token();
    if (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"')
        return fail("expected a string");
    ++next_;
    raw = quoted.substr(1, quoted.size() - 2);
    return true;
}

bool Reader::readText(std::string_view& text, std::string& storage) {
    if (!readRawString(text))
        return false;
    if (text.find('\\') == std::string_view::npos)
        return true;
    if (!unescape(text, storage)) {
        --next_;
        return fail("bad escape in a string");
    }
    text = storage;
    return true;
}

bool Reader::takeKey(std::string_view key) {
    if (end_ - next_ < 2 || text_[next_[1]] != ':')
        return false;
    const std::string_view rest = textOf(text_).substr(*next_, key.size() + 2);
    if (rest.size() != key.size() + 2 || rest.front() != '"' || rest.back() != '"' || rest.substr(1, key.size()) != key)
        return false;
    next_ += 2;
    return true;
}

bool Reader::readKey(std::string_view& key) {
    return readText(key, unescapedKey_) && (take(':') || fail("expected a colon"));
}

bool Reader::readString(std::string& value) {
    std::string storage;
    std::string_view text;
    if (!readText(text, storage))
        return false;
    if (text.data() == storage.data())
        value = std::move(storage);
    else
        value.assign(text);
    return true;
}

template <class T, class F> bool Reader::readParsed(T& value, std::string_view otherwise, F&& parse) {
    std::string_view inside;
    if (!readRawString(inside))
        return false;
    auto parsed = parse(inside); // first as it stands, because escapes are rare here and looking for them costs more
    std::string storage;
    if (!parsed && inside.find('\\') != std::string_view::npos && unescape(inside, storage))
        parsed = parse(std::string_view(storage));
    if (!parsed) {
        --next_;
        return fail(otherwise);
    }
    value = std::move(*parsed);
    return true;
}

bool Reader::readUuid(Uuid& value) {
    return readParsed(value, "expected a UUID", [](std::string_view text) { return Uuid::parse(text); });
}

// Some writers put every slash as \/.
bool Reader::readBase64(Bytes& value) {
    return readParsed(value, "expected base64", [](std::string_view text) { return base64::decode(text); });
}

bool Reader::readName(std::span<const std::string_view> names, std::size_t& index) {
    return readParsed(index, "not one of the names", [&](std::string_view text) {
        const auto found = std::find(names.begin(), names.end(), text);
        const auto place = static_cast<std::size_t>(found - names.begin());
        return found != names.end() ? std::optional(place) : std::nullopt;
    });
}

bool Reader::readBool(bool& value) {
    const std::string_view word = token();
    if (word != "true" && word != "false")
        return fail("expected true or false");
    ++next_;
    value = word == "true";
    return true;
}

bool Reader::readInteger(std::int64_t& value) {
    const auto number = integerOf(token());
    if (!number)
        return fail("expected an integer");
    ++next_;
    value = *number;
    return true;
}

bool Reader::readDouble(double& value) {
    const auto number = doubleOf(token());
    if (!number)
        return fail("expected a number");
    ++next_;
    value = *number;
    return true;
}

bool Reader::takeNull() {
    if (!isNext('n') || token() != "null")
        return false;
    ++next_;
    return true;
}

bool Reader::skip() {
    if (isNext('{'))
        return readObject([this](std::string_view) { return skip(); });
    if (isNext('['))
        return readArray([this] { return skip(); });
    if (isNext('"')) {
        std::string storage;
        std::string_view text;
        return readText(text, storage);
    }
    const std::string_view word = token();
    if (word != "true" && word != "false" && word != "null" && !isNumber(word))
        return fail("expected a value");
    ++next_;
    return true;
}

bool Reader::finish() {
    return !error_ && (next_ == end_ || fail("something follows the value"));
}

bool Reader::fail(std::string_view reason) {
    if (!error_)
        error_ = Error{reason, *next_};
    next_ = end_;
    return false;
}

Reader::Mark Reader::mark() const {
    Mark mark;
    mark.next_ = next_;
    mark.depth_ = depth_;
    return mark;
}

void Reader::rewind(const Mark& mark) {
    next_ = mark.next_;
    depth_ = mark.depth_;
    error_.reset();
}

} // namespace vexil::json
