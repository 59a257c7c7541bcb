/* Expansion as a shell does it: a table of inputs with results worked out by hand, each rule in
   each quote state, in an environment made for it; then what the text looks like afterwards, and
   commands with odd output. */
#include "options/options.h"

#include "clock/clock.h"
#include "core/mkcopy.h"
#include "support/childProcess.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <pwd.h>
#include <random>
#include <string>
#include <thread>
#include <sys/resource.h>
#include <unistd.h>

namespace {

std::string expand(const std::string &text) {
    std::string writable = text;
    char *result = shellVariable(writable.data());
    EXPECT_EQ(writable, text) << "the input was changed";
    const std::string copy = result == nullptr ? "<null>" : result;
    freecopy(result);
    return copy;
}

struct Case {
    const char *input;
    const char *expected;
};

// FULL is "value", SPACED is "two  words", EMPTY is "", NONE is unset.
constexpr Case CASES[] = {
    // plain text
    {"", ""},
    {"a", "a"},
    {"abc.def", "abc.def"},
    {"a=b;c#d", "a=b;c#d"},
    {"{a}", "{a}"},
    {"a:b", "a:b"},
    {"\xC3\xA9\xFF", "\xC3\xA9\xFF"},
    {"a\x7F\x1F", "a\x7F\x1F"},
    // blanks outside quotes
    {"a b", "a b"},
    {"a   b", "a b"},
    {"a \t\n b", "a b"},
    {"  a", " a"},
    {"a  ", "a"},
    {"   ", ""},
    {"a b  c ", "a b c"},
    // backslashes outside quotes
    {"\\a", "a"},
    {"\\\\", "\\"},
    {"a\\", "a"},
    {"\\", ""},
    {"\\$FULL", "$FULL"},
    {"\\`echo\\`", "`echo`"},
    {"\\~", "~"},
    {"\\'a\\'", "'a'"},
    {"\\\"a\\\"", "\"a\""},
    {"a\\  b", "a  b"},
    {"a\\ ", "a "},
    {"\\\n", "\n"},
    // single quotes
    {"'a'", "a"},
    {"''", ""},
    {"'a  b'", "a  b"},
    {"'$FULL'", "$FULL"},
    {"'${FULL}'", "${FULL}"},
    {"'`echo x`'", "`echo x`"},
    {"'~root'", "~root"},
    {"'\"'", "\""},
    {"'a\\b'", "ab"},
    {"'a\\'b'", "a'b"},
    {"'a", "a"},
    {"'  ", "  "},
    {"a'b'c", "abc"},
    {"'a''b'", "ab"},
    {"'a'  'b'", "a b"},
    // double quotes
    {"\"a\"", "a"},
    {"\"\"", ""},
    {"\"a  b\"", "a  b"},
    {"\"a'b\"", "a'b"},
    {"\"$FULL\"", "value"},
    {"\"${FULL}\"", "value"},
    {"\"a\\\"b\"", "a\"b"},
    {"\"a\\$FULL\"", "a$FULL"},
    {"\"a\\zb\"", "azb"},
    {"\"`echo x`\"", "x"},
    {"\"a", "a"},
    {"\"  ", "  "},
    {"\"a\"'b'c", "abc"},
    {"\"a\"  \"b\"", "a b"},
    {"\"\t\"", "\t"},
    // $NAME
    {"$FULL", "value"},
    {"$FULL$FULL", "valuevalue"},
    {"a$FULL", "avalue"},
    {"$FULL-b", "value-b"},
    {"$FULLb", ""},
    {"$FULL.b", "value.b"},
    {"$EMPTY", ""},
    {"$NONE", ""},
    {"a$NONE/b", "a/b"},
    {"$SPACED", "two  words"},
    {"$_UNDER", "under"},
    {"$A1", "digit"},
    {"$DOLLAR", "$FULL"},
    {"$QUOTES", "'q'"},
    // $ before anything else
    {"$", "$"},
    {"a$", "a$"},
    {"$$", "$$"},
    {"$1", "$1"},
    {"$ a", "$ a"},
    {"$-", "$-"},
    {"$(echo x)", "$(echo x)"},
    {"$\"a", "$\"a"},
    {"$'a", "$'a"},
    {"$\\a", "$\\a"},
    {"\"$\"", "$\""},
    {"$}", "$}"},
    // ${NAME}
    {"${FULL}", "value"},
    {"${FULL}x", "valuex"},
    {"x${FULL}x", "xvaluex"},
    {"${EMPTY}", ""},
    {"${NONE}", ""},
    {"${}", ""},
    {"${FULL", ""},
    {"a${FULL", "a"},
    {"${", ""},
    {"a${FULL:-b", "a"},
    {"${FULL }", ""},
    {"${SPACED}", "two  words"},
    {"${FULL}}", "value}"},
    {"${FULL}${_UNDER}", "valueunder"},
    // ${NAME:-word}
    {"${FULL:-word}", "value"},
    {"${EMPTY:-word}", "word"},
    {"${NONE:-word}", "word"},
    {"${NONE:-}", ""},
    {"${NONE:-a  b}", "a b"},
    {"${NONE:-'a  b'}", "a  b"},
    {"${NONE:-\"a  b\"}", "a  b"},
    {"\"${NONE:-a  b}\"", "a b"},
    {"${NONE:-$FULL}", "value"},
    {"${NONE:-`echo x`}", "x"},
    {"${NONE:-a\\b}", "ab"},
    {"${NONE:-a:b}", "a:b"},
    {"${NONE:-a }b", "ab"},
    {"${NONE:-/tmp}/x", "/tmp/x"},
    {"${NONE:-${FULL}}", "}"},
    {"${NONE:-'}'}", "}"},
    {"${NONE-word}", ""},
    // ${NAME:+word}
    {"${FULL:+word}", "word"},
    {"${EMPTY:+word}", ""},
    {"${NONE:+word}", ""},
    {"${FULL:+$FULL$FULL}", "valuevalue"},
    {"${FULL:+}", ""},
    // other operators
    {"${FULL:?word}", "value"},
    {"${NONE:?word}", ""},
    {"${FULL:}", "value"},
    {"${NONE:}", ""},
    {"a${NONE:}b", "ab"},
    {"${FULL:%x}", "value"},
    {"${FULL:1:2}", "value"},
    // commands
    {"`echo x`", "x"},
    {"a`echo x`b", "axb"},
    {"`echo x`y`echo z`", "xyz"},
    {"`printf 'a\\n\\n'`", "a\n"},
    {"`printf 'a  b'`", "a  b"},
    {"`printf a", "a"},
    {"a`", "a"},
    {"``", ""},
    {"a``b", "ab"},
    {"`true`", ""},
    {"`false`", ""},
    {"`echo $FULL`", "value"},
    {"`echo \\$FULL`", "$FULL"},
    {"`echo '$FULL'`", "$FULL"},
    {"`echo a \\`echo b\\``", "a `echo b`"},
    {"`printf '$FULL'`", "$FULL"},
    {"`echo x``echo y`", "xy"},
    {"`exit 3`a", "a"},
    // home directories
    {"~", "~"},
    {"~/x", "~/x"},
    {"~nosuchuser99", "~nosuchuser99"},
    {"~nosuchuser99/x", "~nosuchuser99/x"},
    {"~ a", "~ a"},
    {"~~", "~~"},
    {"~$FULL", "~value"},
    {"a~", "a~"},
    {"~'a'", "~a"},
};
static_assert(std::size(CASES) >= 120);

void setEnvironment() {
    setenv("FULL", "value", 1);
    setenv("SPACED", "two  words", 1);
    setenv("EMPTY", "", 1);
    unsetenv("NONE");
    unsetenv("FULLb");
    setenv("_UNDER", "under", 1);
    setenv("A1", "digit", 1);
    setenv("DOLLAR", "$FULL", 1);
    setenv("QUOTES", "'q'", 1);
}

TEST(ShellVariable, everyRuleInEveryQuoteState) {
    expectChildPasses([] {
        setEnvironment();
        for (const Case &row : CASES)
            EXPECT_EQ(expand(row.input), row.expected) << "input: " << row.input;
    });
}

// A backslash before a character takes it out of the run that is copied in one piece: the same text
// with one before each has to give the same, in whatever quotes.
TEST(ShellVariable, runOfPlainCharactersIsCopiedAsEachOfThemEscaped) {
    setenv("QN_SET", "two  words", 1);
    static constexpr const char *PIECES[] = {"'",
                                             "\"",
                                             " ",
                                             "  \t",
                                             "\\\\",
                                             "\\'",
                                             "\\ ",
                                             "$%",
                                             "~.",
                                             "${QN_SET}",
                                             "${QN_NONE:-'a  b'}",
                                             "\n",
                                             "\xC3\xA0",
                                             "\x01"};
    std::mt19937 random(20260102);
    for (int round = 0; round < 2000; ++round) {
        std::string text, escaped;
        for (auto parts = random() % 12; parts > 0; --parts) {
            if (random() % 2 == 0) {
                const char *piece = PIECES[random() % std::size(PIECES)];
                text += piece;
                escaped += piece;
                continue;
            }
            for (auto length = random() % (random() % 20 == 0 ? 300 : 9); length > 0; --length) {
                const char plain = "abz019.,:;=#%&|<>()[]{}*?!@^+-_/"[random() % 32];
                text += plain;
                escaped += {'\\', plain};
            }
        }
        ASSERT_EQ(expand(text), expand(escaped)) << text;
    }
    unsetenv("QN_SET");
}

TEST(ShellVariable, homeDirectoryOfAKnownUser) {
    const passwd *root = getpwnam("root");
    ASSERT_NE(root, nullptr);
    const std::string home = root->pw_dir;
    EXPECT_EQ(expand("~root"), home);
    EXPECT_EQ(expand("~root/x"), home + "/x");
    EXPECT_EQ(expand("\"~root\""), home);
    EXPECT_EQ(expand("a~root"), "a" + home);
    EXPECT_EQ(expand("~root_"), home + "_");
}

TEST(ShellVariable, nullGivesNull) {
    EXPECT_EQ(shellVariable(nullptr), nullptr);
}

TEST(ShellVariable, assigningOperatorAlsoSetsTheVariable) {
    expectChildPasses([] {
        setEnvironment();
        EXPECT_EQ(expand("${NONE:=5}"), "5");
        EXPECT_STREQ(getenv("NONE"), "5");
        EXPECT_EQ(expand("${NONE:=6}"), "5");
        EXPECT_EQ(expand("${EMPTY:='a  b'}"), "a  b");
        EXPECT_STREQ(getenv("EMPTY"), "a  b");
    });
}

TEST(ShellVariable, wordOfASetVariableIsNotExpanded) {
    expectChildPasses([] {
        setEnvironment();
        EXPECT_EQ(expand("${FULL:-`echo ran >&2`}"), "value");
        EXPECT_EQ(expand("${FULL:=${NONE:=x}}"), "value}");
        EXPECT_EQ(getenv("NONE"), nullptr);
    });
    const ChildResult result = runInChild([] {
        setEnvironment();
        expand("${FULL:-`echo ran >&2`}");
    });
    EXPECT_EQ(result.err, "");
}

TEST(ShellVariable, wordIsExpandedEvenWhereItGivesNothing) {
    const ChildResult result = runInChild([] {
        setEnvironment();
        EXPECT_EQ(expand("${NONE:+`echo plus >&2`}"), "");
        EXPECT_EQ(expand("${NONE:?`echo question >&2`}"), "");
    });
    EXPECT_EQ(result.err, "plus\nquestion\n");
}

TEST(ShellVariable, hugeOutputIsKeptWhole) {
    const std::string result = expand("`head -c 10485760 /dev/zero | tr '\\0' x`");
    EXPECT_EQ(result.size(), 10485760U);
    EXPECT_EQ(result.find_first_not_of('x'), std::string::npos);
}

TEST(ShellVariable, zeroByteEndsTheOutput) {
    EXPECT_EQ(expand("`printf 'ab\\000cd'`e"), "abe");
}

TEST(ShellVariable, commandRunsInTheProcessEnvironment) {
    expectChildPasses([] {
        setEnvVar("FROM_LIBRARY", "seen");
        EXPECT_EQ(expand("`echo $FROM_LIBRARY`"), "seen");
    });
}

// What a command sees of a blocked SIGALRM is what any child of popen sees: some shells clear the
// mask.
TEST(ShellVariable, commandSeesTheSignalMaskThatPopenGives) {
    expectChildPasses([] {
        sigset_t alarmSet;
        sigemptyset(&alarmSet);
        sigaddset(&alarmSet, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarmSet, nullptr);
        char plain[100] = "";
        FILE *stream = popen("sed -n 's/^SigBlk:.//p' /proc/self/status", "r");
        ASSERT_NE(fgets(plain, sizeof plain, stream), nullptr);
        pclose(stream);
        EXPECT_EQ(expand("`sed -n 's/^SigBlk:.//p' /proc/self/status`") + "\n", plain);
        sigset_t after;
        sigprocmask(SIG_BLOCK, nullptr, &after);
        EXPECT_EQ(sigismember(&after, SIGALRM), 1);
    });
}

std::string commandOf(const char *text, ptrdiff_t *end) {
    std::string writable = text;
    char *result = const_cast<char *>("untouched");
    *end = quotedShCmd(writable.data(), &result) - writable.data();
    const std::string copy = result == nullptr ? "<null>" : result;
    freecopy(result);
    return copy;
}

TEST(QuotedShCmd, returnsTheClosingBackquoteOrTheEnd) {
    const struct {
        const char *text;
        ptrdiff_t end;
        const char *result;
    } cases[] = {
        {"`echo x`", 7, "x"},        {"`echo x`y", 7, "x"},
        {"`echo x", 7, "x"},         {"`", 1, "<null>"},
        {"``", 1, "<null>"},         {"echo", 0, "<null>"},
        {"", 0, "<null>"},           {"`true`", 5, ""},
        {"`true \\\\", 8, ""},       {"`echo a\\\\\\\\`", 11, "a\\"},
        {"`echo '\\`'`", 10, "\\`"}, {"`true #\\", 8, ""},
    };
    for (const auto &row : cases) {
        ptrdiff_t end;
        EXPECT_EQ(commandOf(row.text, &end), row.result) << row.text;
        EXPECT_EQ(end, row.end) << row.text;
    }
}

TEST(QuotedShCmd, runsTheCommandWithoutAResultPointerToo) {
    const ChildResult result = runInChild([] {
        char text[] = "`echo ran >&2`";
        EXPECT_EQ(quotedShCmd(text, nullptr), text + 13);
    });
    EXPECT_EQ(result.err, "ran\n");
}

TEST(QuotedShCmd, removesOneFinalNewlineOnly) {
    ptrdiff_t end;
    EXPECT_EQ(commandOf("`printf '\\n\\n'`", &end), "\n");
    EXPECT_EQ(commandOf("`printf '\\n'`", &end), "");
    EXPECT_EQ(commandOf("`printf 'a\\nb'`", &end), "a\nb");
}

TEST(QuotedShCmd, signalsDoNotShortenTheOutput) {
    expectChildPasses([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr); // without a restart, as the clock's alarm
        std::atomic<bool> done{false};
        const pthread_t caller = pthread_self();
        std::thread interrupter([&] {
            for (; !done; usleep(500))
                pthread_kill(caller, SIGUSR1);
        });
        EXPECT_EQ(expand("`for i in 1 2 3 4; do sleep 0.02; echo $i; done`"), "1\n2\n3\n4");
        done = true;
        interrupter.join();
    });
}

volatile sig_atomic_t timeoutsRun;

void *countTimeout(intptr_t, uint32_t) {
    timeoutsRun = timeoutsRun + 1;
    return nullptr;
}

TEST(ShellVariable, timeoutOfTheClockDoesNotCutTheOutput) {
    expectChildPasses([] {
        clkTimeout(countTimeout, 0, 1);
        EXPECT_EQ(expand("`echo a; sleep 2; echo b`"), "a\nb");
        EXPECT_EQ(timeoutsRun, 1);
    });
}

TEST(ShellVariable, exhaustedMemoryGivesAllOrNothing) {
    expectChildPasses([] {
        setEnvironment();
        const std::string filler(200, 'x');
        const std::string expected = filler + "\xFF value w new out " + filler;
        int failures = 0;
        for (int successes = 0; successes < 60; ++successes) {
            std::string text = filler + "\xFF $FULL ${NONE:-w} ${V" + std::to_string(successes) +
                               ":='new'} `echo out " + filler + "`";
            char *result;
            {
                const FailingAlloc failing(successes);
                result = shellVariable(text.data());
            }
            if (result == nullptr)
                ++failures;
            else
                EXPECT_EQ(result, expected) << successes;
            freecopy(result);
        }
        EXPECT_GT(failures, 10);
        EXPECT_LT(failures, 60);
    });
}

TEST(QuotedShCmd, exhaustedMemoryGivesAllOrNothing) {
    const std::string filler(500, 'x');
    std::string text = "`printf " + filler + "\\\\377`";
    int failures = 0;
    for (int successes = 0; successes < 30; ++successes) {
        char *result, *end;
        {
            const FailingAlloc failing(successes);
            end = quotedShCmd(text.data(), &result);
        }
        EXPECT_EQ(*end, '`');
        if (result == nullptr)
            ++failures;
        else
            EXPECT_EQ(result, filler + "\xFF") << successes;
        freecopy(result);
    }
    EXPECT_GT(failures, 4);
    EXPECT_LT(failures, 30);
}

TEST(QuotedShCmd, commandThatCannotBeRunGivesNothing) {
    expectChildPasses([] {
        const int next = dup(0);
        close(next);
        rlimit old;
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
        const rlimit limit = {static_cast<rlim_t>(next), old.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        ptrdiff_t end;
        const std::string output = commandOf("`echo x`y", &end);
        const std::string expanded = expand("a`echo x`b");
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0); // what checks this program needs files
        EXPECT_EQ(output, "<null>");
        EXPECT_EQ(end, 7);
        EXPECT_EQ(expanded, "ab");
    });
}

} // namespace
