// The readers the benchmark compares. Each one opens a file through a
// CountingSource, reads every frame of every track into a caller buffer,
// delivers a first frame, and seeks.
#ifndef QMKV_BENCH_READERS_H_
#define QMKV_BENCH_READERS_H_

#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_io.h"

namespace qmkvbench {

// The caller's buffer every frame lands in, and what went through it.
struct Sink {
    uint64_t frames = 0;
    uint64_t bytes = 0;

    // At least n bytes; grows without zero-filling, so that the harness adds
    // no memset to any reader's profile.
    uint8_t *room(size_t n) {
        if (mCapacity < n) {
            size_t cap = mCapacity < 4096 ? 4096 : mCapacity;
            while (cap < n) cap *= 2;
            mBuf.reset(new uint8_t[cap]);
            mCapacity = cap;
        }
        return mBuf.get();
    }
    size_t capacity() const { return mCapacity; }
    // A frame delivered: written into the caller's buffer, or handed over
    // in a buffer the caller then owns (a MediaBuffer, an AVPacket).
    void landed(size_t n) {
        frames++;
        bytes += n;
    }

private:
    std::unique_ptr<uint8_t[]> mBuf;
    size_t mCapacity = 0;
};

class Reader {
public:
    virtual ~Reader() = default;
    virtual const char *name() const = 0;
    // Opens the file and learns every track's format.
    virtual bool open(const std::string &path, std::string *error) = 0;
    virtual int trackCount() const = 0;
    // Every frame of every track; false on a read error.
    virtual bool readAll(Sink &sink, std::string *error) = 0;
    // The first frame the reader delivers after open.
    virtual bool firstFrame(Sink &sink) = 0;
    // Seeking: per track, begin, then any number of seekRead (seek to the
    // time, "previous sync point" mode, and read one frame of that track),
    // then end. canSeek() false when the reader has no way to seek the file.
    virtual bool canSeek() const { return true; }
    virtual bool beginTrack(int track) = 0;
    virtual bool seekRead(int track, int64_t timeUs, Sink &sink) = 0;
    virtual void endTrack(int track) = 0;
    virtual IoCounts io() const = 0;
};

enum class Kind { kRaw, kMapped, kRawSource, kCore, kCoreDirect, kPlugin, kLavf, kWebm, kMkvparser };

// The read limits, which deliver no frames.
inline bool isRawKind(Kind k) { return k == Kind::kRaw || k == Kind::kMapped || k == Kind::kRawSource; }

// Names as printed and as given on the command line.
const char *kindName(Kind k);
bool kindFromName(const std::string &name, Kind *out);
const std::vector<Kind> &allKinds();

// `maxInput` (per track) sizes the buffer for kCoreDirect: the capacity the
// plug-in announces (its max-input-size), read into directly.
std::unique_ptr<Reader> makeReader(Kind kind, const std::vector<uint32_t> &maxInput);

// libwebm's mkvparser (reader_mkvparser.cpp).
std::unique_ptr<Reader> makeMkvparserReader();

// The plug-in's max-input-size of each track, and the file's duration
// (microseconds) as the core reports it.
bool fileFacts(const std::string &path, std::vector<uint32_t> *maxInput, int64_t *durationUs);

}  // namespace qmkvbench

#endif  // QMKV_BENCH_READERS_H_
