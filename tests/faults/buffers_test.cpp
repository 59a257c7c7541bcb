// Buffers, renderings, formatted texts and arrays, without memory.
#include "buffers/arrays.h"
#include "buffers/charBuffer.h"
#include "buffers/clearCopy.h"
#include "buffers/fmtCharBuf.h"
#include "core/mkcopy.h"

#include "faults/sweep.h"

#include <cstdarg>
#include <memory>
#include <unistd.h>

using namespace std::string_literals;

namespace {

struct FreeBuffer {
    void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
};
using Buffer = std::unique_ptr<CharBuffer, FreeBuffer>;

std::string contentOf(const CharBuffer *buffer) {
    return std::string(buffer->text, static_cast<size_t>(buffer->next - buffer->text));
}

// ---- texts that grow

void makes(Attempt &attempt) {
    const Buffer buffer(attempt.under([] { return mkCharBuffer(7); }));
    EXPECT_EQ(buffer == nullptr, attempt.faulted());
    EXPECT_TRUE(buffer == nullptr || buffer->increment == 7);
}

// Runs the change on a full buffer that holds "abc", and again where it failed; a failure leaves
// the buffer as it was.
template<typename Change>
void change(Attempt &attempt, const std::string &changed, Change operation) {
    const Buffer buffer(mkCharBuffer(4));
    ASSERT_STREQ(putStrCharBuffer(buffer.get(), "abc"), "abc");
    fputCharBuffer(buffer.get(), 'd');
    removeLastCharBufferChar(buffer.get());
    const CharBuffer before = *buffer;
    const bool succeeded = attempt.under([&] { return operation(buffer.get()); });
    EXPECT_EQ(succeeded, !attempt.faulted());
    if (attempt.faulted()) {
        EXPECT_EQ(memcmp(&before, buffer.get(), sizeof before), 0) << "the buffer has changed";
        EXPECT_STREQ(buffer->text, "abc");
        EXPECT_TRUE(operation(buffer.get()));
    }
    EXPECT_EQ(contentOf(buffer.get()), changed);
}

void expands(Attempt &attempt) {
    change(attempt, "abc", [](CharBuffer *buffer) { return expandCharBuffer(buffer) != nullptr; });
}

void puts(Attempt &attempt) {
    change(attempt, "abcdefgh",
           [](CharBuffer *buffer) { return putStrCharBuffer(buffer, "defgh") != nullptr; });
}

void putsOne(Attempt &attempt) {
    const Buffer buffer(mkCharBuffer(1));
    EXPECT_EQ(fputCharBuffer(buffer.get(), 'a'), 'a');
    const int put = attempt.under([&] { return fputCharBuffer(buffer.get(), 'b'); });
    EXPECT_EQ(put, attempt.faulted() ? -1 : 'b');
    EXPECT_EQ(contentOf(buffer.get()), attempt.faulted() ? "a" : "ab");
    EXPECT_EQ(fputCharBuffer(buffer.get(), 'c'), 'c');
}

void insertsOne(Attempt &attempt) {
    change(attempt, "aXbc",
           [](CharBuffer *buffer) { return insertChrIntoCharBuffer(buffer, 'X', 1) != nullptr; });
}

void insertsOneBeyond(Attempt &attempt) {
    change(attempt, "abc\0\0\0\0\0\0X"s,
           [](CharBuffer *buffer) { return insertChrIntoCharBuffer(buffer, 'X', 9) != nullptr; });
}

void inserts(Attempt &attempt) {
    change(attempt, "a1234567bc", [](CharBuffer *buffer) {
        return insertStrIntoCharBuffer(buffer, "1234567", 1) != nullptr;
    });
}

void insertsBeyond(Attempt &attempt) {
    change(attempt, "abc\0\0\0\0\0\0X12"s,
           [](CharBuffer *buffer) { return insertStrIntoCharBuffer(buffer, "X12", 9) != nullptr; });
}

// ---- renderings

constexpr const char *RAW = "one\btwo\001 three\t and so on until the first block of it is full, "
                            "which takes more than a hundred and twenty-eight bytes of it\003";
constexpr const char *RENDERED =
    "ontwo<soh> three\t and so on until the first block of it is full, "
    "which takes more than a hundred and twenty-eight bytes of it<etx>";
constexpr int32_t RENDERING = CLEAR_LOWER | CLEAR_BACKSPACE;

// An owned text or none.
void expectOwned(const Attempt &attempt, char *text, const char *right) {
    EXPECT_EQ(shown(text), attempt.faulted() ? "(null)" : right);
    freecopy(text);
}

void renders(Attempt &attempt) {
    char *text = attempt.under([] { return clearCopy(RAW, RENDERING); });
    expectOwned(attempt, text, RENDERED);
}

void rendersBytes(Attempt &attempt) {
    const uint32_t length = static_cast<uint32_t>(strlen(RAW));
    char *text = attempt.under([&] { return clearCopyBinary(RAW, length, RENDERING); });
    expectOwned(attempt, text, RENDERED);
}

// Cut short, the buffer is empty: no part of a text passes for the whole.
template<typename Render>
void renderInto(Attempt &attempt, Render render) {
    const Buffer buffer(mkCharBuffer(16));
    ASSERT_STREQ(putStrCharBuffer(buffer.get(), "before"), "before");
    const char *text = attempt.under([&] { return render(buffer.get()); });
    EXPECT_EQ(shown(text), attempt.faulted() ? "(null)" : RENDERED);
    EXPECT_STREQ(buffer->text, attempt.faulted() ? "" : RENDERED);
    EXPECT_STREQ(render(buffer.get()), RENDERED);
}

void rendersInto(Attempt &attempt) {
    renderInto(attempt,
               [](CharBuffer *buffer) { return clearCopyCharBuffer(buffer, RAW, RENDERING); });
}

void rendersBytesInto(Attempt &attempt) {
    renderInto(attempt, [](CharBuffer *buffer) {
        return clearCopyBinaryCharBuffer(buffer, RAW, static_cast<uint32_t>(strlen(RAW)),
                                         RENDERING);
    });
}

// ---- formatting

int32_t format(CharBuffer *buffer, const char *pattern, ...) {
    va_list args;
    va_start(args, pattern);
    const int32_t count = vfmtCharBuffer(buffer, pattern, args);
    va_end(args);
    return count;
}

// Content and terminator stay; the block may have grown.
template<typename Format>
void formatInto(Attempt &attempt, const std::string &right, Format put) {
    const Buffer buffer(mkCharBuffer(4));
    ASSERT_STREQ(putStrCharBuffer(buffer.get(), "abc"), "abc");
    const int32_t count = attempt.under([&] { return put(buffer.get()); });
    EXPECT_EQ(count, attempt.faulted() ? -1 : static_cast<int32_t>(right.size()));
    EXPECT_STREQ(buffer->text, attempt.faulted() ? "abc" : ("abc" + right).c_str());
    if (attempt.faulted()) {
        EXPECT_EQ(put(buffer.get()), static_cast<int32_t>(right.size()));
    }
    EXPECT_EQ(contentOf(buffer.get()), "abc" + right);
}

void formats(Attempt &attempt) {
    formatInto(attempt, "-17 and text",
               [](CharBuffer *buffer) { return fmtCharBuffer(buffer, "%d and %s", -17, "text"); });
}

void formatsList(Attempt &attempt) {
    formatInto(attempt, "-17 and text",
               [](CharBuffer *buffer) { return format(buffer, "%d and %s", -17, "text"); });
}

// The bound falls short, so that the text is formatted and the block grown twice.
void formatsTwice(Attempt &attempt) {
    formatInto(attempt, "1.2345678901234567e+00", [](CharBuffer *buffer) {
        return fmtCharBuffer(buffer, "%.16e", 1.2345678901234567);
    });
}

// An empty text once the thread has a block, none before.
void formatsScratch(Attempt &attempt) {
    const char *text = attempt.under([] { return fmtStr("%d and %s", -17, "text"); });
    // A key that could not be made is made by the store that follows.
    EXPECT_TRUE(shown(text) == "-17 and text" ||
                (attempt.faulted() && (text == nullptr || *text == '\0')))
        << shown(text);
    EXPECT_EQ(shown(fmtStr("%d and %s", -17, "text")), "-17 and text");
}

char *formatScratch(const char *pattern, ...) {
    va_list args;
    va_start(args, pattern);
    char *text = vfmtStr(pattern, args);
    va_end(args);
    return text;
}

void formatsScratchAgain(Attempt &attempt) {
    ASSERT_STREQ(formatScratch("%s", "first"), "first");
    const std::string longer(300, 'z');
    const char *text = attempt.under([&] { return formatScratch("%s", longer.c_str()); });
    EXPECT_EQ(shown(text), attempt.faulted() ? "" : longer);
    EXPECT_EQ(shown(formatScratch("%s", longer.c_str())), longer);
}

// ---- arrays

constexpr uint32_t INLINE = 0, INDIRECT = 1;

void makesTable(Attempt &attempt) {
    const ArrayDescriptor *table = attempt.under([] { return arrayInit(30); });
    EXPECT_EQ(table == nullptr, attempt.faulted());
    EXPECT_EQ(arrDescPtr, table);
    const ArrayDescriptor *again = arrayInit(30);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->capacity, 30U);
}

void opensFirst(Attempt &attempt) {
    const uint32_t index = attempt.under([] { return arrayOpen(INLINE, 4); });
    EXPECT_EQ(index, attempt.faulted() ? 0U : 1U);
    EXPECT_EQ(arrayOpen(INLINE, 4), attempt.faulted() ? 1U : 2U);
}

// A table that fills its first page grows by another.
void opensMany(Attempt &attempt) {
    arrayInit(2);
    uint32_t last = 0;
    const size_t perPage = static_cast<size_t>(sysconf(_SC_PAGESIZE)) / sizeof(ArrayDescriptor);
    while (last + 1 < perPage)
        last = arrayOpen(INLINE, 4);
    const uint32_t capacity = arrDescPtr->capacity;
    const uint32_t index = attempt.under([] { return arrayOpen(INLINE, 4); });
    EXPECT_EQ(index, attempt.faulted() ? 0U : last + 1);
    EXPECT_EQ(arrDescPtr->capacity, attempt.faulted() ? capacity : capacity + 2);
    EXPECT_NE(arrayOpen(INLINE, 4), 0U);
}

std::string wordsOf(uint32_t index) {
    const ArrayDescriptor *array = arrayValidDescriptor(index);
    std::string words;
    for (uint32_t place = 0; place < array->count; ++place)
        words += array->type == INDIRECT ? static_cast<char **>(array->storage)[place]
                                         : static_cast<char(*)[4]>(array->storage)[place];
    return words;
}

// Puts one element more than the first growth holds; the array stays as it was where that fails.
template<typename Put>
void putMany(Attempt &attempt, uint32_t index, Put put) {
    for (int count = 0; count < 9; ++count)
        ASSERT_NE(put(index, "abc"), nullptr);
    if (arrayValidDescriptor(index)->type == INLINE) {
        ASSERT_NE(put(index, "abc"), nullptr);
    }
    const std::string before = wordsOf(index);
    const uint32_t changes = arrayValidDescriptor(index)->changes;
    const void *element = attempt.under([&] { return put(index, "xyz"); });
    EXPECT_EQ(element == nullptr, attempt.faulted());
    EXPECT_EQ(wordsOf(index), attempt.faulted() ? before : before + "xyz");
    EXPECT_EQ(arrayValidDescriptor(index)->changes, attempt.faulted() ? changes : changes + 1);
    if (attempt.faulted()) {
        EXPECT_NE(put(index, "xyz"), nullptr);
    }
    EXPECT_EQ(wordsOf(index), before + "xyz");
    EXPECT_EQ(arrayClose(index), 0);
}

void putsInline(Attempt &attempt) {
    putMany(attempt, arrayOpen(INLINE, 4),
            [](uint32_t index, const char *word) { return arrayPut(index, word); });
}

void putsIndirect(Attempt &attempt) {
    putMany(attempt, arrayOpen(INDIRECT, 4),
            [](uint32_t index, const char *word) { return arrayPut(index, word); });
}

void putsOwnSize(Attempt &attempt) {
    putMany(attempt, arrayOpen(INDIRECT, 0),
            [](uint32_t index, const char *word) { return arrayVPut(index, word, 4); });
}

void expandsArray(Attempt &attempt) {
    const uint32_t index = arrayOpen(INLINE, 4);
    ASSERT_NE(arrayPut(index, "abc"), nullptr);
    ArrayDescriptor *array = arrayValidDescriptor(index);
    const ArrayDescriptor before = *array;
    const void *storage = attempt.under([&] { return expandArray(array, 25); });
    EXPECT_EQ(storage, attempt.faulted() ? nullptr : array->storage);
    EXPECT_EQ(array->capacity, attempt.faulted() ? before.capacity : 40U);
    EXPECT_NE(expandArray(array, 25), nullptr);
    EXPECT_EQ(wordsOf(index), "abc");
    EXPECT_EQ(arrayClose(index), 0);
}

const std::vector<Rows> rows = {
    {"mkCharBuffer", Fresh::IN_PLACE, makes, MEMORY},
    {"expandCharBuffer", Fresh::IN_PLACE, expands, MEMORY},
    {"putStrCharBuffer", Fresh::IN_PLACE, puts, MEMORY},
    {"fputCharBuffer", Fresh::IN_PLACE, putsOne, MEMORY},
    {"insertChrIntoCharBuffer", Fresh::IN_PLACE, insertsOne, MEMORY},
    {"insertChrIntoCharBuffer_beyond", Fresh::IN_PLACE, insertsOneBeyond, MEMORY},
    {"insertStrIntoCharBuffer", Fresh::IN_PLACE, inserts, MEMORY},
    {"insertStrIntoCharBuffer_beyond", Fresh::IN_PLACE, insertsBeyond, MEMORY},
    {"clearCopy", Fresh::IN_PLACE, renders, MEMORY},
    {"clearCopyBinary", Fresh::IN_PLACE, rendersBytes, MEMORY},
    {"clearCopyCharBuffer", Fresh::IN_PLACE, rendersInto, MEMORY},
    {"clearCopyBinaryCharBuffer", Fresh::IN_PLACE, rendersBytesInto, MEMORY},
    {"fmtCharBuffer", Fresh::IN_PLACE, formats, MEMORY},
    {"fmtCharBuffer_boundTooShort", Fresh::IN_PLACE, formatsTwice, MEMORY},
    {"vfmtCharBuffer", Fresh::IN_PLACE, formatsList, MEMORY},
    {"fmtStr", Fresh::IN_THREAD, formatsScratch, MEMORY},
    {"vfmtStr", Fresh::IN_THREAD, formatsScratchAgain, MEMORY},
    {"arrayInit", Fresh::IN_CHILD, makesTable, MEMORY},
    {"arrayOpen_first", Fresh::IN_CHILD, opensFirst, MEMORY},
    {"arrayOpen_fullTable", Fresh::IN_CHILD, opensMany, MEMORY},
    {"arrayPut_inline", Fresh::IN_PLACE, putsInline, MEMORY},
    {"arrayPut_indirect", Fresh::IN_PLACE, putsIndirect, MEMORY},
    {"arrayVPut", Fresh::IN_PLACE, putsOwnSize, MEMORY},
    {"expandArray", Fresh::IN_PLACE, expandsArray, MEMORY},
};

QN_SWEEPS(rows);

} // namespace
