// RefCounted: base of the shared objects (sample data, the codec's streams,
// the transform, the playback device). The count is atomic; the holder that
// drops it to zero destroys the object through its virtual destructor.
// SharedRef<T> is the owning slot: it releases its previous object when it
// is given a new one.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

class RefCounted {
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;
    virtual ~RefCounted() = default;

    void addRef() const { references.fetch_add(1, std::memory_order_relaxed); }
    void releaseRef() const {
        if (references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    int32_t referenceCount() const { return references.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int32_t> references{0};
};

template <typename T>
class SharedRef {
public:
    SharedRef() = default;
    SharedRef(T* object) : pointer(object) { retain(); }  // NOLINT: implicit by design
    SharedRef(const SharedRef& other) : pointer(other.pointer) { retain(); }
    SharedRef(SharedRef&& other) noexcept : pointer(other.pointer) { other.pointer = nullptr; }
    template <typename U>
    SharedRef(const SharedRef<U>& other) : pointer(other.get()) { retain(); }
    ~SharedRef() { reset(); }

    SharedRef& operator=(const SharedRef& other) { assign(other.pointer); return *this; }
    SharedRef& operator=(SharedRef&& other) noexcept {
        if (this != &other) {
            reset();
            pointer = other.pointer;
            other.pointer = nullptr;
        }
        return *this;
    }
    SharedRef& operator=(T* object) { assign(object); return *this; }

    void reset() {
        T* old = pointer;
        pointer = nullptr;
        if (old)
            old->releaseRef();
    }

    T* get() const { return pointer; }
    T* operator->() const { return pointer; }
    T& operator*() const { return *pointer; }
    explicit operator bool() const { return pointer != nullptr; }

private:
    void retain() { if (pointer) pointer->addRef(); }
    void assign(T* object) {
        if (object)
            object->addRef();
        T* old = pointer;
        pointer = object;
        if (old)
            old->releaseRef();
    }

    T* pointer = nullptr;
};
