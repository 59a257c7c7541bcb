/* The class file, line by line, the lookups and what is reported. Each case in a child: the table
   is the process's. */
#include "log/logStartCl.h"

#include "catalogueFixture.h"

#include "buffers/arrays.h"
#include "support/failingAlloc.h"

#include <climits>

namespace {

// The default file under a log root of its own.
class ClassRoot {
  public:
    explicit ClassRoot(const std::string &classes) {
        EXPECT_EQ(system(("mkdir " + dir_.file("head")).c_str()), 0);
        write(classes);
        setenv("LOGROOT", dir_.path().c_str(), 1);
    }
    std::string path() const { return dir_.file("head/systemLog.h"); }
    void write(const std::string &classes) const { dir_.write("head/systemLog.h", classes); }

  private:
    TempDir dir_;
};

const char *const TWO_CLASSES = "/* numbering */\n"
                                "#define _NETMSG_START 100\n"
                                "#define _DBMSG_START 300\n"
                                "#define __MAX_LOGMSG 500\n";

TEST(LogStartCl, sizesRunToTheNextStart) {
    expectChildPasses([] {
        const ClassRoot root(TWO_CLASSES);
        EXPECT_EQ(logStartClass("NET"), 100);
        EXPECT_EQ(logStartClass("DB"), 300);
        EXPECT_EQ(logClassSize("NET"), 200);
        EXPECT_EQ(logClassSize("DB"), 200);
        EXPECT_EQ(logTotalClasses(), 2);
        EXPECT_EQ(logMaxLogMsgIndex(), 500);
        EXPECT_EQ(logClassSize("_MAX_LOGMSG"), 1000000);
        EXPECT_TRUE(reports.empty());
        EXPECT_EQ(logClassReadCnt, 1);
    });
}

TEST(LogStartCl, unknownClassHasAStartButNoSize) {
    expectChildPasses([] {
        const ClassRoot root(TWO_CLASSES);
        for (const char *name : {"XX", "net", "NETX", "NE", "_NET", ""}) {
            EXPECT_EQ(logStartClass(name), 1000000) << name;
            EXPECT_EQ(logClassSize(name), 0) << name;
        }
        EXPECT_EQ(logStartClass(nullptr), 1000000);
        EXPECT_EQ(logClassSize(nullptr), 0);
    });
}

struct LineCase {
    const char *line, *name; // name null: no record
    int32_t start;
};

const LineCase LINES[] = {
    {"#define _NETMSG_START 100", "NET", 100},
    {"#define _NETMSG_START 100 200 /* more */", "NET", 100},
    {"#define\t_NETMSG_START\t 100 ", "NET", 100},
    {"#define _NETMSG_START 0", "NET", 0},
    {"#define _NETMSG_START 0100", "NET", 100},
    {"#define _xMSG_START 5", "x", 5},
    {"#define __MSG_START 5", "_", 5},
    {"#define _MSG_STARTMSG_START 5", "MSG_START", 5},
    {"#define _NETMSG_START 2147483647", "NET", INT_MAX},
    {"#define _NETMSG_START 2147483648", "NET", INT_MAX},
    {"#define _NETMSG_START 99999999999999999999", "NET", INT_MAX},
    {"#define __MAX_LOGMSG 500", "_MAX_LOGMSG", 500},
    {"#define _MSG_START 5", nullptr, 0},
    {"#define _NETMSG_START 0x40", nullptr, 0},
    {"#define _NETMSG_START -1", nullptr, 0},
    {"#define _NETMSG_START +1", nullptr, 0},
    {"#define _NETMSG_START 12a", nullptr, 0},
    {"#define _NETMSG_START (12)", nullptr, 0},
    {"#define _NETMSG_START \"\"", nullptr, 0},
    {"#define _NETMSG_START", nullptr, 0},
    {"#define NETMSG_START 100", nullptr, 0},
    {"#define _NETMSG_STARTS 100", nullptr, 0},
    {"#define _NET 100", nullptr, 0},
    {"#define _MAX_LOGMSG 500", nullptr, 0},
    {"#define ___MAX_LOGMSG 500", nullptr, 0},
    {"#define __MAX_LOGMSG x", nullptr, 0},
    {"#defined _NETMSG_START 100", nullptr, 0},
    {"#DEFINE _NETMSG_START 100", nullptr, 0},
    {"# define _NETMSG_START 100", nullptr, 0},
    {" #define _NETMSG_START 100", nullptr, 0},
    {"define _NETMSG_START 100", nullptr, 0},
    {"#", nullptr, 0},
    {"", nullptr, 0},
};

TEST(LogStartCl, onlyDefinitionsOfDecimalStartsAreUsed) {
    expectChildPasses([] {
        const TempDir dir;
        for (const LineCase &row : LINES) {
            const std::string path = dir.write("classes", std::string(row.line) + "\n");
            ASSERT_NE(logReadStartClasses(path.c_str()), 0U);
            EXPECT_EQ(logTotalClasses(), row.name == nullptr ? -1 : 0) << row.line;
            EXPECT_STREQ(logGetClass(0), row.name) << row.line;
            if (row.name != nullptr) {
                EXPECT_EQ(logStartClass(row.name), row.start) << row.line;
            }
        }
    });
}

TEST(LogStartCl, recordsKeepTheFilesOrderAndTheFirstOfANameCounts) {
    expectChildPasses([] {
        const TempDir dir;
        const std::string path = dir.write("classes", "#define _ZMSG_START 300\n"
                                                      "#define _AMSG_START 100\n"
                                                      "#define _ZMSG_START 500\n"
                                                      "#define __MAX_LOGMSG 600"); // no newline
        const uint32_t handle = logReadStartClasses(path.c_str());
        ASSERT_NE(handle, 0U);
        ASSERT_EQ(arrDescPtr[handle].count, 4U);
        const auto *classes = static_cast<const LogStartClass *>(arrDescPtr[handle].storage);
        EXPECT_STREQ(classes[0].name, "Z");
        EXPECT_STREQ(classes[3].name, "_MAX_LOGMSG");
        EXPECT_EQ(classes[3].start, 600);
        EXPECT_STREQ(logGetClass(1), "A");
        EXPECT_STREQ(logGetClass(2), "Z");
        EXPECT_STREQ(logGetClass(3), "_MAX_LOGMSG");
        EXPECT_EQ(logGetClass(4), nullptr);
        EXPECT_EQ(logGetClass(-1), nullptr);
        EXPECT_EQ(logStartClass("Z"), 300);
        EXPECT_EQ(logClassSize("Z"), -200);
        EXPECT_EQ(logTotalClasses(), 3);
    });
}

TEST(LogStartCl, tableGrowsPastItsFirstSlots) {
    expectChildPasses([] {
        const TempDir dir;
        std::string text;
        for (int i = 0; i < 100; ++i)
            text += "#define _C" + std::to_string(i) + "MSG_START " + std::to_string(i * 10) + "\n";
        ASSERT_NE(logReadStartClasses(dir.write("classes", text).c_str()), 0U);
        EXPECT_EQ(logTotalClasses(), 99);
        EXPECT_EQ(logStartClass("C99"), 990);
        EXPECT_EQ(logClassSize("C98"), 10);
    });
}

TEST(LogStartCl, unreadableFileIsReportedAtEveryAttempt) {
    expectChildPasses([] {
        setenv("LOGROOT", "/nonexistent%s%n", 1);
        _destination = 0x12;
        EXPECT_EQ(logStartClass("NET"), 1000000);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].destination, 0x12U);
        EXPECT_EQ(reports[0].priority, 3);
        EXPECT_EQ(reports[0].file, "../logStartCl");
        EXPECT_EQ(reports[0].line, 113);
        EXPECT_EQ(reports[0].text, "/nonexistent%s%n/head/systemLog.h");
        EXPECT_EQ(reports[0].error, ENOENT);
        EXPECT_EQ(logClassSize("NET"), 1000000);
        EXPECT_EQ(logClassSize(""), 1000000);
        EXPECT_EQ(logTotalClasses(), 0);
        EXPECT_EQ(logGetClass(0), nullptr);
        EXPECT_EQ(logMaxLogMsgIndex(), 1000000);
        EXPECT_EQ(logReadStartClasses("/nonexistent/classes"), 0U);
        EXPECT_EQ(reports.size(), 7U);
        EXPECT_EQ(reports[6].text, "/nonexistent/classes");
        EXPECT_EQ(logClassReadCnt, 7);
    });
}

TEST(LogStartCl, withoutLogrootTheDefaultRootIsUsed) {
    expectChildPasses([] {
        unsetenv("LOGROOT");
        EXPECT_EQ(logReadStartClasses(nullptr), 0U);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].text, "/usr/spool/log/head/systemLog.h");
    });
}

TEST(LogStartCl, everyReadReplacesTheTable) {
    expectChildPasses([] {
        const ClassRoot root(TWO_CLASSES);
        EXPECT_EQ(logStartClass("NET"), 100);
        root.write("#define _DBMSG_START 7\n");
        EXPECT_EQ(logStartClass("NET"), 100);
        EXPECT_NE(logReadStartClasses(nullptr), 0U);
        EXPECT_EQ(logStartClass("NET"), 1000000);
        EXPECT_EQ(logStartClass("DB"), 7);
        // A failed one leaves none, so the next lookup reads the default file.
        EXPECT_EQ(logReadStartClasses("/nonexistent/classes"), 0U);
        root.write(TWO_CLASSES);
        EXPECT_EQ(logStartClass("NET"), 100);
        EXPECT_EQ(logClassReadCnt, 4);
    });
}

TEST(LogStartCl, folderInPlaceOfTheFileIsAnEmptyTable) {
    expectChildPasses([] {
        const TempDir dir;
        EXPECT_NE(logReadStartClasses(dir.path().c_str()), 0U);
        EXPECT_EQ(logTotalClasses(), -1);
        EXPECT_TRUE(reports.empty());
    });
}

TEST(LogStartCl, lineReaderIsGivenBack) {
    expectChildPasses([] {
        const ClassRoot root(TWO_CLASSES);
        expectReaderGivenBack([] { EXPECT_EQ(logStartClass("DB"), 300); });
    });
}

TEST(LogStartCl, outerModesDoNotReachTheClassFile) {
    expectChildPasses([] {
        // Under mode 2 or 4 these would be one line.
        const ClassRoot root("#define _AMSG_START 1 \\\n#define _BMSG_START 2\n");
        setReadLineModes(7);
        EXPECT_EQ(logStartClass("B"), 2);
    });
}

TEST(LogStartCl, readsCloseTheirFile) {
    expectChildPasses([] {
        const ClassRoot root(TWO_CLASSES);
        logReadStartClasses(nullptr);
        const int before = openDescriptors();
        for (int i = 0; i < 5; ++i)
            logReadStartClasses(nullptr);
        EXPECT_EQ(openDescriptors(), before);
    });
}

TEST(LogStartCl, exhaustedMemoryReadsNoneAndTheNextLookupAll) {
    expectChildPasses([] {
        std::string classes;
        for (int number = 10; number < 40; ++number)
            classes += "#define _C" + std::to_string(number) + "MSG_START " +
                       std::to_string(number * 100) + "\n";
        const ClassRoot root(classes + "#define __MAX_LOGMSG 5000\n");
        int incomplete = 0;
        keepsReports = false;
        for (int granted = 0; granted < 50; ++granted) {
            {
                const FailingAlloc few(granted);
                incomplete += logReadStartClasses(nullptr) == 0 ? 1 : 0;
            }
            for (int number = 10; number < 40; ++number) {
                const std::string name = "C" + std::to_string(number);
                EXPECT_EQ(logStartClass(name.c_str()), number * 100) << granted;
            }
        }
        EXPECT_GT(incomplete, 4); // stdio's own are counted in some builds only
        EXPECT_LT(incomplete, 50);
    });
}

} // namespace
