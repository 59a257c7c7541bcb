/* Queues: order, the end mark, the count of free lists, and the two fatal misuses (each in a child
 * process). */
#include "core/list.h"

#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

struct Item {
    ListItem link = {nullptr};
    int value = 0;
};

TEST(List, itemsComeOutInTheOrderTheyWentIn) {
    ListHeader header = {};
    Item a, b;
    queue(&header, &a.link);
    queue(&header, &b.link);
    EXPECT_EQ(a.link.i_next, &b.link);
    EXPECT_EQ(b.link.i_next, LIST_END);
    EXPECT_EQ(dequeue(&header), &a.link);
    EXPECT_EQ(dequeue(&header), &b.link);
    EXPECT_EQ(dequeue(&header), nullptr);
    EXPECT_EQ(header.head, nullptr);
    EXPECT_EQ(header.tail, nullptr);
    EXPECT_EQ(a.link.i_next, nullptr);
    EXPECT_EQ(b.link.i_next, nullptr);
}

TEST(List, removedItemCanBeQueuedAgainAtOnce) {
    ListHeader header = {};
    Item a;
    for (int round = 0; round < 3; ++round) {
        queue(&header, &a.link);
        EXPECT_EQ(dequeue(&header), &a.link);
    }
}

TEST(List, plainQueueLeavesTheCountAlone) {
    ListHeader header = {nullptr, nullptr, 7};
    Item a;
    queue(&header, &a.link);
    EXPECT_EQ(header.count, 7);
    dequeue(&header);
    EXPECT_EQ(header.count, 7);
}

TEST(List, freeListCountsItsItems) {
    ListHeader header = {};
    Item a, b;
    EXPECT_EQ(getItem(&header), nullptr);
    EXPECT_EQ(header.count, 0);
    freeItem(&header, &a.link);
    freeItem(&header, &b.link);
    EXPECT_EQ(header.count, 2);
    EXPECT_EQ(getItem(&header), &a.link);
    EXPECT_EQ(header.count, 1);
}

TEST(List, emptiedFreeListKeepsItsCount) {
    ListHeader header = {};
    Item a;
    freeItem(&header, &a.link);
    EXPECT_EQ(getItem(&header), &a.link);
    EXPECT_EQ(getItem(&header), nullptr);
    EXPECT_EQ(header.count, 0);
    header.count = 5; // whatever it says: only a removal lowers it
    EXPECT_EQ(getItem(&header), nullptr);
    EXPECT_EQ(header.count, 5);
}

void expectPanicEndingIn(const ChildResult &result, const std::string &ending) {
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err.rfind("\r\nPANIC: head: ", 0), 0U) << result.err;
    ASSERT_GE(result.err.size(), ending.size());
    EXPECT_EQ(result.err.substr(result.err.size() - ending.size()), ending);
}

TEST(List, requeuingTheTailIsFatal) {
    const ChildResult result = runInChild([] {
        ListHeader header = {};
        Item a;
        queue(&header, &a.link);
        queue(&header, &a.link);
    });
    expectPanicEndingIn(result, "queue: requeuing queued item.\n\r\n");
}

TEST(List, queuingAnItemOfAnotherQueueIsFatal) {
    const ChildResult result = runInChild([] {
        ListHeader header = {}, other = {};
        Item a, b;
        queue(&other, &a.link);
        queue(&other, &b.link);
        queue(&header, &a.link);
    });
    expectPanicEndingIn(result, "queue: queuing apparently queued item.\n\r\n");
}

// Its link is the end mark and not null: that alone tells that it is queued somewhere.
TEST(List, queuingTheTailOfAnotherQueueIsFatal) {
    const ChildResult result = runInChild([] {
        ListHeader header = {}, other = {};
        Item a;
        queue(&other, &a.link);
        queue(&header, &a.link);
    });
    expectPanicEndingIn(result, "queue: queuing apparently queued item.\n\r\n");
}

TEST(List, freeingAnItemTwiceIsFatal) {
    const ChildResult tail = runInChild([] {
        ListHeader header = {};
        Item a;
        freeItem(&header, &a.link);
        freeItem(&header, &a.link);
    });
    expectPanicEndingIn(tail, "queue: requeuing queued item.\n\r\n");
    const ChildResult inside = runInChild([] {
        ListHeader header = {};
        Item a, b;
        freeItem(&header, &a.link);
        freeItem(&header, &b.link);
        freeItem(&header, &a.link);
    });
    expectPanicEndingIn(inside, "queue: queuing apparently queued item.\n\r\n");
}

TEST(List, diagnosticNamesAddressesAndText) {
    const ChildResult result = runInChild([] {
        Item item;
        item.link.i_next = reinterpret_cast<ListItem *>(0x30);
        ListHeader header = {reinterpret_cast<ListItem *>(0x10), reinterpret_cast<ListItem *>(0x20),
                             0};
        listerr(&header, &item.link, "why");
    });
    EXPECT_EQ(result.err.rfind("\r\nPANIC: head: 0x10 tail: 0x20 item: 0x", 0), 0U) << result.err;
    EXPECT_NE(result.err.find(" item->i_next: 0x30 why\r\n"), std::string::npos) << result.err;
}

TEST(List, overlongDiagnosticIsCutNotOverrun) {
    const ChildResult result = runInChild([] {
        Item item;
        ListHeader header = {};
        listerr(&header, &item.link, std::string(5000, 'x').c_str());
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_LT(result.err.size(), 500U);
}

} // namespace
