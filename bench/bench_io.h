// The benchmark's one file-access primitive: positioned reads through the
// host's FileSource (the file mapped, a read a copy), counted. Every reader
// under test (the core, the plug-in, libavformat's custom I/O, libwebm's
// Reader, mkvparser's IMkvReader) reads the file through one of these, so
// "reads" and "bytes asked" mean the same thing for all of them.
#ifndef QMKV_BENCH_IO_H_
#define QMKV_BENCH_IO_H_

#include <stdint.h>

#include <string>

#include <media/MediaExtractorPluginApi.h>
#include <qmkvhost/FileSource.h>

namespace qmkvbench {

struct IoCounts {
    uint64_t calls = 0;  // readAt calls
    uint64_t bytes = 0;  // bytes the calls returned
    uint64_t asked = 0;  // bytes the calls asked for
};

// The fixed cost charged per read by a "device" source: a round trip to
// the process that serves the data source on a device, in microseconds.
// Zero (the default) charges nothing.
void setReadCharge(uint32_t micros);
uint32_t readCharge();

class CountingSource {
public:
    explicit CountingSource(const std::string &path);
    CountingSource(const CountingSource &) = delete;
    CountingSource &operator=(const CountingSource &) = delete;

    bool ok() const { return mFile.initCheck() == android::OK; }
    int64_t size() { return mSize; }
    ssize_t readAt(int64_t offset, void *data, size_t size) {
        mCounts.calls++;
        mCounts.asked += size;
        if (mCharge != 0) spin();
        const ssize_t n = mFile.readAt(offset, data, size);
        if (n > 0) mCounts.bytes += (uint64_t)n;
        return n;
    }
    // The C view handed to the plug-in (and, through a DataSourceHelper,
    // to the core's file-access layer).
    android::CDataSource *wrap() { return &mWrapper; }
    const IoCounts &counts() const { return mCounts; }

private:
    void spin() const;

    qmkvhost::FileSource mFile;
    int64_t mSize = 0;
    uint32_t mCharge;
    IoCounts mCounts;
    android::CDataSource mWrapper;
};

// Bytes moved by memcpy/memmove in the process while counting is on; only
// the qmkv_bench_copies build counts (an interposer), elsewhere these are
// no-ops that report zero.
void copyCountingEnable(bool on);
uint64_t copyCountedBytes();
uint64_t copyCountedCalls();
bool copyCountingAvailable();

}  // namespace qmkvbench

#endif  // QMKV_BENCH_IO_H_
