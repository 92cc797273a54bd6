#include "tests/support/log_capture.h"

#include <android/log.h>

#include <mutex>

namespace qmkv_test {
namespace {

std::mutex gMutex;
std::vector<LogLine> gLines;

void captureLogger(const struct __android_logger_data *data, const char *message) {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.push_back({data->priority, data->tag ? data->tag : "", message ? message : ""});
}

}  // namespace

LogCapture::LogCapture() {
    clear();
    __android_log_set_logger(captureLogger);
    mPriority = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LogCapture::~LogCapture() {
    __android_log_set_minimum_priority(mPriority);
    __android_log_set_logger(__android_log_stderr_logger);
}

const std::vector<LogLine> &LogCapture::lines() const { return gLines; }

bool LogCapture::has(const std::string &tag, const std::string &message) const {
    std::lock_guard<std::mutex> lock(gMutex);
    for (const LogLine &l : gLines)
        if (l.tag == tag && l.message == message) return true;
    return false;
}

bool LogCapture::contains(const std::string &text) const {
    std::lock_guard<std::mutex> lock(gMutex);
    for (const LogLine &l : gLines)
        if (l.message.find(text) != std::string::npos) return true;
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.clear();
}

}  // namespace qmkv_test
