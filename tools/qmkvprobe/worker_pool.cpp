#include "worker_pool.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "probe_util.h"

namespace qmkvprobe {

namespace {

struct Worker {
    size_t item;
    pid_t pid;
    int fd;  // the read end of the worker's answer
    double deadline;
    std::string answer;
};

void writeAll(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += (size_t)n;
    }
}

// Starts a worker on `item`; false when no process or pipe can be had.
bool start(const WorkerPool &pool, size_t item, std::vector<Worker> *running, std::string *failure) {
    int fds[2];
    if (pipe(fds) != 0) {
        *failure = std::string("no pipe for a worker (") + strerror(errno) + ")";
        return false;
    }
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0) {
        *failure = std::string("no worker process (") + strerror(errno) + ")";
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (pid == 0) {
        close(fds[0]);
        writeAll(fds[1], pool.work(item));
        _exit(0);
    }
    close(fds[1]);
    // Answers are read as they come, never waited for.
    fcntl(fds[0], F_SETFL, O_NONBLOCK);
    running->push_back(Worker{item, pid, fds[0], now() + pool.timeoutSeconds, std::string()});
    return true;
}

// Why a worker that has ended gave no answer, from its wait status.
std::string endOf(int status) {
    char text[64];
    if (WIFSIGNALED(status))
        snprintf(text, sizeof(text), "crashed (signal %d)", WTERMSIG(status));
    else
        snprintf(text, sizeof(text), "the worker gave no answer (exit %d)", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    return text;
}

// Collects a worker whose pipe has closed, or kills one out of time.
void finish(const WorkerPool &pool, Worker &w, bool timedOut) {
    if (timedOut) kill(w.pid, SIGKILL);
    close(w.fd);
    int status = 0;
    while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    std::string failure;
    if (timedOut)
        failure = "timed out after " + std::to_string(pool.timeoutSeconds) + " s";
    else if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0) || w.answer.empty())
        failure = endOf(status);
    pool.done(w.item, failure.empty() ? w.answer : std::string(), failure);
}

// Reads what the worker sent; true when its end of the pipe has closed.
bool drain(Worker &w) {
    char buf[4096];
    for (;;) {
        const ssize_t n = read(w.fd, buf, sizeof(buf));
        if (n > 0) {
            w.answer.append(buf, (size_t)n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && errno == EAGAIN) {
            return false;
        } else {
            return true;  // end of the answer, or a broken pipe: the wait tells which
        }
    }
}

}  // namespace

void runWorkers(const WorkerPool &pool, size_t count) {
    std::vector<Worker> running;
    size_t next = 0;
    while (next < count || !running.empty()) {
        while (next < count && running.size() < (size_t)pool.jobs) {
            std::string failure;
            if (!start(pool, next, &running, &failure)) pool.done(next, std::string(), failure);
            ++next;
        }
        if (running.empty()) continue;
        std::vector<struct pollfd> fds;
        double soonest = running.front().deadline;
        for (const Worker &w : running) {
            fds.push_back({w.fd, POLLIN, 0});
            if (w.deadline < soonest) soonest = w.deadline;
        }
        const double wait = soonest - now();
        const int r = poll(fds.data(), fds.size(), wait > 0 ? (int)(wait * 1000) + 1 : 0);
        const double t = now();
        std::vector<Worker> still;
        for (size_t i = 0; i < running.size(); ++i) {
            Worker &w = running[i];
            if (r > 0 && (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && drain(w)) {
                finish(pool, w, false);
            } else if (t >= w.deadline) {
                finish(pool, w, true);
            } else {
                still.push_back(std::move(w));
            }
        }
        running.swap(still);
    }
}

}  // namespace qmkvprobe
