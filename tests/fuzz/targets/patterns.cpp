/* Pattern programs: well-formed ones, put together from the input, and hostile ones, the input's
   own bytes. A program carries no length, so a hostile one is handed over with MATCH_PADDING zero
   bytes behind it and nothing more: what is read past them is found. Where the slow matcher of
   tests/regex comes to a result, the matcher's is the same, captures included. */
#include "regex/referenceMatcher.h"
#include "regex/regularExp.h"
#include "support/scratch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr size_t MAX_PROGRAM = 300;
constexpr size_t MAX_SUBJECT = 80; // long enough to be looked through first
constexpr int REFERENCE_STEPS = 4000;

using Found = std::optional<ReferenceMatcher::Match>;

// ---- programs from the input

char byteOf(int value) {
    return static_cast<char>(value);
}

char letter(Pieces &pieces) {
    return "abcd"[pieces.byte() % 4];
}

std::string counts(Pieces &pieces) {
    static constexpr int MAXIMA[] = {0, 1, 2, 3, 9, MATCH_NO_LIMIT};
    const int min = pieces.byte() % 4;
    return {byteOf(min), byteOf(MAXIMA[pieces.byte() % 6])};
}

std::string classMembers(Pieces &pieces) {
    std::string members;
    for (int left = pieces.byte() % 4; left > 0; --left) {
        if (pieces.byte() % 2 == 0)
            members += letter(pieces);
        else
            members += std::string{MATCH_RANGE, letter(pieces), letter(pieces)};
    }
    return byteOf(static_cast<int>(members.size()) + 1) + members;
}

std::string item(Pieces &pieces) {
    static constexpr int KINDS[] = {MATCH_CHARACTER, MATCH_ANY, MATCH_IN_CLASS, MATCH_NOT_IN_CLASS};
    const int kind = KINDS[pieces.byte() % 4], how = pieces.byte() % 4;
    std::string made(1, byteOf(kind | how));
    if (kind == MATCH_CHARACTER)
        made += letter(pieces);
    else if (kind != MATCH_ANY)
        made += classMembers(pieces);
    return how == MATCH_COUNTED ? made + counts(pieces) : made;
}

std::string parts(Pieces &pieces, int depth);

std::string group(Pieces &pieces, int depth) {
    static constexpr int KINDS[] = {MATCH_GROUP_COUNTED, MATCH_GROUP_ZERO_OR_MORE,
                                    MATCH_GROUP_ONE_OR_MORE};
    const int kind = KINDS[pieces.byte() % 3];
    const std::string sub = parts(pieces, depth - 1) + byteOf(MATCH_SUB_END);
    const int length = static_cast<int>(sub.size());
    const std::string made = std::string{byteOf(kind | length / 256), byteOf(length % 256)} + sub;
    return kind == MATCH_GROUP_COUNTED ? made + counts(pieces) : made;
}

std::string capture(Pieces &pieces, int depth) {
    const int slot = pieces.byte() % 12 - 2; // negative: automatic
    const int number = pieces.byte() % 10;
    return std::string{MATCH_OPEN, byteOf(slot)} + parts(pieces, depth - 1) +
           std::string{MATCH_CLOSE, byteOf(slot), byteOf(number)};
}

std::string parts(Pieces &pieces, int depth) {
    std::string made;
    for (int left = pieces.byte() % 4; left >= 0 && made.size() < MAX_PROGRAM / 2; --left) {
        const int choice = depth == 0 ? 0 : pieces.byte() % 8;
        if (choice < 4)
            made += item(pieces);
        else if (choice < 6)
            made += group(pieces, depth);
        else if (choice < 7)
            made += capture(pieces, depth);
        else
            made += std::string{MATCH_SKIP, 'x'};
    }
    return made;
}

std::string wellFormed(Pieces &pieces) {
    const uint8_t ends = pieces.byte();
    std::string program = parts(pieces, 3);
    if ((ends & 1) != 0)
        program.insert(program.begin(), MATCH_ANCHOR);
    if ((ends & 2) != 0)
        program += byteOf(MATCH_SUBJECT_END);
    return program + byteOf(MATCH_END);
}

// ---- one search

// Copies of just their size: a byte read outside of them is found.
std::unique_ptr<char[]> exactly(const std::string &bytes, size_t padding) {
    auto block = std::make_unique<char[]>(bytes.size() + padding);
    std::copy(bytes.begin(), bytes.end(), block.get());
    return block;
}

Found found(const char *program, const std::string &subject) {
    const auto text = exactly(subject, 1);
    CaptureBlock *block = nullptr;
    const char *end = regularExp(program, text.get(), &block);
    const char *start = startPatMatch();
    if (end == nullptr) {
        FUZZ_CHECK(block == nullptr && start == nullptr);
        return std::nullopt;
    }
    FUZZ_CHECK(text.get() <= start && start <= end && end <= text.get() + subject.size());
    ReferenceMatcher::Match match = {
        static_cast<size_t>(start - text.get()), static_cast<size_t>(end - text.get()), {}};
    for (int32_t number = 0; block != nullptr && number < block->count; ++number)
        if (block->group[number] != nullptr)
            match.groups[number] = block->group[number];
    FUZZ_CHECK(block == nullptr || block->group[block->count - 1] != nullptr);
    free(block);
    return match;
}

// The first three groups into buffers of the subject's size, the others left out.
void checkBuffers(const char *program, const std::string &subject, const Found &expected) {
    const auto text = exactly(subject, 1);
    std::unique_ptr<char[]> groups[10];
    for (auto &each : groups)
        each = exactly(subject, 1);
    const char *end = regEx(program, text.get(), groups[0].get(), groups[1].get(), groups[2].get(),
                            nullptr, groups[4].get(), groups[5].get(), groups[6].get(),
                            groups[7].get(), groups[8].get(), groups[9].get());
    FUZZ_CHECK((end != nullptr) == expected.has_value());
    if (!expected)
        return;
    FUZZ_CHECK(static_cast<size_t>(end - text.get()) == expected->end);
    for (const auto &[number, captured] : expected->groups)
        if (number < 10 && number != 3)
            FUZZ_CHECK(captured == groups[number].get());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const bool isHostile = pieces.byte() % 2 != 0;
    const std::string subject = pieces.text().substr(0, MAX_SUBJECT);
    const std::string program =
        (isHostile ? pieces.rest() : wellFormed(pieces)).substr(0, MAX_PROGRAM);
    const auto padded = exactly(program, MATCH_PADDING);
    const Found match = found(padded.get(), subject);
    checkBuffers(padded.get(), subject, match);

    ReferenceMatcher reference(std::string(padded.get(), program.size() + MATCH_PADDING), subject,
                               REFERENCE_STEPS);
    const Found expected = reference.match();
    if (!reference.tooSlow() && !reference.cameToSavingEnd())
        FUZZ_CHECK(match == expected);
    return 0;
}
