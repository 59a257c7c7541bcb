/* The files of a log root: whatever they hold, every lookup stays within what was read, finds what
   the tables list, and can be made again after a reload. */
#include "buffers/charBuffer.h"
#include "core/mkcopy.h"
#include "log/dataDict.h"
#include "log/expandLog.h"
#include "log/log.h"
#include "log/logFields.h"
#include "log/logStartCl.h"
#include "log/logSyms.h"
#include "log/synLogFlds.h"
#include "support/exactText.h"
#include "support/memoryFile.h"
#include "support/scratch.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// Between the files of an input. After them: a text to look up, a template, and a record.
static constexpr std::string_view SEPARATOR = "\n=====\n";

enum File {
    FORMAT_TABLE,
    TEXT_FORMATS,
    FIELD_INDEX,
    DICTIONARY,
    CLASSES,
    HEADER,
    OTHER_HEADER,
    FILES
};

static constexpr const char *NAMES[FILES] = {
    "cmpLogFmt",        "textLogFmt",    "ddMapLog",     "dataDictLog",
    "head/systemLog.h", "head/logNET.h", "head/logDB.h",
};

static std::string pathOf(const char *name) {
    return scratchFolder() + "/" + name;
}

// ---- the log root

// Its files are links to memory, so that an input costs no folder entries.
static MemoryFile *makeRoot() {
    static MemoryFile files[FILES];
    FUZZ_CHECK(mkdir(pathOf("head").c_str(), 0700) == 0);
    for (int i = 0; i < FILES; ++i)
        FUZZ_CHECK(symlink(files[i].path().c_str(), pathOf(NAMES[i]).c_str()) == 0);
    setDdMapLogName(pathOf(NAMES[FIELD_INDEX]).c_str());
    setDataDictLogName(pathOf(NAMES[DICTIONARY]).c_str());
    setenv("TZ", "UTC0", 1);
    return files;
}

static MemoryFile *rootFiles() {
    static MemoryFile *const files = makeRoot();
    return files;
}

static std::string takePiece(std::string &input) {
    const size_t end = input.find(SEPARATOR);
    std::string piece = input.substr(0, end);
    input.erase(0, end == std::string::npos ? input.size() : end + SEPARATOR.size());
    return piece;
}

// A count as large as the number at the offset is only address space, of which a sanitizer writes a
// part: it is brought down to 16 bits, be it cut short. One that is refused stays.
static void lowerCount(std::string &file, size_t offset) {
    if (file.size() > offset && static_cast<unsigned char>(file[offset]) < 0x80)
        for (size_t i = offset; i < file.size() && i < offset + 2; ++i)
            file[i] = '\0';
}

static std::string contentsOf(int file, std::string &input) {
    std::string contents = takePiece(input);
    if (file == FORMAT_TABLE)
        lowerCount(contents, 0);
    if (file == FIELD_INDEX && contents.size() > 4) {
        contents[4] = static_cast<char>(contents[4] & 0x7F);
        lowerCount(contents, 4);
    }
    return contents;
}

// ---- the format table

// What loginit keeps for its callers is released here, and so is the descriptor that it leaves open
// on a file that is refused.
static void loadFormats() {
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    uint16_t *const table = FmtTbl;
    char *const strings = Fmt, *const root = logRoot;
    {
        const QuietErrors quiet;
        FUZZ_CHECK(loginit("fuzz", 0, 0, scratchFolder().c_str()) == -1); // no pipe
    }
    if (fmtMax < 0)
        close(next);
    if (FmtTbl != table)
        free(table);
    if (Fmt != strings)
        free(strings);
    freecopy(root);
}

static void checkFormats() {
    loadFormats();
    FUZZ_CHECK(fmtMax >= -1 && getCmpFmt(fmtMax) == nullptr && getCmpFmt(-1) == nullptr);
    for (int32_t number = 0; number < fmtMax; number += 1 + number / 8) {
        const char *format = getCmpFmt(number);
        FUZZ_CHECK(format == Fmt + FmtTbl[number] && strlen(format) < 0x20000);
    }
}

static void checkTexts(size_t size) {
    FUZZ_CHECK(setExpandFmt(pathOf(NAMES[TEXT_FORMATS]).c_str()) != nullptr);
    for (int32_t number = 0; number < 40; number += 1 + number / 4) {
        const char *text = getExpandFmt(number);
        FUZZ_CHECK(text == nullptr || (strlen(text) <= size && getExpandFmt(number) == text));
    }
}

// ---- fields

static void checkField(int32_t number, const LogFieldList &list, uint32_t place) {
    const LogField &field = list.fields[place];
    FUZZ_CHECK(field.position == (place & 0xFF) && field.name != nullptr);
    FUZZ_CHECK(getLogFieldName(number, static_cast<int32_t>(place)) == &field);
    const LogField *found = findLogFieldName(number, field.name);
    FUZZ_CHECK(*field.name == '\0' ? found == nullptr : strcmp(found->name, field.name) == 0);
}

static void checkFields(const char *name) {
    endDdMapLog();
    for (int32_t number = -1; number < 24; ++number) {
        const LogFieldList *list = getLogFormatFields(number);
        const int32_t position = cvtLogFieldNameToIndex(number, name);
        FUZZ_CHECK(list != nullptr || position == -1);
        if (list == nullptr)
            continue;
        FUZZ_CHECK(list->number == number && getLogFormatFields(number) == list);
        FUZZ_CHECK(cvtLogFieldIndexToName(number, static_cast<int32_t>(list->count)) == nullptr);
        for (uint32_t place = 0; place < list->count; ++place)
            checkField(number, *list, place);
    }
}

// ---- classes and symbols

static void checkClasses() {
    const int32_t total = logTotalClasses() + 1;
    FUZZ_CHECK(total >= 0 && logGetClass(total) == nullptr);
    for (int32_t i = 0; i < total; ++i) {
        const char *name = logGetClass(i);
        FUZZ_CHECK(name != nullptr && logStartClass(name) >= 0);
        logClassSize(name);
    }
    FUZZ_CHECK(logMaxLogMsgIndex() >= 0);
}

static void checkSymbol(const LogSymbol &symbol) {
    const LogSymbol *named = logFindDefineName(symbol.name);
    FUZZ_CHECK(named != nullptr && strcmp(named->name, symbol.name) == 0);
    FUZZ_CHECK(logFindSymbol(symbol.name) == named);
    const int64_t start = logStartClass(symbol.className);
    const int64_t absolute = start == LOG_UNKNOWN_CLASS ? -1 : start + symbol.relIndex - 1;
    FUZZ_CHECK(symbol.relIndex >= -1);
    if (symbol.relIndex >= 0)
        FUZZ_CHECK(symbol.absIndex == (absolute > INT32_MAX ? -1 : absolute));
    const LogSymbol *related = logFindRelIndex(symbol.className, symbol.relIndex);
    FUZZ_CHECK(symbol.relIndex < 0 ? related == nullptr
                                   : related->relIndex == symbol.relIndex &&
                                         strcmp(related->className, symbol.className) == 0);
    const LogSymbol *numbered = logFindAbsIndex(symbol.absIndex);
    FUZZ_CHECK(symbol.absIndex < 0 ? numbered == nullptr : numbered->absIndex == symbol.absIndex);
}

static void checkSymbols(const char *text) {
    const int32_t total = logReadSymbols(pathOf("head").c_str());
    FUZZ_CHECK(total == logTotalSymbols() && logGetSymbol(total) == nullptr);
    for (int32_t i = 0; i < total; ++i) {
        checkSymbol(*logGetSymbol(i));
        FUZZ_CHECK(i == 0 || strcmp(logGetSymbol(i - 1)->name, logGetSymbol(i)->name) <= 0);
    }
    const LogSymbol *found = logFindSymbol(text);
    FUZZ_CHECK(logSymbolToAbsIndex(text) == (found == nullptr ? -1 : found->absIndex));
    FUZZ_CHECK(logReadSymbols(nullptr) == total);
}

// ---- with all of it

static void expand(const ExactText &text, const ExactText &record) {
    chgExpansionFmt("%P %N %M\\n@symbol@ @class@ @ci@ @f@[0] @f@[host]");
    LogMsg *msg = parseCmpLog(record.get(), 1);
    if (msg == nullptr)
        return;
    vfySynFields(msg->index, text.get(), nullptr, 1);
    CharBuffer *buffer = mkCharBuffer(0);
    FUZZ_CHECK(translateSynFields(buffer, text.get(), msg, "key") != nullptr);
    freeCharBuffer(buffer);
    freeLogMsg(msg);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    MemoryFile *const files = rootFiles();
    std::string input(reinterpret_cast<const char *>(data), size);
    for (int i = 0; i < FILES; ++i)
        files[i].write(contentsOf(i, input));
    const ExactText name(takePiece(input)), text(takePiece(input)), record(takePiece(input));

    checkFormats();
    checkTexts(size);
    checkFields(name.get());
    checkSymbols(name.get());
    checkClasses();
    expand(text, record);
    endDdMapLog();
    logFreeSymbols();
    return 0;
}
