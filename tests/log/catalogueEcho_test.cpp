/* The catalogue's readers under the real client, whose reports are shown on standard error by a
   format that asks the catalogue itself: lookups made in the middle of a read. */
#include "clientFixture.h"
#include "records.h"

#include "log/logStartCl.h"
#include "log/logSyms.h"

#include <filesystem>

namespace {

constexpr int NO_SUCH_FILE = 1727 + ENOENT;

// A started client that shows what it logs as "<symbol>: text", and sends nothing. Its catalogue
// has the class NET (NET_UP is message 5), and of the system's errors the one of missing files.
std::string withShownReports(const std::function<void(ClientRoot &)> &body) {
    return withClient([&](ClientRoot &root) {
        std::filesystem::create_directory(root.dir().file("head"));
        root.dir().write("head/systemLog.h", "#define _NETMSG_START 5\n"
                                             "#define _SYSMSG_START 1727\n"
                                             "#define __MAX_LOGMSG 1900\n");
        root.dir().write("head/logNET.h", "#define NET_UP logNET(1)\n#define NET_DOWN logNET(2)\n");
        root.dir().write("textLogFmt", textFormatFile({{NO_SUCH_FILE, "missing %s"}}));
        setenv("LOGROOT", root.path().c_str(), 1);
        setenv("LOGFORMAT", "@symbol@: %M\n", 1);
        _destination = 2;
        body(root);
    });
}

// A header that cannot be opened, though the directory has it.
std::string addDanglingHeader(const ClientRoot &root, const char *name) {
    const std::string path = root.dir().file(std::string("head/") + name);
    EXPECT_EQ(symlink("/nonexistent/header.h", path.c_str()), 0);
    return path;
}

// One before and one behind the other header, whatever the directory's order is.
TEST(CatalogueEcho, reportOfAHeaderDoesNotReadTheCatalogueAgain) {
    const std::string shown = withShownReports([](ClientRoot &root) {
        for (const char *name : {"logAAA.h", "logBBB.h", "logZZZ.h"})
            addDanglingHeader(root, name);
        const int32_t classReads = logClassReadCnt;
        EXPECT_EQ(logReadSymbols(nullptr), 2);
        EXPECT_EQ(logTotalSymbols(), 2);
        EXPECT_STREQ(logAbsIndexToSymbol(5), "NET_UP");
        EXPECT_STREQ(logAbsIndexToSymbol(6), "NET_DOWN");
        EXPECT_EQ(logClassReadCnt, classReads + 1);
    });
    size_t reports = 0;
    for (size_t at = 0; (at = shown.find("<UNDEF>: missing ", at)) != std::string::npos; ++at)
        ++reports;
    EXPECT_EQ(reports, 3U) << shown;
}

TEST(CatalogueEcho, reportOfAHeaderReadAloneReadsTheCatalogueOnce) {
    const std::string shown = withShownReports([](ClientRoot &root) {
        const std::string path = addDanglingHeader(root, "notRead.h");
        EXPECT_EQ(logReadHeader(path.c_str()), 0);
        EXPECT_EQ(logTotalSymbols(), 2);
    });
    EXPECT_NE(shown.find("<UNDEF>: missing "), std::string::npos) << shown;
}

TEST(CatalogueEcho, reportOfTheClassFileReadsNothing) {
    const std::string shown = withShownReports([](ClientRoot &root) {
        const int32_t reads = logClassReadCnt;
        EXPECT_EQ(logReadStartClasses("/nonexistent/systemLog.h"), 0U);
        EXPECT_EQ(logClassReadCnt, reads + 1);
        EXPECT_EQ(logGetHeaderDirName(), nullptr);
        // And nothing that was half read stays.
        EXPECT_EQ(logSymbolToAbsIndex("NET_DOWN"), 6);
        EXPECT_EQ(logTotalSymbols(), 2);
        root.received();
    });
    EXPECT_EQ(shown, "<UNDEF>: missing /nonexistent/systemLog.h\n");
}

TEST(CatalogueEcho, directoryWithoutItsClassFileIsReportedOnce) {
    const std::string shown = withShownReports([](ClientRoot &root) {
        std::filesystem::create_directory(root.dir().file("bare"));
        root.dir().write("bare/logNET.h", "#define NET_DOWN logNET(2)\n");
        const int32_t reads = logClassReadCnt;
        logSetHeaderDirName(root.dir().file("bare").c_str());
        EXPECT_EQ(logClassReadCnt, reads + 1);
        // Its classes are those of the default file.
        EXPECT_EQ(logSymbolToAbsIndex("NET_DOWN"), 6);
    });
    EXPECT_EQ(shown.find("<UNDEF>: missing "), 0U) << shown;
    EXPECT_EQ(shown.find("missing", 20), std::string::npos) << shown;
}

} // namespace
