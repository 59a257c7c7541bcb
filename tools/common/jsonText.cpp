#include "jsonText.h"

#include "utf8.h"

#include <cstdio>

static void appendEscape(std::string &json, unsigned code) {
    char escape[16];
    snprintf(escape, sizeof escape, "\\u%04x", code);
    json += escape;
}

static void appendAscii(std::string &json, char byte) {
    switch (byte) {
    case '"':
        json += "\\\"";
        break;
    case '\\':
        json += "\\\\";
        break;
    case '\n':
        json += "\\n";
        break;
    case '\t':
        json += "\\t";
        break;
    default:
        if (byte >= ' ' && byte < '\x7F')
            json += byte;
        else
            appendEscape(json, static_cast<unsigned char>(byte));
    }
}

void appendJson(std::string &json, std::string_view text) {
    json += '"';
    for (size_t at = 0; at < text.size(); at++) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const size_t length = byte < 0x80 ? 0 : utf8Sequence(text, at);
        if (byte < 0x80) {
            appendAscii(json, text[at]);
        } else if (length == 0) {
            appendEscape(json, byte);
        } else if (isUtf8Control(text, at)) {
            appendEscape(json, static_cast<unsigned char>(text[++at])); // U+0080 is C2 80
        } else {
            json.append(text, at, length);
            at += length - 1;
        }
    }
    json += '"';
}

void appendJson(std::string &json, const char *text) {
    if (text == nullptr)
        json += "null";
    else
        appendJson(json, std::string_view(text));
}

void appendUtf8(std::string &utf8, std::string_view text) {
    for (size_t at = 0; at < text.size(); at++) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const size_t length = byte < 0x80 ? 1 : utf8Sequence(text, at);
        if (length > 0) {
            utf8.append(text, at, length);
            at += length - 1;
        } else {
            utf8 += static_cast<char>(0xC0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
}
