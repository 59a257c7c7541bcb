/* Records taken apart and changed by several threads at once, each its own. */
#include "buffers/charBuffer.h"
#include "log/logMsg.h"
#include "log/synLogFlds.h"

#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace {

TEST(Threads, recordsAreParsedAndChangedApart) {
    setenv("TZ", "UTC0", 1);
    std::atomic<int> wrong{0};
    together([&](int number) {
        const std::string own = std::to_string(number);
        std::string text = "1" + own +
                           " \x1C"
                           "00000000" +
                           own + "p" + own +
                           " f:7\x1C"
                           "arg" +
                           own + "\x1D";
        for (int round = 0; round < 10000; ++round) {
            LogMsg *msg = parseCmpLog(text.data(), 0);
            int32_t index = -1;
            bool right = msg != nullptr && msg->index == 10 + number && msg->tm.tm_sec == number &&
                         "p" + own == msg->producer && "arg" + own == msg->args[0].value;
            right = right &&
                    typeOfCmpLog(text.c_str(), &index, nullptr, nullptr, nullptr) == 10 + number;
            right = right && chgPriorityLogMsg(msg, 3) == 0 &&
                    chgTimeLogMsg(msg, 10 * number) == number && msg->tm.tm_sec == 10 * number % 60;
            wrong += right ? 0 : 1;
            freeLogMsg(msg);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, quotingWorksOnEachThreadsBuffer) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        const std::string own(static_cast<size_t>(number) * 50 + 1,
                              static_cast<char>('a' + number));
        for (int round = 0; round < 10000; ++round) {
            CharBuffer *buffer = mkCharBuffer(0);
            wrong += "\"" + own + "\"" == cvtToQuotedStr(buffer, own.c_str()) ? 0 : 1;
            buffer->next = buffer->text;
            wrong += own == dedoublequoteStr(buffer, ("\"" + own + "\"").c_str()) ? 0 : 1;
            freeCharBuffer(buffer);
        }
    });
    EXPECT_EQ(wrong, 0);
}

} // namespace
