// SPDX-License-Identifier: Apache-2.0
// How a callback notices that its owner is gone.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace vexil {

// A member of every class that hands out callbacks. A guarded callable does nothing once the Lifetime that made it is
// destroyed or renewed; where it has to return something it returns a value-initialised one. Make it the last member,
// so that it ends first. Guarded callables must run on the thread that destroys the Lifetime.
class Lifetime {
public:
    Lifetime() = default;
    ~Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    template <class F> [[nodiscard]] auto guard(F callable) const {
        return [alive = std::weak_ptr<const Token>(token_),
                callable = std::move(callable)]<class... Args>(Args&&... args) mutable {
            using R = std::invoke_result_t<F&, Args...>;
            if (alive.expired())
                return R();
            return std::invoke(callable, std::forward<Args>(args)...);
        };
    }

    // Silences every callable guarded so far; later ones live again.
    void renew() { token_ = std::make_shared<const Token>(); }

private:
    struct Token {};
    std::shared_ptr<const Token> token_ = std::make_shared<const Token>();
};

} // namespace vexil
