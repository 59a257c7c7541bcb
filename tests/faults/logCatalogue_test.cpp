// The catalogue of fields, classes and symbols, with every call failing in turn: nothing is taken
// for whole of which a part is missing, and the next lookup finds all.
#include "buffers/charBuffer.h"
#include "core/mkcopy.h"
#include "log/dataDict.h"
#include "log/logFields.h"
#include "log/logMsg.h"
#include "log/logStartCl.h"
#include "log/logSyms.h"
#include "log/synLogFlds.h"
#include "options/readInfo.h"

#include "faults/sweep.h"

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

using namespace std::string_literals;

namespace {

std::string bigEndian(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// A log root with message 1, NET_DOWN, and its two fields; the line of message 0 takes more than
// one read.
struct Catalogue {
    Catalogue() {
        std::string wide = "0\x1C";
        for (int i = 0; i < 2000; ++i)
            wide += "f" + std::to_string(i) + "\x1C";
        wide += "\x1D\n";
        const std::string zeros(4, '\0');
        root.write("ddMapLog", zeros + bigEndian(24) + zeros + bigEndian(0) + zeros +
                                   bigEndian(static_cast<uint32_t>(wide.size())));
        root.write("dataDictLog", wide + "1\x1Chost,S,0,16\x1Cport,D\x1C\x1D\n");
        mkdir(head().c_str(), 0700);
        root.write("head/systemLog.h", "#define _SYSMSG_START 0\n#define _NETMSG_START 1\n"
                                       "#define __MAX_LOGMSG 20\n");
        root.write("head/logNET.h",
                   "#define NET_DOWN logNET(1)\n#define NET_UP logNET(2)"); // no line feed
        root.write("head/logSYS.h", "#define SYS_OK logSYS(1)\n");
        setenv("LOGROOT", root.path().c_str(), 1);
    }
    std::string head() const { return root.file("head"); }
    const TempDir root;
};

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 64; ++fd)
        count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

// ---- fields

// The files stay those of the first lookup until their names are set anew.
void forgetFields() {
    endDdMapLog();
    setDdMapLogName(nullptr);
    setDataDictLogName(nullptr);
}

template<typename SetName>
void setName(Attempt &attempt, SetName set) {
    set("first");
    set("second");
    const std::string previous = attempt.under([&] { return shown(set("third")); });
    EXPECT_EQ(previous, attempt.faulted() ? "first" : "second");
    EXPECT_EQ(shown(set(nullptr)), attempt.faulted() ? "second" : "third");
    set(nullptr);
}

void namesMap(Attempt &attempt) {
    setName(attempt, setDdMapLogName);
}

void namesDictionary(Attempt &attempt) {
    setName(attempt, setDataDictLogName);
}

// A signal interrupts the reading of the line and not its result; it does end the reading of the
// index, and so does a short read, as a cut index would.
void getsFields(Attempt &attempt) {
    const Catalogue catalogue;
    const int before = openDescriptors();
    const LogFieldList *list = attempt.under([] { return getLogFormatFields(0); });
    if (!attempt.faulted()) {
        EXPECT_NE(list, nullptr);
    }
    EXPECT_TRUE(list == nullptr || list->count == 2000) << list->count << " fields of 2000";
    for (int round = 0; round < 2; ++round) {
        list = getLogFormatFields(0);
        ASSERT_NE(list, nullptr) << "a later lookup";
        EXPECT_EQ(list->count, 2000U);
        EXPECT_STREQ(list->fields[1999].name, "f1999");
    }
    forgetFields();
    EXPECT_EQ(openDescriptors(), before);
}

template<typename Find>
void findField(Attempt &attempt, Find find) {
    const Catalogue catalogue;
    const std::string found = attempt.under(find);
    EXPECT_TRUE(found == "port 1" || (attempt.faulted() && found == "none")) << found;
    EXPECT_EQ(find(), "port 1");
    forgetFields();
}

std::string described(const LogField *field) {
    return field == nullptr ? "none" : field->name + " "s + std::to_string(field->position);
}

void findsName(Attempt &attempt) {
    findField(attempt, [] { return described(findLogFieldName(1, "port")); });
}

void findsIndex(Attempt &attempt) {
    findField(attempt, [] { return described(getLogFieldName(1, 1)); });
}

void convertsName(Attempt &attempt) {
    findField(attempt, [] {
        const int32_t index = cvtLogFieldNameToIndex(1, "port");
        return index == -1 ? "none"s : "port " + std::to_string(index);
    });
}

void convertsIndex(Attempt &attempt) {
    findField(attempt, [] {
        const char *name = cvtLogFieldIndexToName(1, 1);
        return name == nullptr ? "none"s : name + " 1"s;
    });
}

// ---- classes

std::string classes() {
    std::string names;
    for (int32_t i = 0; logGetClass(i) != nullptr; ++i)
        names += logGetClass(i) + "="s + std::to_string(logStartClass(logGetClass(i))) + " ";
    return names;
}

constexpr const char *CLASSES = "SYS=0 NET=1 _MAX_LOGMSG=20 ";

// The whole table or none; then the next lookup reads it.
void readsClasses(Attempt &attempt) {
    const Catalogue catalogue;
    const std::string path = catalogue.head() + "/systemLog.h";
    const uint32_t table = attempt.under([&] { return logReadStartClasses(path.c_str()); });
    const bool isRead = !attempt.faulted() || attempt.at("fclose") ||
                        (attempt.at("getc") && attempt.effect() == EINTR);
    EXPECT_EQ(table != 0, isRead);
    EXPECT_EQ(classes(), CLASSES);
}

template<typename Look>
void lookUpClass(Attempt &attempt, const std::string &right, const std::string &unknown,
                 Look look) {
    const Catalogue catalogue;
    logReadStartClasses("/no/such/file"); // drops the table
    const std::string found = attempt.under(look);
    EXPECT_TRUE(found == right || (attempt.faulted() && found == unknown)) << found;
    EXPECT_EQ(look(), right);
}

void findsStart(Attempt &attempt) {
    lookUpClass(attempt, "1", "1000000", [] { return std::to_string(logStartClass("NET")); });
}

void findsSize(Attempt &attempt) {
    lookUpClass(attempt, "19", "1000000", [] { return std::to_string(logClassSize("NET")); });
}

void countsClasses(Attempt &attempt) {
    lookUpClass(attempt, "2", "0", [] { return std::to_string(logTotalClasses()); });
}

void findsEnd(Attempt &attempt) {
    lookUpClass(attempt, "20", "1000000", [] { return std::to_string(logMaxLogMsgIndex()); });
}

void getsClass(Attempt &attempt) {
    lookUpClass(attempt, "NET", "(null)", [] { return shown(logGetClass(1)); });
}

// ---- symbols

std::string symbols() {
    std::string names;
    for (int32_t i = 0; i < logTotalSymbols(); ++i)
        names += logGetSymbol(i)->name + "="s + std::to_string(logGetSymbol(i)->absIndex) + " ";
    return names;
}

constexpr const char *SYMBOLS = "NET_DOWN=1 NET_UP=2 SYS_OK=0 ";

void expectReadsAll(const Catalogue &catalogue) {
    EXPECT_EQ(logReadSymbols(catalogue.head().c_str()), 3);
    EXPECT_EQ(symbols(), SYMBOLS);
    logFreeSymbols();
}

// Reader, descriptors and the table; a class that cannot be looked up leaves the number unknown.
void readsSymbols(Attempt &attempt) {
    const Catalogue catalogue;
    const int before = openDescriptors();
    const int32_t count = attempt.under([&] { return logReadSymbols(catalogue.head().c_str()); });
    EXPECT_EQ(openDescriptors(), before);
    if (!attempt.faulted()) {
        EXPECT_EQ(count, 3);
    } else if (attempt.isMemory() || attempt.atAny({"getc", "readdir"})) {
        EXPECT_TRUE(count == 0 || count == 3) << count;
    }
    expectReadsAll(catalogue);
}

void readsHeader(Attempt &attempt) {
    const Catalogue catalogue;
    const std::string net = catalogue.head() + "/logNET.h", sys = catalogue.head() + "/logSYS.h";
    EXPECT_EQ(logReadHeader(sys.c_str()), 1);
    const int32_t count = attempt.under([&] { return logReadHeader(net.c_str()); });
    const bool isRead = !attempt.faulted() || attempt.at("fclose") ||
                        (attempt.at("getc") && attempt.effect() == EINTR);
    // The stacks of the matcher are there from the header before.
    EXPECT_EQ(count, isRead ? 2 : 0);
    EXPECT_EQ(symbols(), isRead ? "SYS_OK=0 NET_DOWN=1 NET_UP=2 " : "SYS_OK=0 ");
    logFreeSymbols();
    expectReadsAll(catalogue);
}

// The current directory stays where there is no memory for the other's name.
void setsDirectory(Attempt &attempt) {
    const Catalogue catalogue, another;
    const std::string first = catalogue.head(), second = another.head();
    logSetHeaderDirName(first.c_str());
    attempt.under([&] { return logSetHeaderDirName(second.c_str()); });
    const bool isRefused = attempt.isMemory() && attempt.faulted() && attempt.nth() == 1;
    EXPECT_EQ(shown(logGetHeaderDirName()), isRefused ? first : second);
    expectReadsAll(another);
}

template<typename Look>
void lookUp(Attempt &attempt, const std::string &right, const std::string &unknown, Look look) {
    const Catalogue catalogue;
    logSetHeaderDirName(catalogue.head().c_str());
    logFreeSymbols();
    const std::string found = attempt.under(look);
    EXPECT_TRUE(found == right || (attempt.faulted() && found == unknown)) << found;
    EXPECT_EQ(look(), right);
}

std::string nameOf(const LogSymbol *symbol) {
    return symbol == nullptr ? "none" : symbol->name;
}

void findsDefine(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "none", [] { return nameOf(logFindDefineName("NET_UP")); });
}

void findsRelative(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "none", [] { return nameOf(logFindRelIndex("NET", 2)); });
}

void findsAbsolute(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "none", [] { return nameOf(logFindAbsIndex(2)); });
}

void findsSymbol(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "none", [] { return nameOf(logFindSymbol("NET002")); });
}

void givesName(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "(null)", [] { return shown(logAbsIndexToSymbol(2)); });
}

void givesClass(Attempt &attempt) {
    lookUp(attempt, "NET", "(null)", [] { return shown(logSymbolToClass("NET_UP")); });
}

void givesAbsolute(Attempt &attempt) {
    lookUp(attempt, "2", "-1", [] { return std::to_string(logSymbolToAbsIndex("logNET(2)")); });
}

void givesRelative(Attempt &attempt) {
    lookUp(attempt, "2", "-1", [] { return std::to_string(logSymbolToRelIndex("NET_UP")); });
}

void counts(Attempt &attempt) {
    lookUp(attempt, "3", "0", [] { return std::to_string(logTotalSymbols()); });
}

void getsSymbol(Attempt &attempt) {
    lookUp(attempt, "NET_UP", "none", [] { return nameOf(logGetSymbol(1)); });
}

// Without memory for its index the table is walked.
void findsWithoutIndex(Attempt &attempt) {
    const Catalogue catalogue;
    ASSERT_EQ(logReadSymbols(nullptr), 3);
    const LogSymbol *symbol = attempt.under([] { return logFindAbsIndex(2); });
    EXPECT_EQ(nameOf(symbol), "NET_UP");
}

// ---- templates

struct FreeBuffer {
    void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
};

std::string filled() {
    const std::unique_ptr<CharBuffer, FreeBuffer> buffer(mkCharBuffer(8));
    char record[] = "1 \x1C"
                    "25F000000prog file.c:12\x1C"
                    "tel one\x1C"
                    "80\x1D";
    LogMsg *msg = parseCmpLog(record, 0);
    std::string text = "no record";
    if (msg != nullptr && buffer != nullptr)
        text = shown(translateSynFields(buffer.get(), "@i@ @s@ @c@ @f@[host] @f@[1] @key@ @line@",
                                        msg, "k"));
    freeLogMsg(msg);
    return text;
}

// The whole text or none. What is not found stays as it is written.
void translates(Attempt &attempt) {
    const Catalogue catalogue;
    const std::string text = attempt.under(filled);
    const std::string right = "1 NET_DOWN NET \"tel one\" 80 k 12";
    EXPECT_TRUE(text == right || (attempt.faulted() && (text == "(null)" || text == "no record")))
        << text;
    EXPECT_EQ(filled(), right);
    endDdMapLog();
}

void checks(Attempt &attempt) {
    const Catalogue catalogue;
    char *error = nullptr;
    const int valid =
        attempt.under([&] { return vfySynFields(1, "@s@ @f@[host] @f@[1]", &error, 0); });
    EXPECT_TRUE(valid == 1 || attempt.faulted());
    EXPECT_EQ(error == nullptr, valid == 1) << "refused without a message";
    EXPECT_TRUE(error == nullptr || *error != '\0');
    EXPECT_EQ(vfySynFields(1, "@s@ @f@[host] @f@[1]", &error, 0), 1);
    endDdMapLog();
}

void decodes(Attempt &attempt) {
    char *error = nullptr, *next = nullptr;
    const int valid =
        attempt.under([&] { return decodeSynField(-1, "@nothing@", &error, &next, 0); });
    EXPECT_EQ(valid, 0);
    EXPECT_EQ(shown(error), attempt.faulted() ? "Invalid synthetic field (out of memory)"
                                              : "@nothing@ : Unrecognized synthetic field name");
}

const Kinds FILES = {INTERRUPTED, NO_SPACE, IO_ERROR, IO_GONE};
const Kinds READING = {INTERRUPTED, IO_ERROR, IO_GONE};

// Not byte by byte, of which there are too many.
constexpr const char *FILE_CALLS = "open,pread,fflush,fseeko,close,fclose";
const Kinds BELOW_STREAM = {
    {"EINTR", FILE_CALLS, EINTR, 0}, {"EIO", FILE_CALLS, EIO, 0}, {"EIOGone", FILE_CALLS, EIO, 1}};

const std::vector<Rows> rows = {
    {"setDdMapLogName", Fresh::IN_PLACE, namesMap, MEMORY},
    {"setDataDictLogName", Fresh::IN_PLACE, namesDictionary, MEMORY},
    {"getLogFormatFields", Fresh::IN_PLACE, getsFields, BELOW_STREAM + TRANSFERS},
    {"getLogFormatFields_wide",
     Fresh::IN_PLACE,
     getsFields,
     {Kind{"memoryOnce", "calloc,realloc,fopencookie,vsnprintf", ENOMEM, 0}}},
    {"findLogFieldName", Fresh::IN_PLACE, findsName, MEMORY},
    {"getLogFieldName", Fresh::IN_PLACE, findsIndex, MEMORY},
    {"cvtLogFieldNameToIndex", Fresh::IN_PLACE, convertsName, MEMORY},
    {"cvtLogFieldIndexToName", Fresh::IN_PLACE, convertsIndex, MEMORY},
    {"logReadStartClasses", Fresh::IN_PLACE, readsClasses, MEMORY + READING},
    {"logStartClass", Fresh::IN_PLACE, findsStart, MEMORY},
    {"logClassSize", Fresh::IN_PLACE, findsSize, MEMORY},
    {"logTotalClasses", Fresh::IN_PLACE, countsClasses, MEMORY},
    {"logMaxLogMsgIndex", Fresh::IN_PLACE, findsEnd, MEMORY},
    {"logGetClass", Fresh::IN_PLACE, getsClass, MEMORY},
    {"logReadSymbols", Fresh::IN_CHILD, readsSymbols, MEMORY},
    {"logReadSymbols_files", Fresh::IN_PLACE, readsSymbols, READING},
    {"logReadHeader", Fresh::IN_PLACE, readsHeader, MEMORY + READING},
    {"logSetHeaderDirName", Fresh::IN_PLACE, setsDirectory, MEMORY + READING},
    {"logFindDefineName", Fresh::IN_PLACE, findsDefine, MEMORY},
    {"logFindRelIndex", Fresh::IN_PLACE, findsRelative, MEMORY},
    {"logFindAbsIndex", Fresh::IN_PLACE, findsAbsolute, MEMORY},
    {"logFindAbsIndex_withoutIndex", Fresh::IN_CHILD, findsWithoutIndex, MEMORY},
    {"logFindSymbol", Fresh::IN_PLACE, findsSymbol, MEMORY},
    {"logAbsIndexToSymbol", Fresh::IN_PLACE, givesName, MEMORY},
    {"logSymbolToClass", Fresh::IN_PLACE, givesClass, MEMORY},
    {"logSymbolToAbsIndex", Fresh::IN_PLACE, givesAbsolute, MEMORY},
    {"logSymbolToRelIndex", Fresh::IN_PLACE, givesRelative, MEMORY},
    {"logTotalSymbols", Fresh::IN_PLACE, counts, MEMORY},
    {"logGetSymbol", Fresh::IN_PLACE, getsSymbol, MEMORY},
    {"translateSynFields", Fresh::IN_CHILD, translates, MEMORY},
    {"vfySynFields", Fresh::IN_CHILD, checks, MEMORY},
    {"decodeSynField", Fresh::IN_CHILD, decodes, MEMORY},
};

QN_SWEEPS(rows);

} // namespace
