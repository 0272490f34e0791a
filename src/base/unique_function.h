// SPDX-License-Identifier: Apache-2.0
// A callable that is moved, never copied: what tasks, completions and callbacks are.
#pragma once

#include <cassert>
#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace vexil {

template <class Signature> class UniqueFunction;

// Stands in for std::move_only_function of C++23. Calling an empty one is a broken invariant and is asserted.
template <class R, class... Args> class UniqueFunction<R(Args...)> {
public:
    UniqueFunction() = default;
    UniqueFunction(std::nullptr_t) {}
    template <class F>
    requires(!std::same_as<std::remove_cvref_t<F>, UniqueFunction> &&
             std::is_invocable_r_v<R, std::remove_cvref_t<F>&, Args...>) UniqueFunction(F&& callable)
        : target_(std::make_unique<Holder<std::remove_cvref_t<F>>>(std::forward<F>(callable))) {}

    explicit operator bool() const { return target_ != nullptr; }

    R operator()(Args... args) {
        assert(target_);
        return target_->call(std::forward<Args>(args)...);
    }

private:
    struct Target {
        virtual ~Target() = default;
        virtual R call(Args... args) = 0;
    };
    template <class F> struct Holder final : Target {
        template <class G> explicit Holder(G&& value) : callable(std::forward<G>(value)) {}
        R call(Args... args) override { return std::invoke(callable, std::forward<Args>(args)...); }
        F callable;
    };

    std::unique_ptr<Target> target_;
};

using Task = UniqueFunction<void()>;

} // namespace vexil
