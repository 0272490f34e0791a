// SPDX-License-Identifier: Apache-2.0
// A value or the reason why there is none.
#pragma once

#include <cassert>
#include <utility>
#include <variant>

namespace vexil {

// The value of an operation that yields nothing but its success.
struct Done {
    bool operator==(const Done&) const = default;
};

// Wraps an error on its way into a Result: `return Failure{Error{...}};`.
template <class E> struct Failure { E error; };
template <class E> Failure(E) -> Failure<E>;

// Asking the wrong side is a broken invariant of the caller and is asserted.
template <class T, class E> class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    template <class F> Result(Failure<F> failure) : state_(std::in_place_index<1>, std::move(failure.error)) {}

    [[nodiscard]] bool hasValue() const { return state_.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    [[nodiscard]] T& value() & { return *checked(std::get_if<0>(&state_)); }
    [[nodiscard]] const T& value() const& { return *checked(std::get_if<0>(&state_)); }
    [[nodiscard]] T&& value() && { return std::move(*checked(std::get_if<0>(&state_))); }
    [[nodiscard]] E& error() & { return *checked(std::get_if<1>(&state_)); }
    [[nodiscard]] const E& error() const& { return *checked(std::get_if<1>(&state_)); }
    [[nodiscard]] E&& error() && { return std::move(*checked(std::get_if<1>(&state_))); }

    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    bool operator==(const Result&) const = default;

private:
    template <class P> static P checked(P side) {
        assert(side != nullptr);
        return side;
    }

    std::variant<T, E> state_;
};

} // namespace vexil
