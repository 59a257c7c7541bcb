/* Lines, options and patterns, against libc's, GLib's and what else people link for them. */
#include "support/bench.h"

#include "buffers/arrays.h"
#include "core/mkcopy.h"
#include "log/symbolPatterns.h"
#include "options/options.h"
#include "options/readInfo.h"
#include "regex/regularExp.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <wordexp.h>

#ifndef QN_PLAIN_BENCHMARK
#define PCRE2_CODE_UNIT_WIDTH 8
#include <confuse.h>
#include <glib.h>
#include <pcre2.h>
#endif

using namespace symbolPatterns;

namespace {

// 10 MB of lines between 20 and 100 bytes, as configuration and logs have them.
FILE *manyLines() {
    static FILE *const file = [] {
        FILE *made = tmpfile();
        for (size_t bytes = 0, line = 0; bytes < 10000000; ++line) {
            const std::string text(20 + line * 37 % 80, static_cast<char>('a' + line % 26));
            bytes += static_cast<size_t>(fprintf(made, "%s\n", text.c_str()));
        }
        return made;
    }();
    rewind(file);
    return file;
}

template<char *(*READ)(FILE *)>
void readLines(benchmark::State &state) {
    for (auto _ : state) {
        FILE *file = manyLines();
        resetReadLine(nullptr);
        setReadLineModes(0);
        while (char *line = READ(file))
            benchmark::DoNotOptimize(line);
    }
}
QN_BENCHMARK("readLine/library", readLines<readLine>);
QN_BENCHMARK("readQuotedLine/library", readLines<readQuotedLine>);

void getLines(benchmark::State &state) {
    char *line = nullptr;
    size_t size = 0;
    for (auto _ : state) {
        FILE *file = manyLines();
        while (getline(&line, &size, file) > 0)
            benchmark::DoNotOptimize(line);
    }
    free(line);
}
QN_BENCHMARK("readLine/getline", getLines);

template<const char *const &TEXT>
void expandText(benchmark::State &state) {
    char text[64];
    for (auto _ : state) {
        strcpy(text, TEXT);
        char *expanded = shellVariable(text);
        benchmark::DoNotOptimize(expanded);
        freecopy(expanded);
    }
}

template<const char *const &TEXT>
void expandByWordexp(benchmark::State &state) {
    for (auto _ : state) {
        wordexp_t words;
        wordexp(TEXT, &words, WRDE_NOCMD);
        benchmark::DoNotOptimize(words.we_wordv);
        wordfree(&words);
    }
}

const char *const PLAIN_WORD = "/var/spool/voice";
const char *const WITH_DEFAULT = "${HOME:-/tmp}/x";
QN_BENCHMARK("shellVariablePlain/library", expandText<PLAIN_WORD>);
QN_BENCHMARK("shellVariablePlain/wordexp", expandByWordexp<PLAIN_WORD>);
QN_BENCHMARK("shellVariableDefault/library", expandText<WITH_DEFAULT>);
QN_BENCHMARK("shellVariableDefault/wordexp", expandByWordexp<WITH_DEFAULT>);

constexpr int OPTIONS = 100;

std::string temporary(const std::string &contents) {
    std::string path = "/tmp/qnbenchXXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0 || write(fd, contents.data(), contents.size()) < 0)
        abort();
    close(fd);
    return path;
}

std::string optionName(int number) {
    return "option" + std::to_string(number);
}

void readOptions(benchmark::State &state) {
    std::string contents;
    static int32_t values[OPTIONS];
    static std::string names[OPTIONS];
    static OptionEntry table[OPTIONS + 1] = {};
    for (int i = 0; i < OPTIONS; ++i) {
        names[i] = optionName(i);
        contents += names[i] + "=" + std::to_string(i * 7) + "\n";
        table[i] = {names[i].data(), nullptr, optInteger, &values[i]};
    }
    const std::string path = temporary(contents);
    for (auto _ : state)
        processOptionsFile(path.c_str(), table);
    if (values[99] != 693)
        state.SkipWithError("an option was not read");
    unlink(path.c_str());
}
QN_BENCHMARK("processOptionsFile/library", readOptions);

void findIdentifier(benchmark::State &state, const char *subject) {
    for (auto _ : state)
        benchmark::DoNotOptimize(regularExp(DEFINED_NAME.bytes, subject, nullptr));
}

void findLogForm(benchmark::State &state, const char *subject) {
    for (auto _ : state) {
        CaptureBlock *groups = nullptr;
        benchmark::DoNotOptimize(regularExp(LOG_FORM.bytes, subject, &groups));
        free(groups);
    }
}

const char *const SHORT_NAME = "CALL_BUSY";
const std::string LONG_TEXT(200, 'x');
const std::string FAILING_TEXT = LONG_TEXT + "-";
const char *const SHORT_FORM_TEXT = "logCALL(12)";
const std::string LONG_FORM_TEXT = "logC" + std::string(200, 'A') + "(1234567)";
const std::string FAILING_FORM_TEXT = "logC" + std::string(200, 'A') + "(1234567";

#define QN_PATTERN_CASES(way, identifier, form)                                                    \
    QN_BENCHMARK("identifierShort/" way, [](benchmark::State &s) { identifier(s, SHORT_NAME); });  \
    QN_BENCHMARK("identifierLong/" way,                                                            \
                 [](benchmark::State &s) { identifier(s, LONG_TEXT.c_str()); });                   \
    QN_BENCHMARK("identifierFailing/" way,                                                         \
                 [](benchmark::State &s) { identifier(s, FAILING_TEXT.c_str()); });                \
    QN_BENCHMARK("logFormShort/" way, [](benchmark::State &s) { form(s, SHORT_FORM_TEXT); });      \
    QN_BENCHMARK("logFormLong/" way,                                                               \
                 [](benchmark::State &s) { form(s, LONG_FORM_TEXT.c_str()); });                    \
    QN_BENCHMARK("logFormFailing/" way,                                                            \
                 [](benchmark::State &s) { form(s, FAILING_FORM_TEXT.c_str()); })

QN_PATTERN_CASES("library", findIdentifier, findLogForm);

#ifndef QN_PLAIN_BENCHMARK
struct Compiled {
    pcre2_code *code;
    pcre2_match_data *data;
    Compiled(const char *pattern, bool isFast) {
        int error;
        PCRE2_SIZE where;
        code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED, 0,
                             &error, &where, nullptr);
        if (code == nullptr || (isFast && pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) != 0))
            abort();
        data = pcre2_match_data_create_from_pattern(code, nullptr);
    }
};

void findCompiled(benchmark::State &state, const Compiled &pattern, const char *subject) {
    for (auto _ : state)
        benchmark::DoNotOptimize(pcre2_match(pattern.code, reinterpret_cast<PCRE2_SPTR>(subject),
                                             strlen(subject), 0, 0, pattern.data, nullptr));
}

// With the groups' texts copied out in one block, as the library gives them.
void findCompiledGroups(benchmark::State &state, const Compiled &pattern, const char *subject) {
    for (auto _ : state) {
        PCRE2_UCHAR **groups = nullptr;
        if (pcre2_match(pattern.code, reinterpret_cast<PCRE2_SPTR>(subject), strlen(subject), 0, 0,
                        pattern.data, nullptr) > 0)
            pcre2_substring_list_get(pattern.data, &groups, nullptr);
        benchmark::DoNotOptimize(groups);
        if (groups != nullptr)
            pcre2_substring_list_free(const_cast<PCRE2_SPTR *>(groups));
    }
}

constexpr const char *IDENTIFIER_PATTERN = "^[a-zA-Z][a-zA-Z0-9_]*$";
constexpr const char *FORM_PATTERN = "^log([A-Z][A-Z0-9a-z_]+)\\(([0-9]*)\\)$";

template<bool IS_FAST>
void identifierByPcre(benchmark::State &state, const char *subject) {
    static const Compiled pattern(IDENTIFIER_PATTERN, IS_FAST);
    findCompiled(state, pattern, subject);
}

template<bool IS_FAST>
void formByPcre(benchmark::State &state, const char *subject) {
    static const Compiled pattern(FORM_PATTERN, IS_FAST);
    findCompiledGroups(state, pattern, subject);
}

QN_PATTERN_CASES("pcre2", identifierByPcre<false>, formByPcre<false>);
QN_PATTERN_CASES("pcre2jit", identifierByPcre<true>, formByPcre<true>);

void readKeyFile(benchmark::State &state) {
    std::string contents = "[options]\n";
    for (int i = 0; i < OPTIONS; ++i)
        contents += optionName(i) + "=" + std::to_string(i * 7) + "\n";
    const std::string path = temporary(contents);
    int sum = 0;
    for (auto _ : state) {
        GKeyFile *file = g_key_file_new();
        g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
        for (int i = 0; i < OPTIONS; ++i)
            sum += g_key_file_get_integer(file, "options", optionName(i).c_str(), nullptr);
        g_key_file_free(file);
    }
    benchmark::DoNotOptimize(sum);
    unlink(path.c_str());
}
QN_BENCHMARK("processOptionsFile/GKeyFile", readKeyFile);

void readConfuse(benchmark::State &state) {
    static std::string names[OPTIONS];
    static long values[OPTIONS];
    static cfg_opt_t options[OPTIONS + 1];
    std::string contents;
    for (int i = 0; i < OPTIONS; ++i) {
        names[i] = optionName(i);
        contents += names[i] + " = " + std::to_string(i * 7) + "\n";
        const cfg_opt_t option = CFG_SIMPLE_INT(names[i].data(), &values[i]);
        options[i] = option;
    }
    const cfg_opt_t end = CFG_END();
    options[OPTIONS] = end;
    const std::string path = temporary(contents);
    for (auto _ : state) {
        cfg_t *parsed = cfg_init(options, CFGF_NONE);
        cfg_parse(parsed, path.c_str());
        cfg_free(parsed);
    }
    if (values[99] != 693)
        state.SkipWithError("an option was not read");
    unlink(path.c_str());
}
QN_BENCHMARK("processOptionsFile/confuse", readConfuse);
#endif

} // namespace

BENCHMARK_MAIN();
