/* The daemon's reader of frames, alone: whatever way the bytes come, and however a long frame was
   cut, the frames of the others come out whole and in their order. */
#include "tools/qnlogd/frameReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

std::string frame(const std::string &body) {
    std::string digits = std::to_string(body.size());
    if (body.size() > 999)
        return "<" + std::to_string(digits.size()) + ">" + digits + body;
    return std::string(3 - digits.size(), '0') + digits + body;
}

std::string body(const std::string &argument) {
    return "00000001101 \x1C\x30"
           "65920080ivr f.c:40\x1C" +
           argument + "\x1D";
}

struct Taken {
    std::vector<std::string> bodies;
    size_t damaged = 0;
};

// The bytes in blocks of that size, and then an empty pipe.
Taken take(const std::string &bytes, size_t block) {
    FrameReader reader;
    Taken taken;
    const auto takeAll = [&](bool drained) {
        while (const auto piece = reader.next(drained)) {
            if (piece->kind == Piece::BODY)
                taken.bodies.emplace_back(piece->bytes);
            else
                taken.damaged += piece->bytes.size();
        }
    };
    for (size_t at = 0; at < bytes.size(); at += block) {
        reader.feed(std::string_view(bytes).substr(at, block));
        takeAll(false);
    }
    takeAll(true);
    return taken;
}

constexpr size_t HEAD = 50; // of the frame and its record, up to the argument
constexpr size_t BLOCKS[] = {1, 7, 4096, 65536};

} // namespace

TEST(FrameReader, sameFramesForEveryWayTheBytesCome) {
    const std::string longBody = body(std::string(5000, 'x'));
    const std::string bytes =
        frame(body("a")) + frame("free text") + frame(longBody) + "   line\n" + frame(body("b\nc"));
    for (const size_t block : BLOCKS) {
        const Taken taken = take(bytes, block);
        EXPECT_EQ(
            (std::vector<std::string>{body("a"), "free text", longBody, "line\n", body("b\nc")}),
            taken.bodies)
            << block;
        EXPECT_EQ(0U, taken.damaged);
    }
}

// A pipe that is nearly full takes a part only; the client then tries the whole record again.
TEST(FrameReader, aCutLongFrameCostsNothingButItself) {
    const std::string whole = body(std::string(6900, 'x'));
    const std::string neighbour = body(std::string(3000, 'y'));
    const std::string behind = frame(body("a")) + frame(neighbour);
    for (size_t cut = HEAD; cut < frame(whole).size(); cut += cut < 80 ? 1 : 499) {
        const std::string part = frame(whole).substr(0, cut);
        const Taken alone = take(frame(body("0")) + part + behind, 4096);
        EXPECT_EQ((std::vector<std::string>{body("0"), body("a"), neighbour}), alone.bodies) << cut;
        EXPECT_EQ(cut, alone.damaged);
        const Taken again = take(part + frame(whole) + behind, 4096);
        EXPECT_EQ((std::vector<std::string>{whole, body("a"), neighbour}), again.bodies) << cut;
        EXPECT_EQ(cut, again.damaged);
    }
}

// What is left of the header and the next one can read as a third, of the record's head likewise:
// the next two can be lost.
TEST(FrameReader, behindAFrameCutInItsHeadItIsSoonInStep) {
    const std::string whole = body(std::string(6900, 'x'));
    const std::string behind = frame(body("a")) + frame(body("b")) + frame(body("c"));
    for (size_t cut = 1; cut < HEAD; ++cut) {
        const Taken taken = take(frame(body("0")) + frame(whole).substr(0, cut) + behind, 4096);
        EXPECT_EQ(body("0"), taken.bodies.front()) << cut;
        EXPECT_EQ(body("c"), taken.bodies.back()) << cut;
        EXPECT_LT(taken.damaged, cut + 2 * frame(body("a")).size()) << cut;
    }
}

TEST(FrameReader, aFrameThatNoPipeHoldsIsNotWaitedFor) {
    const std::string tooLong = frame(body(std::string(1100000, 'x'))).substr(0, 700000);
    for (const size_t block : {size_t{4096}, size_t{65536}}) {
        const Taken taken = take(tooLong + tooLong + frame(body("a")) + frame(body("b")), block);
        EXPECT_EQ((std::vector<std::string>{body("a"), body("b")}), taken.bodies);
        EXPECT_EQ(1400000U, taken.damaged);
    }
}

TEST(FrameReader, behindDamageTheNextRecordIsFound) {
    for (const size_t block : BLOCKS) {
        const Taken taken = take("garbage" + frame(body("a")) + "<9>999999999" + frame(body("b")) +
                                     "12" + frame(body("c")) + "050short",
                                 block);
        EXPECT_EQ((std::vector<std::string>{body("a"), body("b"), body("c")}), taken.bodies)
            << block;
        EXPECT_EQ(7U + 12 + 2 + 8, taken.damaged);
    }
}

TEST(FrameReader, nothingIsKeptOnceThePipeIsEmpty) {
    FrameReader reader;
    reader.feed("050sho");
    EXPECT_FALSE(reader.next(false));
    ASSERT_TRUE(reader.next(true));
    reader.feed(frame(body("a")));
    const auto piece = reader.next(false);
    ASSERT_TRUE(piece);
    EXPECT_EQ(body("a"), piece->bytes);
}

// Each is looked at for what follows it; the cost must not be that of all the others.
TEST(FrameReader, recordsThatNothingFollowsAreTakenAllTheSame) {
    constexpr size_t RECORDS = 5000;
    const std::string one = frame(body("a")) + std::string(40, '-');
    std::string bytes = "-";
    for (size_t count = 0; count < RECORDS; count++)
        bytes += one;
    const Taken taken = take(bytes, bytes.size());
    EXPECT_GT(taken.bodies.size(), RECORDS * 9 / 10);
    EXPECT_EQ(body("a"), taken.bodies.back());
}
