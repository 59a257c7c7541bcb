/* What goes into the catalogue compiler comes out of the library's lookups: number, class, symbol
   and fields of every message, of the sample catalogue and of a generated one of 20,000 messages.
 */
#include "toolRun.h"

#include "log/logFields.h"
#include "log/logStartCl.h"
#include "log/logSyms.h"
#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <toml++/toml.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

int64_t number(const toml::table &table, const char *key) {
    return table[key].value_or(int64_t{-1});
}

std::string text(const toml::table &table, const char *key, const char *ifMissing = "") {
    return table[key].value_or(std::string(ifMissing));
}

void expectFields(const toml::table &message, int32_t absolute) {
    const toml::array *fields = message["fields"].as_array();
    const size_t count = fields == nullptr ? 0 : fields->size();
    const LogFieldList *list = getLogFormatFields(absolute);
    ASSERT_NE(list, nullptr) << absolute;
    ASSERT_EQ(list->count, count);
    EXPECT_EQ(list->number, absolute);
    for (size_t position = 0; position < count; ++position) {
        const toml::table &field = *fields->get(position)->as_table();
        const std::string name = text(field, "name");
        EXPECT_EQ(list->fields[position].name, name);
        EXPECT_EQ(list->fields[position].type, text(field, "type", "S")[0]);
        const toml::array *numbers = field["numbers"].as_array();
        EXPECT_EQ(list->fields[position].first,
                  numbers == nullptr ? 0 : numbers->get(0)->value_or(-1));
        EXPECT_EQ(list->fields[position].second,
                  numbers == nullptr ? 0 : numbers->get(1)->value_or(-1));
        EXPECT_EQ(cvtLogFieldNameToIndex(absolute, name.c_str()), static_cast<int32_t>(position));
        EXPECT_EQ(cvtLogFieldIndexToName(absolute, static_cast<int32_t>(position)), name);
    }
}

void expectMessage(const std::string &className, int64_t start, const toml::table &message) {
    const int32_t relative = static_cast<int32_t>(number(message, "number"));
    const int32_t absolute = static_cast<int32_t>(start) + relative - 1;
    const std::string symbol = text(message, "symbol");
    EXPECT_STREQ(logAbsIndexToSymbol(absolute), symbol.c_str());
    EXPECT_EQ(logSymbolToAbsIndex(symbol.c_str()), absolute);
    EXPECT_EQ(logSymbolToRelIndex(symbol.c_str()), relative);
    EXPECT_STREQ(logSymbolToClass(symbol.c_str()), className.c_str());
    const LogSymbol *found = logFindRelIndex(className.c_str(), relative);
    ASSERT_NE(found, nullptr) << symbol;
    EXPECT_EQ(found->name, symbol);
    expectFields(message, absolute);
}

// Returns the number of messages compared.
int expectRoundTrip(const std::string &source, const std::string &root) {
    setenv("LOGROOT", root.c_str(), 1);
    int count = 0;
    const toml::table catalogue = toml::parse_file(source);
    for (const toml::node &node : *catalogue["class"].as_array()) {
        const toml::table &each = *node.as_table();
        const std::string name = text(each, "name");
        EXPECT_EQ(logStartClass(name.c_str()), number(each, "start"));
        for (const toml::node &message : *each["message"].as_array()) {
            expectMessage(name, number(each, "start"), *message.as_table());
            ++count;
        }
    }
    return count;
}

TEST(RoundTrip, wholeSampleCatalogue) {
    expectChildPasses([] { EXPECT_GE(expectRoundTrip(SAMPLE_CATALOGUE, SAMPLE_ROOT), 40); });
}

TEST(RoundTrip, systemErrorsAreAClassOfTheirOwn) {
    expectChildPasses([] {
        setenv("LOGROOT", SAMPLE_ROOT, 1);
        EXPECT_STREQ(logAbsIndexToSymbol(1727 + ENOENT), "OSERR_ENOENT");
        EXPECT_STREQ(logSymbolToClass("OSERR_ENOENT"), "OSERR");
        EXPECT_EQ(logSymbolToRelIndex("OSERR_ENOENT"), ENOENT);
        const LogFieldList *list = getLogFormatFields(1727 + ENOENT);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(list->count, 1U);
    });
}

// 20 classes of 1000 messages; 16-bit offsets hold their formats because equal ones share their
// text.
void writeLargeCatalogue(const std::string &path) {
    std::ofstream out(path);
    for (int each = 0; each < 20; ++each) {
        const std::string name = std::string("BIG") + static_cast<char>('A' + each);
        out << "[[class]]\nname = \"" << name << "\"\nstart = " << 10000 + 1000 * each
            << "\npriority = 0\n";
        for (int message = 1; message <= 1000; ++message)
            out << "[[class.message]]\nnumber = " << message << "\nsymbol = \"" << name << "_M"
                << message
                << "\"\ntext = \"host %s port %s\"\nfields = [{ name = \"host\", type = \"S\", "
                   "numbers = ["
                << each << ", " << message << "] }, { name = \"port\", type = \"D\" }]\n";
    }
}

TEST(RoundTrip, generatedCatalogueOf20000Messages) {
    const TempDir dir;
    const std::string source = dir.file("large.toml");
    writeLargeCatalogue(source);
    const ToolResult compiled =
        runTool(TOOLS_DIR "/qncatalog", {"--quiet", "--log-root", dir.file("root"), source});
    ASSERT_EQ(compiled.exitCode, 0) << compiled.err;
    expectChildPasses([&] { EXPECT_EQ(expectRoundTrip(source, dir.file("root")), 20000); }, 200);
}

} // namespace
