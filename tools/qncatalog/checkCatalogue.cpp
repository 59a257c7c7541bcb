/* The rules that hold between the values of a catalogue. */
#include "catalogue.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>

namespace {

// The errors' number 0 stands before their start.
int64_t firstNumber(const MessageClass &each) {
    return each.generated ? each.start - 1 : each.start;
}

int64_t lastNumber(const MessageClass &each) {
    int64_t last = firstNumber(each) - 1;
    for (const Message &message : each.messages)
        last = std::max(last, each.number(message));
    return last;
}

void sortByNumber(Catalogue &catalogue) {
    std::stable_sort(catalogue.classes.begin(), catalogue.classes.end(),
                     [](const auto &a, const auto &b) { return firstNumber(a) < firstNumber(b); });
    for (MessageClass &each : catalogue.classes)
        std::stable_sort(each.messages.begin(), each.messages.end(),
                         [](const auto &a, const auto &b) { return a.relative < b.relative; });
}

std::string atLine(size_t line) {
    return line == 0 ? " of the operating system's errors" : " at line " + std::to_string(line);
}

void checkClassNames(const Catalogue &catalogue, Problems &problems) {
    std::map<std::string, size_t> seen = {{"OSERR", 0}}; // even where it stands in front of ours
    for (const MessageClass &each : catalogue.classes) {
        if (each.generated)
            continue;
        const auto [place, fresh] = seen.emplace(each.name, each.line);
        if (!fresh)
            problems.add(each.line,
                         "class " + each.name + " is there already" + atLine(place->second));
    }
}

void checkSymbols(const Catalogue &catalogue, Problems &problems) {
    std::map<std::string, size_t> seen;
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages) {
            const auto [place, fresh] = seen.emplace(message.symbol, message.line);
            if (fresh)
                continue;
            const size_t line = std::max(message.line, place->second);
            const size_t other = std::min(message.line, place->second);
            problems.add(line, "symbol " + message.symbol + " is there already" + atLine(other));
        }
}

void checkNumbersWithin(const MessageClass &each, Problems &problems) {
    for (size_t i = 1; i < each.messages.size(); i++) {
        const Message &message = each.messages[i];
        const Message &before = each.messages[i - 1];
        if (message.relative == before.relative)
            problems.add(std::max(message.line, before.line),
                         message.symbol + ": number " + std::to_string(message.relative) +
                             " of class " + each.name + " is there already" +
                             atLine(std::min(message.line, before.line)));
    }
}

// A class has the numbers up to the next one's first.
void checkRoom(const MessageClass &each, int64_t limit, const std::string &limitName,
               Problems &problems) {
    for (const Message &message : each.messages)
        if (each.number(message) >= limit)
            problems.add(message.line, message.symbol + ": number " +
                                           std::to_string(message.relative) + " leaves class " +
                                           each.name + ": " + std::to_string(each.number(message)) +
                                           " belongs to " + limitName);
}

void checkClassOrder(const MessageClass &each, const MessageClass &next, Problems &problems) {
    const std::string start = std::to_string(next.start);
    if (next.start == each.start)
        problems.add(std::max(each.line, next.line),
                     "classes " + each.name + " and " + next.name + " both start at " + start);
    else if (each.generated && lastNumber(each) >= next.start)
        problems.add(next.line, "class " + next.name + " starts at " + start +
                                    ", among the numbers of the operating system's errors (" +
                                    std::to_string(firstNumber(each)) + " to " +
                                    std::to_string(lastNumber(each)) + ")");
    else if (!each.generated)
        checkRoom(each, firstNumber(next), "class " + next.name, problems);
}

void checkNumbers(Catalogue &catalogue, Problems &problems) {
    int64_t last = -1;
    for (size_t i = 0; i < catalogue.classes.size(); i++) {
        const MessageClass &each = catalogue.classes[i];
        checkNumbersWithin(each, problems);
        if (i + 1 < catalogue.classes.size())
            checkClassOrder(each, catalogue.classes[i + 1], problems);
        last = std::max({last, lastNumber(each), each.start});
        checkRoom(each, MAX_NUMBER + 1, "no class: numbers end there", problems);
    }
    catalogue.end = last + 1;
}

bool isTextByte(char ch) {
    const auto byte = static_cast<unsigned char>(ch);
    return byte == '\n' || byte == '\t' || (byte >= ' ' && byte != 0x7F);
}

// The slots of a text, or -1 after a problem was told.
ptrdiff_t countSlots(const Message &message, Problems &problems) {
    ptrdiff_t slots = 0;
    const std::string &text = message.text;
    for (size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2) {
        const bool last = at + 1 == text.size();
        if (last || (text[at + 1] != 's' && text[at + 1] != '%')) {
            problems.add(message.textLine,
                         message.symbol + (last ? ": a lone \"%\" at the end of the text"
                                                : ": \"%" + text.substr(at + 1, 1) +
                                                      "\" in the text: only \"%s\" and \"%%\""));
            return -1;
        }
        slots += text[at + 1] == 's';
    }
    return slots;
}

void checkText(const Message &message, Problems &problems) {
    const auto tell = [&](const std::string &what) {
        problems.add(message.textLine, message.symbol + ": " + what);
    };
    if (message.text.empty())
        tell("the text is empty");
    if (message.text.size() > MAX_TEXT_BYTES)
        tell("the text is longer than " + std::to_string(MAX_TEXT_BYTES) + " bytes");
    if (!std::all_of(message.text.begin(), message.text.end(), isTextByte))
        tell("a control character in the text (only tab and line feed may be)");
    const ptrdiff_t slots = countSlots(message, problems);
    if (slots >= 0 && static_cast<size_t>(slots) != message.fields.size())
        tell("the text has " + std::to_string(slots) + " \"%s\" for " +
             std::to_string(message.fields.size()) + " fields");
}

void checkFields(const Message &message, Problems &problems) {
    std::set<std::string> seen;
    for (const Field &field : message.fields)
        if (!seen.insert(field.name).second)
            problems.add(field.line, message.symbol + ": field " + field.name + " is there twice");
    if (message.fields.size() > MAX_FIELDS)
        problems.add(message.line,
                     message.symbol + ": more than " + std::to_string(MAX_FIELDS) + " fields");
}

} // namespace

void checkCatalogue(Catalogue &catalogue, Problems &problems) {
    sortByNumber(catalogue);
    checkClassNames(catalogue, problems);
    checkSymbols(catalogue, problems);
    checkNumbers(catalogue, problems);
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages) {
            checkText(message, problems);
            checkFields(message, problems);
        }
}
