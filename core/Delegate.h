// Delegate: a callback stored as three words, so that it can hold either a
// free function or a member function bound to its object.
//   invoker: the trampoline that knows how to make the call;
//   target:  the free function's address (0 for a bound member);
//   object:  the bound object (null for a free function).
// Two delegates are equal when all three words are equal. Log listeners,
// TapStream and Thread use it.
#pragma once

#include <cstdint>

template <typename Signature>
class Delegate;

template <typename R, typename... Args>
class Delegate<R(Args...)> {
public:
    using Function = R (*)(Args...);

    Delegate() = default;

    static Delegate fromFunction(Function function) {
        Delegate d;
        if (function) {
            d.invoker = &callFunction;
            d.target = reinterpret_cast<uintptr_t>(function);
        }
        return d;
    }

    // Delegate::fromMethod<&Class::method>(object)
    template <auto Method, typename Object>
    static Delegate fromMethod(Object* object) {
        Delegate d;
        d.invoker = &callMethod<Object, Method>;
        d.object = object;
        return d;
    }

    bool isEmpty() const { return invoker == nullptr; }
    explicit operator bool() const { return invoker != nullptr; }

    // Calling an empty delegate returns a value-initialised result.
    R operator()(Args... args) const {
        if (!invoker)
            return R();
        return invoker(*this, args...);
    }

    bool operator==(const Delegate& other) const {
        return invoker == other.invoker && target == other.target && object == other.object;
    }

private:
    using Invoker = R (*)(const Delegate&, Args...);

    static R callFunction(const Delegate& self, Args... args) {
        return reinterpret_cast<Function>(self.target)(args...);
    }

    template <typename Object, auto Method>
    static R callMethod(const Delegate& self, Args... args) {
        return (static_cast<Object*>(self.object)->*Method)(args...);
    }

    Invoker invoker = nullptr;
    uintptr_t target = 0;
    void* object = nullptr;
};
