/* Clipboard files. From values: entries that are added, written and loaded again are equal where
   the quoting carries their values. From bytes: any file loads; rewritten and loaded again it holds
   what it held, and rewriting it once more changes no byte. clipboard(5) lists what is not
   carried. */
#include "buffers/arrays.h"
#include "clipboard/clipboard.h"
#include "options/options.h"
#include "support/scratch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

namespace {

constexpr size_t MAX_ENTRIES = 8;

using Text = std::optional<std::string>;

struct Entry {
    Text comment, name, value, trailer;
    bool operator==(const Entry &) const = default;
};

// ---- what the quoting carries

bool isQuoted(const std::string &value) {
    return value.find_first_of(" \t'\"`|^<>;#&[]{}()$\n\r\f\b") != std::string::npos;
}

// Written as it is: a backslash is dropped at the next load, a vertical tab ends the value, and
// nothing is no value.
bool isCarried(const Entry &entry) {
    if (!entry.value)
        return !entry.trailer; // else the trailer is read as the value
    return isQuoted(*entry.value) ||
           (!entry.value->empty() && entry.value->find_first_of("\\\v") == std::string::npos);
}

// A value whose last backslash takes the line's end with it, and so the next line.
bool takesNextLine(const Entry &entry) {
    if (!entry.value || isQuoted(*entry.value))
        return false;
    const size_t last = entry.value->find_last_not_of('\\');
    return (entry.value->size() - (last == std::string::npos ? 0 : last + 1)) % 2 != 0;
}

// Comments and trailers come back where no quote or backslash in them reaches into the next line.
bool isTidy(const Text &text) {
    return !text || text->find_first_of("'\"`\\") == std::string::npos;
}

bool isTidy(const Entry &entry) {
    return isTidy(entry.comment) && isTidy(entry.trailer);
}

// ---- files

std::string bytesOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Clipboard *opened(const std::string &path) {
    Clipboard *clipboard = modifyClipboard(path.c_str());
    FUZZ_CHECK(clipboard != nullptr && getClipboard(clipboard) != 0);
    FUZZ_CHECK(getClipboardFlags(clipboard) == 0);
    return clipboard;
}

Text textOf(const char *text) {
    return text == nullptr ? Text() : Text(text);
}

std::vector<Entry> entriesOf(const Clipboard *clipboard) {
    const ArrayDescriptor *descriptor = arrayValidDescriptor(clipboard->entries);
    FUZZ_CHECK(descriptor != nullptr);
    std::vector<Entry> entries;
    for (uint32_t i = 0; i < descriptor->count; ++i) {
        const ClipEntry &entry = static_cast<const ClipEntry *>(descriptor->storage)[i];
        entries.push_back({textOf(entry.comment), textOf(entry.name), textOf(entry.value),
                           textOf(entry.trailer)});
    }
    return entries;
}

int32_t namedIn(const std::vector<Entry> &entries) {
    int32_t count = 0;
    for (const Entry &entry : entries)
        count += entry.name.has_value();
    return count;
}

void rewrite(Clipboard *clipboard, int32_t named) {
    addClipboardFlags(clipboard, CLIP_MODIFIED);
    FUZZ_CHECK(closeClipboard(clipboard) == named);
}

std::vector<Entry> loaded(const std::string &path) {
    Clipboard *clipboard = opened(path);
    std::vector<Entry> entries = entriesOf(clipboard);
    FUZZ_CHECK(closeClipboard(clipboard) == 0);
    return entries;
}

// ---- the two claims

const char *pointer(const Text &text) {
    return text ? text->c_str() : nullptr;
}

// quotePuts writes as the file does, and one statement is read back.
void checkStatement(const std::string &value) {
    char *bytes = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&bytes, &size);
    FUZZ_CHECK(fputs("N=", stream) >= 0 && quotePuts(value.c_str(), stream) == 1);
    fclose(stream);
    char *name, *read, *rest;
    FUZZ_CHECK(parseXeqY(0, 0, bytes, &name, &read, &rest) == 1);
    FUZZ_CHECK(strcmp(name, "N") == 0);
    if (isCarried({{}, {}, value, {}}))
        FUZZ_CHECK(read != nullptr && read == value && rest == nullptr);
    free(bytes);
}

std::vector<Entry> someEntries(Pieces &pieces) {
    std::vector<Entry> entries;
    for (uint32_t count = pieces.number(MAX_ENTRIES) + 1; count > 0; --count) {
        const uint8_t extras = pieces.byte();
        Entry entry = {{}, "N" + std::to_string(count), {}, {}};
        if ((extras & 3) != 0)
            entry.value = pieces.text();
        if ((extras & 4) != 0)
            entry.comment = (extras & 8) != 0 ? "# comment\n\n" : "\n";
        if ((extras & 16) != 0)
            entry.trailer = (extras & 32) != 0 ? " # trailer" : ";# trailer";
        entries.push_back(entry);
    }
    return entries;
}

void checkValues(Pieces &pieces) {
    const std::vector<Entry> entries = someEntries(pieces);
    const std::string path = scratchFile("clip", "");
    Clipboard *clipboard = opened(path);
    for (const Entry &entry : entries) {
        if (entry.value)
            checkStatement(*entry.value);
        FUZZ_CHECK(addClipEntry(clipboard, pointer(entry.comment), pointer(entry.name),
                                pointer(entry.value), pointer(entry.trailer)) == 1);
    }
    FUZZ_CHECK(entriesOf(clipboard) == entries);
    FUZZ_CHECK(closeClipboard(clipboard) == static_cast<int32_t>(entries.size()));

    const std::vector<Entry> again = loaded(path);
    // What is not carried spoils its own entry alone, unless it takes the next line.
    for (size_t i = 0; i < entries.size(); ++i) {
        FUZZ_CHECK(i < again.size() && again[i].name == entries[i].name);
        if (isCarried(entries[i]))
            FUZZ_CHECK(again[i] == entries[i]);
        if (takesNextLine(entries[i]))
            return;
    }
    FUZZ_CHECK(again.size() == entries.size());
}

void checkFile(const std::string &bytes) {
    const std::string path = scratchFile("clip", bytes);
    Clipboard *clipboard = opened(path);
    const std::vector<Entry> before = entriesOf(clipboard);
    bool isCarriedWhole = true;
    for (const Entry &entry : before)
        isCarriedWhole = isCarriedWhole && isTidy(entry) && (!entry.name || isCarried(entry));
    FUZZ_CHECK(bytesOf(path) == bytes);
    rewrite(clipboard, namedIn(before));
    const std::string rewritten = bytesOf(path);

    clipboard = opened(path);
    const std::vector<Entry> after = entriesOf(clipboard);
    rewrite(clipboard, namedIn(after));
    if (!isCarriedWhole)
        return;
    FUZZ_CHECK(after == before);
    FUZZ_CHECK(bytesOf(path) == rewritten);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    if (pieces.byte() % 2 == 0)
        checkValues(pieces);
    else
        checkFile(pieces.rest());
    return 0;
}
