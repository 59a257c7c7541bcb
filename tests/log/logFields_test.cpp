/* The field catalogue: index and dictionary byte by byte, what a line's fields are, the cache, the
   names of the files, and every way a lookup finds nothing. Each case in a child: the catalogue is
   the process's. */
#include "log/logFields.h"
#include "log/dataDict.h"

#include "catalogueFixture.h"
#include "support/failingAlloc.h"

#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

std::string indexRecord(uint32_t value) {
    std::string bytes = "\xAA\xBB\xCC\xDD"; // two words that are not looked at
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// A log root whose catalogue has these lines, the first for message 0.
class Catalogue {
  public:
    explicit Catalogue(const std::vector<std::string> &lines = {}) {
        setenv("LOGROOT", dir_.path().c_str(), 1);
        std::string index = indexRecord(static_cast<uint32_t>(8 * (lines.size() + 1))), dictionary;
        for (const std::string &line : lines) {
            index += indexRecord(static_cast<uint32_t>(dictionary.size()));
            dictionary += line + "\n";
        }
        write(index, dictionary);
    }
    void write(const std::string &index, const std::string &dictionary) const {
        dir_.write("ddMapLog", index);
        dir_.write("dataDictLog", dictionary);
    }
    const TempDir &dir() const { return dir_; }

  private:
    TempDir dir_;
};

// "name/position/type/first/second ...", "none" without a list, "-" for one without fields.
std::string fieldsOf(int32_t number) {
    const LogFieldList *list = getLogFormatFields(number);
    if (list == nullptr)
        return "none";
    EXPECT_EQ(list->number, number);
    std::string text = list->count == 0 ? "-" : "";
    for (uint32_t i = 0; i < list->count; ++i) {
        const LogField &field = list->fields[i];
        text += (i == 0 ? "" : " ") + std::string(field.name) + "/" +
                std::to_string(field.position) + "/" + field.type + "/" +
                std::to_string(field.first) + "/" + std::to_string(field.second);
    }
    return text;
}

// With | for the separator and # for the end of the fields.
std::string dictionaryLine(std::string text) {
    for (char &ch : text)
        ch = ch == '|' ? '\x1C' : ch == '#' ? '\x1D' : ch;
    return text;
}

struct LineCase {
    const char *line, *fields;
};

const LineCase LINES[] = {
    {"0|host,S,0,16|port,D|#", "host/0/S/0/16 port/1/D/0/0"},
    {"0|#", "-"},
    {"0|", "-"},
    {"0", "-"},
    {"0#", "-"},
    {"0|a|#", "a/0/S/0/0"},
    {"0|a#", "a/0/S/0/0"},
    {"0|a|b#", "a/0/S/0/0 b/1/S/0/0"},
    {"0|a|b", "a/0/S/0/0"},
    {"0|a", "-"},
    {"0|a|b|", "a/0/S/0/0 b/1/S/0/0"},
    {"0|a|#b|c|", "a/0/S/0/0"},
    {"0|a|b#c|", "a/0/S/0/0 b/1/S/0/0"},
    {"0||a|#", "/0/S/0/0 a/1/S/0/0"},
    {"0xa|b|#", "a/0/S/0/0 b/1/S/0/0"}, // whatever the separator is
    {"0 a|#", "a/0/S/0/0"},
    {"0|a,|b,#", "a/0/S/0/0 b/1/S/0/0"},
    {"0|a,D|#", "a/0/D/0/0"},
    {"0|a,D,7|#", "a/0/D/7/0"},
    {"0|a,D,7,8|#", "a/0/D/7/8"},
    {"0|a,D,7,8,9|b|#", "a/0/D/7/8 b/1/S/0/0"},
    {"0|a,D,7,8#", "a/0/D/7/8"},
    {"0|a,D,0x10,010|#", "a/0/D/16/8"},
    {"0|a,D,-1,-2|#", "a/0/D/-1/-2"},
    {"0|a,D,32767,2147483647|#", "a/0/D/32767/2147483647"},
    {"0|a,D,32768,2147483648|#", "a/0/D/-32768/2147483647"},
    {"0|a,D,65535,-99999999999|#", "a/0/D/-1/-2147483648"},
    {"0|a,D,,8|b|#", "a/0/D/0/8 b/1/S/0/0"},
    {"0|a,D,x,8|b|#", "a/0/D/0/0 b/1/S/0/0"},
    {"0|a,DX,7|b|#", "a/0/D/0/0 b/1/S/0/0"},
    {"0|a,D,7x,8|b|#", "a/0/D/7/0 b/1/S/0/0"},
    {"0|a b,D|#", "a b/0/D/0/0"},
    {"1|a|#", "none"},
    {"-1|a|#", "none"},
    {"|a|#", "none"},
    {"x|a|#", "none"},
    {"4294967296|a|#", "none"},
    {"", "none"},
};

TEST(LogFields, fieldsAreWhatSeparatorsEnd) {
    for (const LineCase &row : LINES)
        expectChildPasses([&row] {
            const Catalogue catalogue({dictionaryLine(row.line)});
            EXPECT_EQ(fieldsOf(0), row.fields) << row.line;
        });
}

TEST(LogFields, lineCutAtEveryByteGivesNoFieldThatIsNotEnded) {
    expectChildPasses([] {
        const std::string whole = dictionaryLine("0|host,S,0,16|port,D|#");
        for (size_t length = 1; length < whole.size(); ++length) {
            const Catalogue catalogue;
            // At the very end of the file, without a newline
            catalogue.write(indexRecord(16) + indexRecord(0), whole.substr(0, length));
            EXPECT_EQ(fieldsOf(0), length < 14   ? "-"
                                   : length < 21 ? "host/0/S/0/16"
                                                 : "host/0/S/0/16 port/1/D/0/0")
                << length;
            endDdMapLog();
            setDdMapLogName(nullptr);
            setDataDictLogName(nullptr);
        }
    });
}

TEST(LogFields, lookupsTranslateBetweenNamesAndPlaces) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1C\x1D", "1\x1Chost,S\x1Cport,D\x1Chost,X\x1C\x1D"});
        const LogFieldList *list = getLogFormatFields(1);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(findLogFieldName(1, "host"), &list->fields[0]);
        EXPECT_EQ(findLogFieldName(1, "port"), &list->fields[1]);
        EXPECT_EQ(findLogFieldName(1, "Host"), nullptr);
        EXPECT_EQ(findLogFieldName(1, "hos"), nullptr);
        EXPECT_EQ(findLogFieldName(0, "host"), nullptr);
        EXPECT_EQ(findLogFieldName(2, "host"), nullptr);
        EXPECT_EQ(cvtLogFieldNameToIndex(1, "port"), 1);
        EXPECT_EQ(cvtLogFieldNameToIndex(1, "none"), -1);
        EXPECT_EQ(cvtLogFieldNameToIndex(1, nullptr), -1);
        EXPECT_EQ(getLogFieldName(1, 2), &list->fields[2]);
        EXPECT_EQ(getLogFieldName(1, 3), nullptr);
        EXPECT_EQ(getLogFieldName(1, -1), nullptr);
        EXPECT_EQ(getLogFieldName(5, 0), nullptr);
        EXPECT_STREQ(cvtLogFieldIndexToName(1, 1), "port");
        EXPECT_EQ(cvtLogFieldIndexToName(1, 3), nullptr);
        EXPECT_EQ(cvtLogFieldIndexToName(-1, 0), nullptr);
    });
}

TEST(LogFields, emptyNameLoadsNothing) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1C\x1C\x1D"});
        const int before = openDescriptors();
        EXPECT_EQ(findLogFieldName(0, ""), nullptr);
        EXPECT_EQ(findLogFieldName(0, nullptr), nullptr);
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(fieldsOf(0), "/0/S/0/0");
        EXPECT_EQ(openDescriptors(), before + 2);
        EXPECT_EQ(findLogFieldName(0, ""), nullptr);
    });
}

TEST(LogFields, manyFieldsWrapTheirPosition) {
    expectChildPasses([] {
        std::string line = "0\x1C";
        for (int i = 0; i < 300; ++i)
            line += "f" + std::to_string(i) + "\x1C";
        const Catalogue catalogue({line + "\x1D"});
        const LogFieldList *list = getLogFormatFields(0);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(list->count, 300U);
        EXPECT_EQ(list->fields[255].position, 255);
        EXPECT_EQ(list->fields[256].position, 0);
        EXPECT_STREQ(cvtLogFieldIndexToName(0, 299), "f299");
        EXPECT_EQ(cvtLogFieldNameToIndex(0, "f299"), 43);
    });
}

// ---- the index

TEST(LogFields, indexOf24BytesHasTwoMessages) {
    expectChildPasses([] {
        const Catalogue catalogue;
        // The third record is there, and leads to a line of message 2, but the size excludes it.
        catalogue.write(indexRecord(24) + indexRecord(0) + indexRecord(4) + indexRecord(8),
                        "0\x1C\x1D\n1\x1C\x1D\n2\x1C\x1D\n");
        EXPECT_EQ(fieldsOf(0), "-");
        EXPECT_EQ(fieldsOf(1), "-");
        EXPECT_EQ(fieldsOf(2), "none");
        EXPECT_EQ(fieldsOf(-1), "none");
        EXPECT_EQ(fieldsOf(INT32_MAX), "none");
        EXPECT_EQ(fieldsOf(INT32_MIN), "none");
    });
}

TEST(LogFields, indexSizeIsRoundedDownAndBelowEightMeansNoMessages) {
    const struct {
        uint32_t size;
        const char *first, *second;
    } ROWS[] = {{0, "none", "none"}, {7, "none", "none"}, {8, "none", "none"}, {15, "none", "none"},
                {16, "-", "none"},   {23, "-", "none"},   {24, "-", "-"}};
    for (const auto &row : ROWS)
        expectChildPasses([&row] {
            const Catalogue catalogue;
            catalogue.write(indexRecord(row.size) + indexRecord(0) + indexRecord(4),
                            "0\x1C\x1D\n1\x1C\x1D\n");
            EXPECT_EQ(fieldsOf(0), row.first) << row.size;
            EXPECT_EQ(fieldsOf(1), row.second) << row.size;
        });
}

TEST(LogFields, shortIndexRecordsFindNothing) {
    expectChildPasses([] {
        const Catalogue catalogue;
        const std::string whole = indexRecord(24) + indexRecord(0) + indexRecord(4);
        for (size_t length = 0; length < whole.size(); ++length) {
            catalogue.write(whole.substr(0, length), "0\x1C\x1D\n1\x1C\x1D\n");
            EXPECT_EQ(fieldsOf(0), length < 16 ? "none" : "-") << length;
            EXPECT_EQ(fieldsOf(1), "none") << length;
            endDdMapLog();
        }
    });
}

TEST(LogFields, headerThatCannotBeReadLeavesNothingOpen) {
    expectChildPasses([] {
        const Catalogue catalogue;
        const int before = openDescriptors();
        catalogue.write("\0\0\0\0\0\0\0"s, "0\x1C\x1D\n");
        EXPECT_EQ(fieldsOf(0), "none");
        EXPECT_EQ(openDescriptors(), before);
        // Tried again at the next lookup
        catalogue.write(indexRecord(16) + indexRecord(0), "0\x1C\x1D\n");
        EXPECT_EQ(fieldsOf(0), "-");
    });
}

TEST(LogFields, lineOfAnotherMessageIsNotTaken) {
    expectChildPasses([] {
        std::vector<std::string> lines(8, "x");
        lines[7] = "8\x1Chost\x1C\x1D";
        const Catalogue catalogue(lines);
        EXPECT_EQ(fieldsOf(7), "none");
        EXPECT_EQ(cvtLogFieldNameToIndex(7, "host"), -1);
    });
}

TEST(LogFields, offsetPastTheDictionaryFindsNothing) {
    expectChildPasses([] {
        const Catalogue catalogue;
        catalogue.write(indexRecord(24) + indexRecord(0xFFFFFFFF) + indexRecord(4),
                        "0\x1C\x1D\n1\x1C\x1D\n");
        EXPECT_EQ(fieldsOf(0), "none");
        // The end of the file met there does not stay.
        EXPECT_EQ(fieldsOf(1), "-");
    });
}

TEST(LogFields, offsetsAreUnsignedAndPassTwoGigabytes) {
    expectChildPasses([] {
        const Catalogue catalogue;
        const off64_t offset = 0xC0000000;
        catalogue.write(indexRecord(16) + indexRecord(0xC0000000), "");
        const int fd = open64(catalogue.dir().file("dataDictLog").c_str(), O_WRONLY);
        const char line[] = "0\x1C"
                            "far\x1C\x1D\n";
        ASSERT_EQ(pwrite64(fd, line, strlen(line), offset), static_cast<ssize_t>(strlen(line)));
        close(fd);
        EXPECT_EQ(fieldsOf(0), "far/0/S/0/0");
    });
}

// ---- files and names

TEST(LogFields, missingFileFindsNothingAndLeavesNothingOpen) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1C\x1D"});
        const int before = openDescriptors();
        ASSERT_EQ(unlink(catalogue.dir().file("dataDictLog").c_str()), 0);
        EXPECT_EQ(fieldsOf(0), "none");
        EXPECT_EQ(openDescriptors(), before);
        catalogue.write("", "0\x1C\x1D\n");
        ASSERT_EQ(unlink(catalogue.dir().file("ddMapLog").c_str()), 0);
        EXPECT_EQ(fieldsOf(0), "none");
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_TRUE(reports.empty());
    });
}

TEST(LogFields, settersGiveBackTheNameBefore) {
    expectChildPasses([] {
        EXPECT_EQ(setDdMapLogName("one"), nullptr);
        EXPECT_STREQ(setDdMapLogName("two"), "one");
        char *kept = setDdMapLogName(nullptr);
        EXPECT_STREQ(kept, "two");
        // The library's own text; none is set now
        EXPECT_EQ(setDdMapLogName(kept), nullptr);
        EXPECT_STREQ(setDdMapLogName("three"), "two");
        EXPECT_EQ(setDataDictLogName("four"), nullptr);
        EXPECT_STREQ(setDataDictLogName("five"), "four");
    });
}

TEST(LogFields, settersWithoutMemoryChangeNothing) {
    expectChildPasses([] {
        setDdMapLogName("a");
        setDdMapLogName("b");
        {
            const FailingAlloc none;
            EXPECT_STREQ(setDdMapLogName("c"), "a");
        }
        EXPECT_STREQ(setDdMapLogName("d"), "b");
    });
}

TEST(LogFields, firstLookupSetsTheDefaultNames) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1C\x1D"});
        EXPECT_EQ(fieldsOf(0), "-");
        EXPECT_EQ(setDdMapLogName("x"), catalogue.dir().file("ddMapLog"));
        EXPECT_EQ(setDataDictLogName("y"), catalogue.dir().file("dataDictLog"));
    });
    expectChildPasses([] {
        unsetenv("LOGROOT");
        getLogFormatFields(0);
        EXPECT_STREQ(setDdMapLogName(nullptr), "/usr/spool/log/ddMapLog");
        EXPECT_STREQ(setDataDictLogName(nullptr), "/usr/spool/log/dataDictLog");
    });
}

TEST(LogFields, namesSetAreReadAndNoneMeansTheDefault) {
    expectChildPasses([] {
        const Catalogue other({"0\x1Cother\x1C\x1D"}), root({"0\x1Croot\x1C\x1D"});
        setDdMapLogName(other.dir().file("ddMapLog").c_str());
        setDataDictLogName(other.dir().file("dataDictLog").c_str());
        EXPECT_EQ(fieldsOf(0), "other/0/S/0/0");
        // Not before the catalogue is opened again
        setDdMapLogName(nullptr);
        setDataDictLogName(nullptr);
        EXPECT_EQ(fieldsOf(0), "other/0/S/0/0");
        endDdMapLog();
        EXPECT_EQ(fieldsOf(0), "root/0/S/0/0");
    });
}

TEST(LogFields, endClosesTheFilesAndKeepsTheNames) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1Cone\x1C\x1D"});
        endDdMapLog();
        const int before = openDescriptors();
        EXPECT_EQ(fieldsOf(0), "one/0/S/0/0");
        EXPECT_EQ(openDescriptors(), before + 2);
        endDdMapLog();
        EXPECT_EQ(openDescriptors(), before);
        setenv("LOGROOT", "/nonexistent", 1);
        catalogue.write(indexRecord(16) + indexRecord(0), "0\x1Ctwo\x1C\x1D\n");
        EXPECT_EQ(fieldsOf(0), "two/0/S/0/0");
        endDdMapLog();
        endDdMapLog();
    });
}

TEST(LogFields, listsAreReadOnceAndFailuresAgain) {
    expectChildPasses([] {
        const Catalogue catalogue;
        catalogue.write(indexRecord(24) + indexRecord(0), "0\x1Cone\x1C\x1D\n");
        const LogFieldList *list = getLogFormatFields(0);
        EXPECT_EQ(fieldsOf(0), "one/0/S/0/0");
        EXPECT_EQ(fieldsOf(1), "none");
        // What was read stays though the file is another now; what was missing is found.
        catalogue.write(indexRecord(24) + indexRecord(0) + indexRecord(8),
                        "0\x1Ctwo\x1C\x1D\n1\x1Cthree\x1C\x1D\n");
        EXPECT_EQ(getLogFormatFields(0), list);
        EXPECT_EQ(fieldsOf(0), "one/0/S/0/0");
        EXPECT_EQ(fieldsOf(1), "three/0/S/0/0");
    });
}

TEST(LogFields, lineReaderIsGivenBack) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1Cone\x1C\x1D", "1\x1Ctwo\x1C\x1D"});
        expectReaderGivenBack([] { EXPECT_EQ(fieldsOf(1), "two/0/S/0/0"); });
    });
}

TEST(LogFields, outerModesDoNotReachTheDictionary) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1C'a\x1C\x1D\\", "1\x1C"
                                                        "b'\x1C\x1D"});
        setReadLineModes(7);
        EXPECT_EQ(fieldsOf(0), "'a/0/S/0/0");
        EXPECT_EQ(fieldsOf(1), "b'/0/S/0/0");
        EXPECT_EQ(ri_modes, 7U);
    });
}

TEST(LogFields, longLinesAreReadWhole) {
    expectChildPasses([] {
        const std::string name(5000, 'n');
        const Catalogue catalogue({"0\x1C" + name + ",D,1,2\x1Clast\x1C\x1D"});
        EXPECT_EQ(fieldsOf(0), name + "/0/D/1/2 last/1/S/0/0");
    });
}

// The dictionary of two messages: message 0's line ends in the first 4096 bytes, message 1's
// starts there and ends behind them, with that name.
std::string straddlingDictionary(const std::string &name) {
    const std::string filler = "0\x1Cone\x1C\x1D" + std::string(4000, '.') + "\n";
    return filler + "1\x1C" + name + "\x1C\x1D\n";
}

TEST(LogFields, childThatExitsDoesNotMoveTheParentsPlace) {
    expectChildPasses([] {
        const Catalogue catalogue;
        const std::string name(200, 'n'), dictionary = straddlingDictionary(name);
        const uint32_t second = static_cast<uint32_t>(dictionary.find('\n') + 1);
        catalogue.write(indexRecord(24) + indexRecord(0) + indexRecord(second),
                        dictionary + std::string(20000, '.'));
        ASSERT_EQ(fieldsOf(0), "one/0/S/0/0");
        const pid_t child = fork();
        if (child == 0)
            exit(0); // with what a program does at its end: its streams are closed
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
        EXPECT_EQ(fieldsOf(1), name + "/0/S/0/0");
    });
}

TEST(LogFields, parentAndChildReadSideBySide) {
    expectChildPasses([] {
        std::vector<std::string> lines;
        for (int number = 0; number < 400; ++number)
            lines.push_back(std::to_string(number) + "\x1C" + "field" + std::to_string(number) +
                            "\x1C\x1D" + std::string(300, '.'));
        const Catalogue catalogue(lines);
        ASSERT_EQ(fieldsOf(0), "field0/0/S/0/0");
        const pid_t child = fork();
        int wrong = 0;
        for (int number = 1; number < 400; ++number)
            wrong += fieldsOf(number) != "field" + std::to_string(number) + "/0/S/0/0";
        if (child == 0)
            exit(wrong == 0 ? 0 : 1);
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(wrong, 0);
    });
}

TEST(LogFields, lineRepairedInPlaceIsRead) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1Cone\x1C\x1D", "7\x1Ctwo\x1C\x1D"});
        ASSERT_EQ(fieldsOf(0), "one/0/S/0/0");
        ASSERT_EQ(fieldsOf(1), "none");
        const int file = open(catalogue.dir().file("dataDictLog").c_str(), O_WRONLY);
        ASSERT_EQ(pwrite(file, "1", 1, 8), 1);
        close(file);
        EXPECT_EQ(fieldsOf(1), "two/0/S/0/0");
    });
}

TEST(LogFields, filesAreClosedOnExec) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1Cone\x1C\x1D"});
        const int first = open("/dev/null", O_RDONLY);
        close(first);
        ASSERT_EQ(fieldsOf(0), "one/0/S/0/0");
        for (int fd = first; fd < first + 2; ++fd)
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    });
}

TEST(LogFields, exhaustedMemoryFindsNothingOrTheWholeList) {
    expectChildPasses([] {
        const Catalogue catalogue({"0\x1Chost,S,0,16\x1Cport,D\x1C\x1D"});
        int failures = 0;
        for (int granted = 0; granted < 30; ++granted) {
            const int before = openDescriptors();
            const LogFieldList *list;
            {
                const FailingAlloc few(granted);
                list = getLogFormatFields(0);
            }
            failures += list == nullptr ? 1 : 0;
            EXPECT_EQ(fieldsOf(0), "host/0/S/0/16 port/1/D/0/0") << granted;
            endDdMapLog();
            EXPECT_EQ(openDescriptors(), before) << granted;
            setDdMapLogName(nullptr); // found anew each time
            setDataDictLogName(nullptr);
        }
        EXPECT_GT(failures, 5);
        EXPECT_LT(failures, 30);
    });
}

} // namespace
