/* The compiled files, byte by byte: catalogue(5) shows them with an example. */
#include "catalogue.h"

#include <cstdio>
#include <map>

const char *const HEADER_MARK =
    "/* Written by qncatalog: change the catalogue's source instead. */";

namespace {

// A message's text or format by number; numbers without a message have none.
using Numbered = std::vector<const Message *>;

Numbered byNumber(const Catalogue &catalogue) {
    Numbered messages(static_cast<size_t>(catalogue.end), nullptr);
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages)
            messages[static_cast<size_t>(each.number(message))] = &message;
    return messages;
}

void putBigEndian(std::string &bytes, uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
}

/* Equal formats share one text. An unused number gets the format without arguments: a record made
   with it by mistake is well formed, and shown as one that has no text. */
std::string formatTable(const Numbered &messages, Problems &problems) {
    std::map<std::string, size_t> offsets;
    std::string strings;
    std::string table;
    putBigEndian(table, messages.size(), 4);
    for (const Message *message : messages) {
        const std::string format =
            message == nullptr ? std::string(1, GS) : compressedFormat(*message);
        const auto [place, fresh] = offsets.emplace(format, strings.size());
        if (fresh && strings.size() > MAX_FORMAT_OFFSET) {
            problems.add(
                message == nullptr ? 1 : message->line,
                "the compressed formats up to here pass 65535 bytes: too many different ones");
            return {};
        }
        if (fresh)
            strings += format + '\0';
        putBigEndian(table, place->second, 2);
    }
    return table + strings;
}

// A directory of 16 bytes for each number, then the texts.
std::string textTable(const Numbered &messages, Problems &problems) {
    constexpr size_t ENTRY = 16;
    constexpr size_t MAX_OFFSET = 999'999'999; // nine digits
    std::string directory;
    std::string texts;
    for (const Message *message : messages) {
        if (message == nullptr) {
            directory += std::string(ENTRY - 1, ' ') + '\n';
            continue;
        }
        const size_t offset = ENTRY * messages.size() + texts.size();
        if (offset > MAX_OFFSET) {
            problems.add(message->textLine, "the texts up to here pass 999999999 bytes");
            return {};
        }
        char entry[64];
        snprintf(entry, sizeof entry, "%9zu %5zu\n", offset, message->text.size());
        directory += entry;
        texts += message->text;
    }
    return directory + texts;
}

// The dictionary's line of one message: number, FS, each field and FS, GS.
std::string dictionaryLine(const Message &message, size_t number) {
    std::string line = std::to_string(number) + FS;
    for (const Field &field : message.fields)
        line += field.name + ',' + field.type + ',' + std::to_string(field.first) + ',' +
                std::to_string(field.second) + FS;
    return line + GS + '\n';
}

void putIndexRecord(std::string &index, uint64_t value) {
    putBigEndian(index, 0, 4); // two words that nobody reads
    putBigEndian(index, value, 4);
}

// The dictionary, and its index by number. An unused number points past the dictionary's end.
void dictionary(const Numbered &messages, std::string &index, std::string &lines) {
    std::vector<size_t> offsets;
    for (size_t number = 0; number < messages.size(); number++) {
        offsets.push_back(lines.size());
        if (messages[number] != nullptr)
            lines += dictionaryLine(*messages[number], number);
    }
    putIndexRecord(index, 8 * (messages.size() + 1));
    for (size_t number = 0; number < messages.size(); number++)
        putIndexRecord(index, messages[number] == nullptr ? lines.size() : offsets[number]);
}

// The priority and destination of each number. An unused one is for the record, to the daemon.
std::string routing(const Numbered &messages) {
    std::string table;
    putBigEndian(table, messages.size(), 4);
    for (const Message *message : messages) {
        putBigEndian(table, message == nullptr ? 0 : static_cast<uint64_t>(message->priority), 4);
        putBigEndian(table, message == nullptr ? 1 : static_cast<uint64_t>(message->destination),
                     4);
    }
    return table;
}

std::string startsHeader(const Catalogue &catalogue) {
    std::string text = std::string(HEADER_MARK) +
                       "\n/* The first number of each class, and the end of the numbering. */\n"
                       "#ifndef QN_SYSTEM_LOG_H\n#define QN_SYSTEM_LOG_H\n\n";
    for (const MessageClass &each : catalogue.classes)
        text += "#define _" + each.name + "MSG_START " + std::to_string(each.start) + "\n";
    return text + "#define __MAX_LOGMSG " + std::to_string(catalogue.end) + "\n\n#endif\n";
}

// A text that can stand in a comment of one line.
std::string forComment(std::string text) {
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '\n' || text[at] == '\t')
            text[at] = ' ';
        if (text[at] == '/' && ((at > 0 && text[at - 1] == '*') || text.substr(at + 1, 1) == "*"))
            text[at] = '|';
    }
    return text;
}

std::string defineOf(const MessageClass &each, const Message &message) {
    std::string arguments;
    for (const Field &field : message.fields) {
        const std::string type = argumentType(field.type);
        arguments +=
            (arguments.empty() ? "" : ", ") + type + (type.back() == '*' ? "" : " ") + field.name;
    }
    return "#define " + message.symbol + " log" + each.name + "(" +
           std::to_string(message.relative) + ") /* (" + arguments + ") " +
           forComment(message.text) + " */\n";
}

/* The class's macro is defined with its parameter right behind the name: the readers of symbols
   skip that line, and every other one that is no symbol. */
std::string classHeader(const MessageClass &each) {
    const std::string guard = "QN_LOG_" + each.name + "_H";
    std::string text = std::string(HEADER_MARK) + "\n/* Messages of class " + each.name +
                       ": symbol, number, what the log call passes, text. */\n#ifndef " + guard +
                       "\n#define " + guard + "\n\n#include \"systemLog.h\"\n\n#define log" +
                       each.name + "(n) (_" + each.name + "MSG_START + (n) - 1)\n\n";
    for (const Message &message : each.messages)
        text += defineOf(each, message);
    return text + "\n#endif\n";
}

} // namespace

std::string compressedFormat(const Message &message) {
    std::string format;
    for (const Field &field : message.fields)
        format += FS + field.conversion;
    return format + GS;
}

std::vector<NamedBytes> compileCatalogue(const Catalogue &catalogue, const std::string &root,
                                         Problems &problems) {
    const Numbered messages = byNumber(catalogue);
    std::vector<NamedBytes> files;
    files.push_back({root + "/head/systemLog.h", startsHeader(catalogue)});
    for (const MessageClass &each : catalogue.classes)
        files.push_back({root + "/head/log" + each.name + ".h", classHeader(each)});
    std::string index;
    std::string lines;
    dictionary(messages, index, lines);
    files.push_back({root + "/dataDictLog", lines});
    files.push_back({root + "/ddMapLog", index});
    files.push_back({root + "/msgDstPri", routing(messages)});
    files.push_back({root + "/textLogFmt", textTable(messages, problems)});
    files.push_back({root + "/cmpLogFmt", formatTable(messages, problems)});
    return files;
}
