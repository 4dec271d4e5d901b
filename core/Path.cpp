// Path helpers: normalizePath, joinPath and setExtension.
// The rules are applied literally, quirks included: a name without a dot
// gets its new extension behind a slash ("song" becomes "song/.oxa").
#include <string>

#include "core/String.h"

namespace {

using Text = std::u32string;

Text toText(const String& s) { return Text(reinterpret_cast<const char32_t*>(s.codePoints()), size_t(s.length())); }
String toString(const Text& t) { return String::fromCodePoints(reinterpret_cast<const uint32_t*>(t.data()), int32_t(t.size())); }

bool isWhiteSpace(char32_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isQuote(char32_t c) { return c == '"' || c == '\''; }
bool endsComponent(char32_t c) { return c == '.' || c == '/' || c == ':'; }

void replaceAll(Text& t, const Text& from, const Text& to) {
    for (size_t at = t.find(from); at != Text::npos; at = t.find(from))
        t.replace(at, from.size(), to);
}

void collapseSlashes(Text& t) {
    Text out;
    size_t i = 0;
    if (t.size() >= 2 && t[0] == '/' && t[1] == '/') {  // a leading run keeps two
        out = U"//";
        while (i < t.size() && t[i] == '/')
            ++i;
    }
    for (; i < t.size(); ++i)
        if (t[i] != '/' || out.empty() || out.back() != '/')
            out += t[i];
    t = out;
}

// Trims, strips one pair of surrounding quotes and a trailing slash, while quotes go.
void trimQuotesAndSlash(Text& t) {
    for (bool removedQuotes = true; removedQuotes;) {
        size_t start = 0, end = t.size();
        while (start < end && isWhiteSpace(t[start]))
            ++start;
        while (end > start && isWhiteSpace(t[end - 1]))
            --end;
        t = t.substr(start, end - start);
        removedQuotes = t.size() >= 2 && isQuote(t[0]) && t.back() == t[0];
        if (removedQuotes)
            t = t.substr(1, t.size() - 2);
        if (t.size() > 1 && t.back() == '/')
            t.pop_back();
    }
}

// Start of the component that ends just before `end`: after the previous slash or colon.
size_t componentStart(const Text& t, size_t end) {
    for (size_t i = end; i > 0; --i)
        if (t[i - 1] == '/' || t[i - 1] == ':')
            return i;
    return 0;
}

void resolveInnerParents(Text& t) {
    for (size_t from = 0;;) {
        size_t at = t.find(U"/../", from);
        if (at == Text::npos)
            return;
        if (at == 0 || endsComponent(t[at - 1])) {
            from = at + 1;
            continue;
        }
        size_t start = componentStart(t, at);
        t.erase(start, at + 4 - start);
        from = 0;
    }
}

void resolveTrailingParent(Text& t) {
    size_t n = t.size();
    if (n < 3 || t.compare(n - 3, 3, U"/..") != 0)
        return;
    if (n > 3 && endsComponent(t[n - 4]))
        return;
    t.erase(componentStart(t, n - 3));
}

}  // namespace

String normalizePath(const String& path) {
    Text t = toText(path);
    for (char32_t& c : t)
        if (c == '\\')
            c = '/';
    replaceAll(t, U"/./", U"/");
    if (t.compare(0, 2, U"./") == 0)
        t.erase(0, 2);
    collapseSlashes(t);
    trimQuotesAndSlash(t);
    resolveInnerParents(t);
    while (t.size() >= 2 && t.compare(t.size() - 2, 2, U"/.") == 0)
        t.erase(t.size() - 2);
    resolveTrailingParent(t);
    return toString(t);
}

String joinPath(const String& a, const String& b) {
    String tail = normalizePath(b);
    if (a.isEmpty())
        return tail;
    if (tail.isEmpty())
        return a;
    bool needsSlash = !a.endsWith("/") && !tail.startsWith("/");
    return normalizePath(needsSlash ? a + "/" + tail : a + tail);
}

String setExtension(const String& path, const String& extension) {
    String ext = extension.startsWith(".") ? extension.substring(1) : extension;
    for (int32_t i = path.length() - 1; i >= 0; --i) {
        uint32_t c = path[i];
        if (c == '/' || c == '\\' || c == ':')
            break;
        if (c == '.')
            return normalizePath(path.substring(0, i + 1) + ext);
    }
    return joinPath(path, String(".") + ext);
}
