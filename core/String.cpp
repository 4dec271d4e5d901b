// String: shared UTF-32 text with a cached UTF-8 copy.
#include "core/String.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

// Header shared by both buffers; the characters follow it, zero-terminated.
struct String::Buffer {
    int32_t capacity;
    int32_t length;
    std::atomic<int32_t> references;

    uint32_t* codePoints() { return reinterpret_cast<uint32_t*>(this + 1); }
    char* bytes() { return reinterpret_cast<char*>(this + 1); }

    static Buffer* create(int32_t capacity, size_t elementSize) {
        size_t bytes = sizeof(Buffer) + (size_t(capacity) + 1) * elementSize;
        void* memory = ::operator new(bytes);
        std::memset(memory, 0, bytes);
        Buffer* buffer = static_cast<Buffer*>(memory);
        buffer->capacity = capacity;
        buffer->length = 0;
        new (&buffer->references) std::atomic<int32_t>(1);
        return buffer;
    }

    static void release(Buffer* buffer, size_t elementSize) {
        if (!buffer || buffer->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        std::memset(static_cast<void*>(buffer), 0, sizeof(Buffer) + (size_t(buffer->capacity) + 1) * elementSize);
        ::operator delete(buffer);
    }

    void retain() { references.fetch_add(1, std::memory_order_relaxed); }
};

namespace {

// A byte that is not part of valid UTF-8 is kept as code point 0xDC00 + byte,
// and encoded back as that same byte, so file names in other encodings
// survive the round trip through String unchanged.
constexpr uint32_t RawByteBase = 0xDC00;

uint32_t decodeUtf8(const uint8_t* text, int32_t length, int32_t& i) {
    uint8_t lead = text[i++];
    if (lead < 0x80)
        return lead;
    int extra = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 && lead < 0xF0 ? 2 : lead >= 0xC2 && lead < 0xE0 ? 1 : 0;
    if (extra == 0 || i + extra > length)
        return RawByteBase + lead;
    uint32_t value = lead & (0x3F >> extra);
    for (int k = 0; k < extra; ++k) {
        if ((text[i + k] & 0xC0) != 0x80)
            return RawByteBase + lead;
        value = (value << 6) | (text[i + k] & 0x3F);
    }
    static const uint32_t smallest[4] = {0, 0x80, 0x800, 0x10000};
    if (value < smallest[extra] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000))
        return RawByteBase + lead;  // overlong, out of range or a surrogate
    i += extra;
    return value;
}

int encodeUtf8(uint32_t c, char* out) {
    if (c >= RawByteBase + 0x80 && c <= RawByteBase + 0xFF) {
        out[0] = char(c - RawByteBase);
        return 1;
    }
    if (c < 0x80) {
        out[0] = char(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = char(0xC0 | (c >> 6));
        out[1] = char(0x80 | (c & 0x3F));
        return 2;
    }
    if (c < 0x10000) {
        out[0] = char(0xE0 | (c >> 12));
        out[1] = char(0x80 | ((c >> 6) & 0x3F));
        out[2] = char(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = char(0xF0 | ((c >> 18) & 0x07));
    out[1] = char(0x80 | ((c >> 12) & 0x3F));
    out[2] = char(0x80 | ((c >> 6) & 0x3F));
    out[3] = char(0x80 | (c & 0x3F));
    return 4;
}

bool isWhiteSpace(uint32_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

String::String(const char* utf8Text) : String(utf8Text, utf8Text ? int32_t(std::strlen(utf8Text)) : 0) {}

String::String(const char* utf8Text, int32_t byteLength) {
    if (!utf8Text || byteLength <= 0)
        return;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(utf8Text);
    int32_t count = 0;  // first pass: count the code points
    for (int32_t i = 0; i < byteLength; ++count)
        decodeUtf8(bytes, byteLength, i);
    text = Buffer::create(count, sizeof(uint32_t));
    uint32_t* out = text->codePoints();
    for (int32_t i = 0; i < byteLength;)
        *out++ = decodeUtf8(bytes, byteLength, i);
    text->length = count;
}

String::String(Buffer* buffer) : text(buffer) {}

String::String(const String& other) : text(other.text), utf8(other.utf8) {
    if (text)
        text->retain();
    if (utf8)
        utf8->retain();
}

String::String(String&& other) noexcept : text(other.text), utf8(other.utf8) {
    other.text = nullptr;
    other.utf8 = nullptr;
}

String::~String() {
    Buffer::release(text, sizeof(uint32_t));
    Buffer::release(utf8, 1);
}

String& String::operator=(const String& other) {
    if (this != &other) {
        String copy(other);
        *this = static_cast<String&&>(copy);
    }
    return *this;
}

String& String::operator=(String&& other) noexcept {
    if (this != &other) {
        Buffer::release(text, sizeof(uint32_t));
        Buffer::release(utf8, 1);
        text = other.text;
        utf8 = other.utf8;
        other.text = nullptr;
        other.utf8 = nullptr;
    }
    return *this;
}

String String::fromCodePoints(const uint32_t* codePoints, int32_t count) {
    if (!codePoints || count <= 0)
        return String();
    Buffer* buffer = Buffer::create(count, sizeof(uint32_t));
    std::memcpy(buffer->codePoints(), codePoints, size_t(count) * sizeof(uint32_t));
    buffer->length = count;
    return String(buffer);
}

String String::format(const char* pattern, ...) {
    char small[512];
    va_list args;
    va_start(args, pattern);
    int needed = std::vsnprintf(small, sizeof small, pattern, args);
    va_end(args);
    if (needed < 0)
        return String();
    if (size_t(needed) < sizeof small)
        return String(small, needed);
    char* large = new char[size_t(needed) + 1];
    va_start(args, pattern);
    std::vsnprintf(large, size_t(needed) + 1, pattern, args);
    va_end(args);
    String result(large, needed);
    delete[] large;
    return result;
}

const char* String::c_str() const {
    if (!text || text->length == 0)
        return "";
    if (!utf8) {
        utf8 = Buffer::create(text->length * 4, 1);
        char* out = utf8->bytes();
        const uint32_t* in = text->codePoints();
        for (int32_t i = 0; i < text->length; ++i)
            out += encodeUtf8(in[i], out);
        utf8->length = int32_t(out - utf8->bytes());
    }
    return utf8->bytes();
}

int32_t String::length() const { return text ? text->length : 0; }

uint32_t String::operator[](int32_t index) const {
    return index >= 0 && index < length() ? text->codePoints()[index] : 0;
}

const uint32_t* String::codePoints() const {
    static const uint32_t empty[1] = {0};
    return text ? text->codePoints() : empty;
}

int String::compare(const String& other) const {
    int32_t a = length(), b = other.length();
    const uint32_t* x = codePoints();
    const uint32_t* y = other.codePoints();
    for (int32_t i = 0; i < a && i < b; ++i)
        if (x[i] != y[i])
            return x[i] < y[i] ? -1 : 1;
    return a == b ? 0 : a < b ? -1 : 1;
}

void String::dropUtf8() {
    Buffer::release(utf8, 1);
    utf8 = nullptr;
}

// Ensures `text` is ours alone and holds at least `capacity` code points.
uint32_t* String::makeUnique(int32_t capacity) {
    dropUtf8();
    int32_t current = length();
    bool shared = text && text->references.load(std::memory_order_acquire) != 1;
    if (!text || shared || text->capacity < capacity) {
        int32_t grown = std::max(capacity, text && !shared ? text->capacity * 3 / 2 : capacity);
        Buffer* fresh = Buffer::create(grown, sizeof(uint32_t));
        if (current)
            std::memcpy(fresh->codePoints(), text->codePoints(), size_t(current) * sizeof(uint32_t));
        fresh->length = current;
        Buffer::release(text, sizeof(uint32_t));
        text = fresh;
    }
    return text->codePoints();
}

String String::operator+(const String& other) const {
    String result(*this);
    result += other;
    return result;
}

String& String::operator+=(const String& other) {
    int32_t extra = other.length();
    if (extra == 0)
        return *this;
    String keep(other);  // other may be *this
    int32_t current = length();
    uint32_t* out = makeUnique(current + extra);
    std::memcpy(out + current, keep.codePoints(), size_t(extra) * sizeof(uint32_t));
    text->length = current + extra;
    out[text->length] = 0;
    return *this;
}

String& String::append(uint32_t codePoint) {
    int32_t current = length();
    uint32_t* out = makeUnique(current + 1);
    out[current] = codePoint;
    out[current + 1] = 0;
    text->length = current + 1;
    return *this;
}

bool String::startsWith(const String& prefix) const {
    int32_t n = prefix.length();
    return n <= length() && std::memcmp(codePoints(), prefix.codePoints(), size_t(n) * 4) == 0;
}

bool String::endsWith(const String& suffix) const {
    int32_t n = suffix.length();
    return n <= length() &&
           std::memcmp(codePoints() + length() - n, suffix.codePoints(), size_t(n) * 4) == 0;
}

int32_t String::indexOf(uint32_t codePoint, int32_t from) const {
    for (int32_t i = std::max(from, 0); i < length(); ++i)
        if (codePoints()[i] == codePoint)
            return i;
    return -1;
}

int32_t String::lastIndexOf(uint32_t codePoint) const {
    for (int32_t i = length() - 1; i >= 0; --i)
        if (codePoints()[i] == codePoint)
            return i;
    return -1;
}

String String::substring(int32_t start, int32_t count) const {
    start = std::clamp(start, 0, length());
    int32_t n = int32_t(std::min<int64_t>(count, length() - start));
    return fromCodePoints(codePoints() + start, n);
}

void String::removeFrom(int32_t index) {
    if (index < 0 || index >= length())
        return;
    uint32_t* out = makeUnique(length());
    std::memset(out + index, 0, size_t(text->length - index) * sizeof(uint32_t));
    text->length = index;
}

String String::trimmed() const {
    int32_t start = 0, end = length();
    while (start < end && isWhiteSpace(codePoints()[start]))
        ++start;
    while (end > start && isWhiteSpace(codePoints()[end - 1]))
        --end;
    if (start == 0 && end == length())
        return *this;
    return substring(start, end - start);
}

String String::toLower() const {
    String result(*this);
    for (int32_t i = 0; i < length(); ++i) {
        uint32_t c = codePoints()[i];
        if (c >= 'A' && c <= 'Z')
            result.makeUnique(length())[i] = c + 32;
    }
    return result;
}
