// Array: the growable array used throughout the runtime.
// Storage comes from the global allocator (our heap once it is attached);
// elements are copied into new storage when it grows. Removal keeps order.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

template <typename T>
class Array {
public:
    Array() = default;
    Array(const Array& other) { append(other.items, other.itemCount); }
    Array(Array&& other) noexcept { take(other); }
    ~Array() { release(); }

    Array& operator=(const Array& other) {
        if (this != &other) {
            clear();
            append(other.items, other.itemCount);
        }
        return *this;
    }
    Array& operator=(Array&& other) noexcept {
        if (this != &other) {
            release();
            take(other);
        }
        return *this;
    }

    // The growth rule lives here and nowhere else.
    static int32_t grownCapacity(int32_t capacity, int32_t needed) {
        while (capacity < needed)
            capacity = capacity < 2 ? capacity + 1 : capacity * 3 / 2;
        return capacity;
    }

    int32_t count() const { return itemCount; }
    int32_t capacity() const { return itemCapacity; }
    bool isEmpty() const { return itemCount == 0; }
    T* data() { return items; }
    const T* data() const { return items; }
    T& operator[](int32_t index) { return items[index]; }
    const T& operator[](int32_t index) const { return items[index]; }
    T* begin() { return items; }
    T* end() { return items + itemCount; }
    const T* begin() const { return items; }
    const T* end() const { return items + itemCount; }
    T& last() { return items[itemCount - 1]; }

    // Makes room for at least `needed` elements; false when memory ran out.
    bool reserve(int32_t needed) {
        if (needed <= itemCapacity)
            return true;
        int32_t newCapacity = grownCapacity(itemCapacity, needed);
        T* storage = static_cast<T*>(::operator new(sizeof(T) * size_t(newCapacity), std::nothrow));
        if (!storage)
            return false;
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (itemCount > 0)
                std::memcpy(static_cast<void*>(storage), items, sizeof(T) * size_t(itemCount));
        } else {
            for (int32_t i = 0; i < itemCount; ++i) {
                new (&storage[i]) T(std::move(items[i]));
                items[i].~T();
            }
        }
        if (items)
            ::operator delete(items);
        items = storage;
        itemCapacity = newCapacity;
        return true;
    }

    bool add(const T& value) {
        if (itemCount == itemCapacity) {
            T copy(value);  // value may live inside our own storage
            if (!reserve(itemCount + 1))
                return false;
            new (&items[itemCount++]) T(std::move(copy));
            return true;
        }
        new (&items[itemCount++]) T(value);
        return true;
    }

    bool add(T&& value) {
        if (!reserve(itemCount + 1))
            return false;
        new (&items[itemCount++]) T(std::move(value));
        return true;
    }

    bool append(const T* values, int32_t n) {
        if (n <= 0)
            return true;
        if (!reserve(itemCount + n))
            return false;
        if constexpr (std::is_trivially_copyable_v<T>) {
            std::memcpy(static_cast<void*>(items + itemCount), values, sizeof(T) * size_t(n));
        } else {
            for (int32_t i = 0; i < n; ++i)
                new (&items[itemCount + i]) T(values[i]);
        }
        itemCount += n;
        return true;
    }

    // Grows or shrinks to n elements; new elements are value-initialised.
    bool resize(int32_t n) {
        if (n < 0)
            return false;
        if (!reserve(n))
            return false;
        if constexpr (std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>) {
            if (n > itemCount)  // large plain buffers (the codec's) are zeroed in one go
                std::memset(static_cast<void*>(items + itemCount), 0, sizeof(T) * size_t(n - itemCount));
        } else {
            for (int32_t i = itemCount; i < n; ++i)
                new (&items[i]) T();
            for (int32_t i = n; i < itemCount; ++i)
                items[i].~T();
        }
        itemCount = n;
        return true;
    }

    bool insertAt(int32_t index, const T& value) {
        if (index < 0 || index > itemCount || !add(value))
            return false;
        for (int32_t i = itemCount - 1; i > index; --i)
            std::swap(items[i], items[i - 1]);
        return true;
    }

    void removeAt(int32_t index) {
        if (index < 0 || index >= itemCount)
            return;
        for (int32_t i = index; i + 1 < itemCount; ++i)
            items[i] = std::move(items[i + 1]);
        items[--itemCount].~T();
    }

    // Destroys the elements but keeps the storage.
    void clear() {
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (int32_t i = 0; i < itemCount; ++i)
                items[i].~T();
        itemCount = 0;
    }

    // Frees the storage (only when there is some) and zeroes all three fields.
    void release() {
        clear();
        if (items && itemCapacity)
            ::operator delete(items);
        items = nullptr;
        itemCount = 0;
        itemCapacity = 0;
    }

private:
    void take(Array& other) {
        items = other.items;
        itemCount = other.itemCount;
        itemCapacity = other.itemCapacity;
        other.items = nullptr;
        other.itemCount = 0;
        other.itemCapacity = 0;
    }

    T* items = nullptr;
    int32_t itemCount = 0;
    int32_t itemCapacity = 0;
};
