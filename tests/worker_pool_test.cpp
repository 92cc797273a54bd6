// The probe's worker pool: every item answered exactly once, whether its
// worker answers, crashes, exits silently or hangs.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <map>
#include <string>

#include "tools/qmkvprobe/worker_pool.h"

using qmkvprobe::WorkerPool;

namespace {

TEST(WorkerPool, EveryItemEndsOnceWithItsAnswerOrWhyNot) {
    const size_t kItems = 9;
    std::map<size_t, std::pair<std::string, std::string>> ends;  // item -> (answer, failure)
    size_t calls = 0;
    WorkerPool pool;
    pool.jobs = 3;
    pool.timeoutSeconds = 1;
    pool.work = [](size_t i) -> std::string {
        switch (i) {
            case 2: raise(SIGTERM); break;        // a worker killed by a signal
            case 4: _exit(3);                     // one that ends without a word
            case 5: sleep(30); break;             // one that hangs
            case 7: return std::string(300000, 'x');  // more than a pipe holds at once
            default: break;
        }
        return "answer " + std::to_string(i);
    };
    pool.done = [&](size_t i, const std::string &answer, const std::string &failure) {
        calls++;
        ends[i] = {answer, failure};
    };
    qmkvprobe::runWorkers(pool, kItems);
    EXPECT_EQ(kItems, calls);
    ASSERT_EQ(kItems, ends.size());
    for (size_t i : {0, 1, 3, 6, 8}) {
        EXPECT_EQ("answer " + std::to_string(i), ends[i].first);
        EXPECT_EQ("", ends[i].second);
    }
    EXPECT_EQ(300000u, ends[7].first.size());
    EXPECT_EQ("crashed (signal 15)", ends[2].second);
    EXPECT_EQ("the worker gave no answer (exit 3)", ends[4].second);
    EXPECT_EQ("timed out after 1 s", ends[5].second);
    for (size_t i : {2, 4, 5}) EXPECT_EQ("", ends[i].first);
}

}  // namespace
