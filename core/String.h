// String: the runtime's shared text type.
// A handle of two pointers, both null for the empty string:
//   text: a reference-counted buffer of UTF-32 code points;
//   utf8: a cached UTF-8 copy, built on the first c_str() and shared the same way.
// Copies share both buffers; a modification first makes the text unique and
// drops the cached copy. Buffers are zero-filled before they go back to the heap.
#pragma once

#include <cstdint>

class String {
public:
    String() = default;
    String(const char* utf8Text);  // NOLINT: implicit from literals by design
    String(const char* utf8Text, int32_t byteLength);
    String(const String& other);
    String(String&& other) noexcept;
    ~String();

    String& operator=(const String& other);
    String& operator=(String&& other) noexcept;

    static String fromCodePoints(const uint32_t* codePoints, int32_t count);
    static String format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

    const char* c_str() const;
    int32_t length() const;
    bool isEmpty() const { return length() == 0; }
    uint32_t operator[](int32_t index) const;
    const uint32_t* codePoints() const;

    int compare(const String& other) const;
    bool operator==(const String& other) const { return compare(other) == 0; }
    bool operator!=(const String& other) const { return compare(other) != 0; }
    bool operator<(const String& other) const { return compare(other) < 0; }

    String operator+(const String& other) const;
    String& operator+=(const String& other);
    String& append(uint32_t codePoint);

    bool startsWith(const String& prefix) const;
    bool endsWith(const String& suffix) const;
    int32_t indexOf(uint32_t codePoint, int32_t from = 0) const;
    int32_t lastIndexOf(uint32_t codePoint) const;

    String substring(int32_t start, int32_t count = INT32_MAX) const;
    void removeFrom(int32_t index);  // drops everything from index to the end
    String trimmed() const;          // without leading and trailing white space
    String toLower() const;          // only the ASCII capitals change

private:
    struct Buffer;
    String(Buffer* text);
    uint32_t* makeUnique(int32_t capacity);
    void dropUtf8();

    Buffer* text = nullptr;
    mutable Buffer* utf8 = nullptr;
};

// Path helpers used to form the tool's file names.
String normalizePath(const String& path);
String joinPath(const String& a, const String& b);
String setExtension(const String& path, const String& extension);
