#include "plugin_log.h"

#include <android/log.h>

namespace qmkvprobe {

namespace {

void fatalOnly(const struct __android_logger_data *d, const char *message) {
    if (d != nullptr && d->priority >= ANDROID_LOG_FATAL) __android_log_stderr_logger(d, message);
}

}  // namespace

void showPluginLog(bool show) {
    __android_log_set_logger(show ? __android_log_stderr_logger : fatalOnly);
}

}  // namespace qmkvprobe
