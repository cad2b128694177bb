#include "support/JsonCheck.h"

#include <cstddef>

namespace testing_support {

namespace {

// A strict recursive-descent reader that only says whether the text parses.
class JsonReader {
public:
    explicit JsonReader(const std::string& text) : text(text) {}

    bool document() {
        skipSpace();
        if (!value(0)) {
            return false;
        }
        skipSpace();
        return at == text.size();
    }

private:
    static constexpr int MaxDepth = 64;

    bool value(int depth) {
        if (depth > MaxDepth || at >= text.size()) {
            return false;
        }
        switch (text[at]) {
            case '{':
                return object(depth);
            case '[':
                return array(depth);
            case '"':
                return string();
            case 't':
                return literal("true");
            case 'f':
                return literal("false");
            case 'n':
                return literal("null");
            default:
                return number();
        }
    }

    bool object(int depth) {
        ++at;
        skipSpace();
        if (take('}')) {
            return true;
        }
        do {
            skipSpace();
            if (!string()) {
                return false;
            }
            skipSpace();
            if (!take(':')) {
                return false;
            }
            skipSpace();
            if (!value(depth + 1)) {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take('}');
    }

    bool array(int depth) {
        ++at;
        skipSpace();
        if (take(']')) {
            return true;
        }
        do {
            skipSpace();
            if (!value(depth + 1)) {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take(']');
    }

    bool string() {
        if (!take('"')) {
            return false;
        }
        while (at < text.size()) {
            const auto c = static_cast<unsigned char>(text[at]);
            if (c == '"') {
                ++at;
                return true;
            }
            if (c < 0x20) {
                return false;
            }
            if (c == '\\') {
                if (!escape()) {
                    return false;
                }
            } else if (c >= 0x80) {
                if (!utf8()) {
                    return false;
                }
            } else {
                ++at;
            }
        }
        return false;
    }

    bool escape() {
        ++at;
        if (at >= text.size()) {
            return false;
        }
        const char c = text[at++];
        if (c == 'u') {
            for (int i = 0; i < 4; ++i, ++at) {
                if (at >= text.size() || !isHex(text[at])) {
                    return false;
                }
            }
            return true;
        }
        return c == '"' || c == '\\' || c == '/' || c == 'b' || c == 'f' || c == 'n' || c == 'r' ||
               c == 't';
    }

    bool utf8() {
        const auto lead = static_cast<unsigned char>(text[at]);
        std::size_t length = lead >= 0xF0 && lead <= 0xF4   ? 4
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                                                            : 0;
        if (length == 0 || at + length > text.size()) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[at + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        at += length;
        return true;
    }

    bool number() {
        take('-');
        if (!take('0') && !digits()) {
            return false;
        }
        if (take('.') && !digits()) {
            return false;
        }
        if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
            ++at;
            if (!take('+')) {
                take('-');
            }
            return digits();
        }
        return true;
    }

    bool digits() {
        const std::size_t start = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            ++at;
        }
        return at > start;
    }

    bool literal(const char* word) {
        const std::string expected(word);
        if (text.compare(at, expected.size(), expected) != 0) {
            return false;
        }
        at += expected.size();
        return true;
    }

    bool take(char c) {
        if (at < text.size() && text[at] == c) {
            ++at;
            return true;
        }
        return false;
    }

    void skipSpace() {
        while (at < text.size() &&
               (text[at] == ' ' || text[at] == '\t' || text[at] == '\n' || text[at] == '\r')) {
            ++at;
        }
    }

    static bool isHex(char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }

    const std::string& text;
    std::size_t at = 0;
};

}  // namespace

bool isJson(const std::string& text) {
    return JsonReader(text).document();
}

bool isJsonObject(const std::string& text) {
    std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string::npos && text[first] == '{' && isJson(text);
}

}  // namespace testing_support
