// Captures Android log messages written while it is alive, debug ones too.
#ifndef QMKV_TEST_LOG_CAPTURE_H_
#define QMKV_TEST_LOG_CAPTURE_H_

#include <string>
#include <vector>

namespace qmkv_test {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    const std::vector<LogLine> &lines() const;
    // True when some captured line has exactly this tag and message.
    bool has(const std::string &tag, const std::string &message) const;
    // True when some captured message contains `text`.
    bool contains(const std::string &text) const;
    void clear();

private:
    int mPriority;
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_LOG_CAPTURE_H_
