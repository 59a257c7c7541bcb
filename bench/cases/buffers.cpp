/* Buffers, arrays and visible rendering, against what applications use in their place. */
#include "support/bench.h"

#include "buffers/arrays.h"
#include "buffers/charBuffer.h"
#include "buffers/clearCopy.h"
#include "buffers/fmtCharBuf.h"
#include "core/mkcopy.h"

#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <string>

#ifndef QN_PLAIN_BENCHMARK
#define LIBBSD_NETBSD_VIS // one of two forms of functions that are not used here
#include <bsd/vis.h>
#include <glib.h>
#endif

namespace {

constexpr int PIECES = 1000;
constexpr const char *PIECE = "eleven byte";

void appendText(benchmark::State &state) {
    for (auto _ : state) {
        CharBuffer *buffer = mkCharBuffer(0);
        for (int i = 0; i < PIECES; ++i)
            putStrCharBuffer(buffer, PIECE);
        benchmark::DoNotOptimize(buffer->text);
        freeCharBuffer(buffer);
    }
}
QN_BENCHMARK("putStrCharBuffer/library", appendText);

void appendTextToString(benchmark::State &state) {
    for (auto _ : state) {
        std::string text;
        for (int i = 0; i < PIECES; ++i)
            text += PIECE;
        benchmark::DoNotOptimize(text.data());
    }
}
QN_BENCHMARK("putStrCharBuffer/string", appendTextToString);

void appendBytes(benchmark::State &state) {
    for (auto _ : state) {
        CharBuffer *buffer = mkCharBuffer(0);
        for (int i = 0; i < PIECES; ++i)
            for (const char *at = PIECE; *at != '\0'; ++at)
                fputCharBuffer(buffer, *at);
        benchmark::DoNotOptimize(buffer->text);
        freeCharBuffer(buffer);
    }
}
QN_BENCHMARK("fputCharBuffer/library", appendBytes);

void appendBytesToString(benchmark::State &state) {
    for (auto _ : state) {
        std::string text;
        for (int i = 0; i < PIECES; ++i)
            for (const char *at = PIECE; *at != '\0'; ++at)
                text += *at;
        benchmark::DoNotOptimize(text.data());
    }
}
QN_BENCHMARK("fputCharBuffer/string", appendBytesToString);

void formatPair(benchmark::State &state) {
    CharBuffer *buffer = mkCharBuffer(0);
    int number = 0;
    for (auto _ : state) {
        buffer->next = buffer->text;
        fmtCharBuffer(buffer, "%s=%d ", "channel", number++ & 0xFFF);
        benchmark::DoNotOptimize(buffer->text);
    }
    freeCharBuffer(buffer);
}
QN_BENCHMARK("fmtCharBuffer/library", formatPair);

void formatPairBySnprintf(benchmark::State &state) {
    char text[128];
    int number = 0;
    for (auto _ : state) {
        snprintf(text, sizeof text, "%s=%d ", "channel", number++ & 0xFFF);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("fmtCharBuffer/snprintf", formatPairBySnprintf);

struct Element {
    int32_t word[4];
};

// The count is set back each time, so that the array stays as it is.
void putElement(benchmark::State &state) {
    arrayInit(16);
    const uint32_t array = arrayOpen(0, sizeof(Element));
    const Element element = {{1, 2, 3, 4}};
    for (auto _ : state) {
        benchmark::DoNotOptimize(arrayPut(array, &element));
        arrDescPtr[array].count = 0;
    }
    arrayClose(array);
}
QN_BENCHMARK("arrayPut/library", putElement);

void mutexAndCopy(benchmark::State &state) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    static Element storage;
    const Element element = {{1, 2, 3, 4}};
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        memcpy(&storage, &element, sizeof element);
        pthread_mutex_unlock(&mutex);
        benchmark::DoNotOptimize(&storage);
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("arrayPut/mutex", mutexAndCopy);

// 1 KiB; with controls, each tenth byte is one.
std::string sample(bool hasControls) {
    std::string text;
    for (int i = 0; i < 1024; ++i)
        text += hasControls && i % 10 == 9 ? static_cast<char>(1 + i % 6)
                                           : static_cast<char>('a' + i % 26);
    return text;
}

void renderPlain(benchmark::State &state) {
    const std::string text = sample(false);
    for (auto _ : state) {
        char *shown = clearCopy(text.c_str(), CLEAR_ESCAPE);
        benchmark::DoNotOptimize(shown);
        freecopy(shown);
    }
}
QN_BENCHMARK("clearCopyPlain/library", renderPlain);

void renderControls(benchmark::State &state) {
    const std::string text = sample(true);
    for (auto _ : state) {
        char *shown = clearCopy(text.c_str(), CLEAR_ESCAPE);
        benchmark::DoNotOptimize(shown);
        freecopy(shown);
    }
}
QN_BENCHMARK("clearCopyControls/library", renderControls);

#ifndef QN_PLAIN_BENCHMARK
void appendTextToGString(benchmark::State &state) {
    for (auto _ : state) {
        GString *text = g_string_new(nullptr);
        for (int i = 0; i < PIECES; ++i)
            g_string_append(text, PIECE);
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}
QN_BENCHMARK("putStrCharBuffer/GString", appendTextToGString);

void appendBytesToGString(benchmark::State &state) {
    for (auto _ : state) {
        GString *text = g_string_new(nullptr);
        for (int i = 0; i < PIECES; ++i)
            for (const char *at = PIECE; *at != '\0'; ++at)
                g_string_append_c(text, *at);
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}
QN_BENCHMARK("fputCharBuffer/GString", appendBytesToGString);

template<bool HAS_CONTROLS>
void renderByGlib(benchmark::State &state) {
    const std::string text = sample(HAS_CONTROLS);
    for (auto _ : state) {
        gchar *shown = g_strescape(text.c_str(), nullptr);
        benchmark::DoNotOptimize(shown);
        g_free(shown);
    }
}
QN_BENCHMARK("clearCopyPlain/g_strescape", renderByGlib<false>);
QN_BENCHMARK("clearCopyControls/g_strescape", renderByGlib<true>);

template<bool HAS_CONTROLS>
void renderByVis(benchmark::State &state) {
    const std::string text = sample(HAS_CONTROLS);
    char shown[4 * 1024 + 1];
    for (auto _ : state) {
        benchmark::DoNotOptimize(strvis(shown, text.c_str(), VIS_OCTAL));
        benchmark::ClobberMemory();
    }
}
QN_BENCHMARK("clearCopyPlain/strvis", renderByVis<false>);
QN_BENCHMARK("clearCopyControls/strvis", renderByVis<true>);
#endif

} // namespace

BENCHMARK_MAIN();
