// Work on many items, each in a forked worker process with a time limit, so
// that an item that crashes or hangs its worker costs only that item.
#ifndef QMKVPROBE_WORKER_POOL_H_
#define QMKVPROBE_WORKER_POOL_H_

#include <stddef.h>

#include <functional>
#include <string>

namespace qmkvprobe {

struct WorkerPool {
    int jobs = 1;            // workers at once
    int timeoutSeconds = 10;  // a worker still running after this is killed
    // Runs in the worker, on item i; its answer goes back to the parent.
    std::function<std::string(size_t)> work;
    // Runs in the parent, once per item, in any order: the worker's answer,
    // or, when it gave none, why ("timed out after 10 s", "crashed (signal
    // 11)", ...) in `failure`.
    std::function<void(size_t, const std::string &answer, const std::string &failure)> done;
};

// Works on items 0..count-1. The parent's state at the call (a plug-in
// already loaded, say) is every worker's, so a worker costs little more
// than a fork.
void runWorkers(const WorkerPool &pool, size_t count);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_WORKER_POOL_H_
