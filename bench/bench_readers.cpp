#include "bench_readers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <qmkvhost/ExtractorHost.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include <webm/callback.h>
#include <webm/reader.h>
#include <webm/status.h>
#include <webm/webm_parser.h>

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace qmkvbench {

namespace {

// ---------------------------------------------------------------------------
// Raw read limits: the whole file, 1 MiB at a time, into one reused buffer,
// through plain pread(2) on its own descriptor (what any reader of the file
// could reach), through a mapping of the file of its own (the copy the
// host's source makes for every read, with the page table entries faulted
// in as it goes: what any reader of that source could reach), or through
// the counted host source every reader under test uses. No frames.

enum class RawWay { kPread, kMapped, kSource };

class RawReader : public Reader {
public:
    explicit RawReader(RawWay way) : mWay(way) {}
    ~RawReader() override {
        if (mMap != MAP_FAILED) munmap(mMap, (size_t)mSize);
        if (mFd >= 0) close(mFd);
    }
    const char *name() const override {
        switch (mWay) {
            case RawWay::kPread: return "raw pread";
            case RawWay::kMapped: return "mapped copy";
            case RawWay::kSource: return "raw source";
        }
        return "?";
    }
    bool open(const std::string &path, std::string *error) override {
        if (mWay == RawWay::kSource) {
            mSource.reset(new CountingSource(path));
            mSize = mSource->ok() ? mSource->size() : -1;
        } else {
            mFd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            mSize = mFd < 0 ? -1 : lseek(mFd, 0, SEEK_END);
            if (mWay == RawWay::kMapped && mSize > 0) {
                mMap = mmap(nullptr, (size_t)mSize, PROT_READ, MAP_PRIVATE, mFd, 0);
                if (mMap == MAP_FAILED) mSize = -1;
            }
        }
        if (mSize < 0) *error = "cannot open " + path;
        return mSize >= 0;
    }
    int trackCount() const override { return 0; }
    bool readAll(Sink &sink, std::string *) override {
        const size_t chunk = 1 << 20;
        uint8_t *buf = sink.room(chunk);
        int64_t pos = 0;
        for (;;) {
            ssize_t n = 0;
            switch (mWay) {
                case RawWay::kSource: n = mSource->readAt(pos, buf, chunk); break;
                case RawWay::kPread: n = pread(mFd, buf, chunk, pos); break;
                case RawWay::kMapped:
                    n = (ssize_t)std::min<int64_t>((int64_t)chunk, mSize - pos);
                    memcpy(buf, static_cast<const uint8_t *>(mMap) + pos, (size_t)n);
                    break;
            }
            if (n <= 0) break;
            if (mWay != RawWay::kSource) {
                mCounts.calls++;
                mCounts.asked += chunk;
                mCounts.bytes += (uint64_t)n;
            }
            pos += n;
            sink.bytes += (uint64_t)n;
        }
        return pos == mSize;
    }
    bool firstFrame(Sink &) override { return false; }
    bool canSeek() const override { return false; }
    bool beginTrack(int) override { return false; }
    bool seekRead(int, int64_t, Sink &) override { return false; }
    void endTrack(int) override {}
    IoCounts io() const override { return mSource ? mSource->counts() : mCounts; }

private:
    RawWay mWay;
    int mFd = -1;
    void *mMap = MAP_FAILED;
    std::unique_ptr<CountingSource> mSource;
    int64_t mSize = 0;
    IoCounts mCounts;
};

// Reads all `n` tracks at once, each time from the one whose last frame is
// earliest, as a player pulls them. `step(track, &last_time, &why)` reads
// one frame: 0 to go on, 1 at the track's end, -1 with `why` on failure.
template <typename Step>
bool pullInterleaved(int n, std::string *error, Step step) {
    std::vector<int64_t> last(n, 0);
    std::vector<bool> done(n, false);
    for (int left = n; left > 0;) {
        int t = -1;
        for (int i = 0; i < n; ++i)
            if (!done[i] && (t < 0 || last[i] < last[t])) t = i;
        std::string why;
        const int r = step(t, &last[t], &why);
        if (r == 0) continue;
        if (r < 0) {
            *error = "track " + std::to_string(t) + " " + why;
            return false;
        }
        done[t] = true;
        --left;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The demuxer core: qmkvd_create, then qmkvds_get_frm per stream, either as
// the probe does it (size query, then the read) or as the plug-in's track
// source does it (straight into a buffer of the plug-in's max-input-size).

class CoreReader : public Reader {
public:
    CoreReader(bool sizeQuery, std::vector<uint32_t> maxInput)
        : mSizeQuery(sizeQuery), mMaxInput(std::move(maxInput)) {
        memset(&mMfal, 0, sizeof(mMfal));
        memset(&mFormat, 0, sizeof(mFormat));
    }
    ~CoreReader() override {
        for (qmkvds *stream : mStreams)
            if (stream != nullptr) qmkvds_close(stream);
        if (mInst != nullptr) qmkvd_delete(mInst);
        if (mMfalReady) qcmn_mfal_deinit(&mMfal);
    }
    const char *name() const override { return mSizeQuery ? "core (size query)" : "core (direct)"; }

    bool open(const std::string &path, std::string *error) override {
        mSource.reset(new CountingSource(path));
        if (!mSource->ok()) {
            *error = "cannot open " + path;
            return false;
        }
        mHelper.reset(new android::DataSourceHelper(mSource->wrap()));
        if (qcmn_mfal_init(&mMfal, mHelper.get()) != 0) {
            *error = "out of memory";
            return false;
        }
        mMfalReady = true;
        const uint32_t params = QMKVD_OPEN_NO_DTS;  // as the plug-in opens
        int32_t err = 0;
        mInst = qmkvd_create(&mMfal, &params, &mFormat, &err);
        if (mInst == nullptr) {
            *error = "qmkvd_create failed (" + std::to_string(err) + ")";
            return false;
        }
        // Every track's format, as the plug-in asks for it.
        for (int t = 0; t < mFormat.track_count; ++t) {
            int32_t size = 0;
            if (qmkvd_get_format(mInst, t, nullptr, &size) == 0 && size > 0) {
                std::vector<uint8_t> config((size_t)size);
                qmkvd_get_format(mInst, t, config.data(), &size);
            }
            qmkvd_info_vid vid;
            qmkvd_info_aud aud;
            qmkvd_info_txt txt;
            switch (mFormat.track_type[t]) {
                case QMKVD_TRACK_VIDEO: qmkvd_get_info_vid(mInst, t, &vid); break;
                case QMKVD_TRACK_AUDIO: qmkvd_get_info_aud(mInst, t, &aud); break;
                case QMKVD_TRACK_SUBTITLE: qmkvd_get_info_txt(mInst, t, &txt); break;
                default: break;
            }
        }
        return true;
    }
    int trackCount() const override { return mFormat.track_count; }

    bool readAll(Sink &sink, std::string *error) override {
        const int n = mFormat.track_count;
        for (int t = 0; t < n; ++t) {
            if (!beginTrack(t)) {
                *error = "qmkvds_open failed on track " + std::to_string(t);
                return false;
            }
        }
        return pullInterleaved(n, error, [&](int t, int64_t *last, std::string *why) {
            const int32_t r = readFrame(t, sink, last);
            if (r == 0) return 0;
            endTrack(t);
            if (r == QMKVD_END_OF_STREAM) return 1;
            *why = "ended with " + std::to_string(r);
            return -1;
        });
    }
    bool firstFrame(Sink &sink) override {
        if (!beginTrack(0)) return false;
        int64_t pts = 0;
        const bool ok = readFrame(0, sink, &pts) == 0;
        endTrack(0);
        return ok;
    }
    bool beginTrack(int track) override {
        int32_t err = 0;
        mStreams[track] = qmkvds_open(mInst, track, &err);
        return mStreams[track] != nullptr;
    }
    bool seekRead(int track, int64_t timeUs, Sink &sink) override {
        const uint64_t t = (uint64_t)timeUs * 10;
        int64_t found = 0;
        if (qmkvds_seek(mStreams[track], &t, &found, QMKVDS_SEEK_PREVIOUS) != 0) return false;
        int64_t pts = 0;
        return readFrame(track, sink, &pts) == 0;
    }
    void endTrack(int track) override {
        if (mStreams[track] != nullptr) qmkvds_close(mStreams[track]);
        mStreams[track] = nullptr;
    }
    IoCounts io() const override { return mSource ? mSource->counts() : IoCounts(); }

private:
    int32_t readFrame(int track, Sink &sink, int64_t *pts) {
        qmkvds *stream = mStreams[track];
        uint32_t size = 0;
        int64_t end = 0;
        uint32_t key = 0;
        if (mSizeQuery) {
            int32_t r = qmkvds_get_frm(stream, nullptr, 0, &size, pts, &end, &key);
            if (r != 0) return r;
            uint8_t *buf = sink.room((size_t)size + 1);
            r = qmkvds_get_frm(stream, buf, (uint32_t)sink.capacity(), &size, pts, &end, &key);
            if (r == 0) sink.landed(size);
            return r;
        }
        const uint32_t cap = track < (int)mMaxInput.size() ? mMaxInput[track] : (8u << 20);
        uint8_t *buf = sink.room(cap);
        const int32_t r = qmkvds_get_frm(stream, buf, cap, &size, pts, &end, &key);
        if (r == 0) sink.landed(size);
        return r;
    }

    bool mSizeQuery;
    std::vector<uint32_t> mMaxInput;
    std::unique_ptr<CountingSource> mSource;
    std::unique_ptr<android::DataSourceHelper> mHelper;
    QCMN_MFAL mMfal;
    bool mMfalReady = false;
    qmkvd *mInst = nullptr;
    qmkvd_format mFormat;
    qmkvds *mStreams[QMKVD_MAX_TRACKS] = {};
};

// ---------------------------------------------------------------------------
// The plug-in, driven through the host the way the framework drives it:
// sniff, create, every format, then getTrack/start/read/stop with buffers
// from the track's buffer group; the sample's MediaBuffer is what the
// caller gets.

qmkvhost::Plugin &linkedPlugin() {
    static std::unique_ptr<qmkvhost::Plugin> plugin = [] {
        std::string error;
        std::unique_ptr<qmkvhost::Plugin> p = qmkvhost::Plugin::fromEntry(GETEXTRACTORDEF, &error);
        if (p == nullptr) {
            fprintf(stderr, "qmkv_bench: plug-in definition unusable: %s\n", error.c_str());
            abort();
        }
        return p;
    }();
    return *plugin;
}

class PluginReader : public Reader {
public:
    ~PluginReader() override {
        mTracks.clear();
        mExtractor.reset();
        AMediaFormat_delete(mFileMeta);
        for (AMediaFormat *f : mTrackMeta) AMediaFormat_delete(f);
    }
    const char *name() const override { return "plug-in (host)"; }
    bool open(const std::string &path, std::string *error) override {
        mSource.reset(new CountingSource(path));
        if (!mSource->ok()) {
            *error = "cannot open " + path;
            return false;
        }
        mExtractor = linkedPlugin().open(mSource->wrap());
        if (mExtractor == nullptr) {
            *error = "not claimed by the plug-in";
            return false;
        }
        mFileMeta = AMediaFormat_new();
        mExtractor->getMetaData(mFileMeta);
        const size_t n = mExtractor->countTracks();
        for (size_t i = 0; i < n; ++i) {
            AMediaFormat *meta = AMediaFormat_new();
            mExtractor->getTrackMetaData(meta, i, 0);
            mTrackMeta.push_back(meta);
        }
        mTracks.resize(n);
        return true;
    }
    int trackCount() const override { return (int)mTrackMeta.size(); }
    bool readAll(Sink &sink, std::string *error) override {
        const int n = trackCount();
        for (int t = 0; t < n; ++t) {
            if (!beginTrack(t)) {
                *error = "track " + std::to_string(t) + " does not start";
                return false;
            }
        }
        return pullInterleaved(n, error, [&](int t, int64_t *last, std::string *why) {
            qmkvhost::Sample sample;
            const media_status_t status = mTracks[t]->read(&sample);
            if (status == AMEDIA_OK) {
                sink.landed(sample->range_length());
                AMediaFormat_getInt64(sample->meta_data(), AMEDIAFORMAT_KEY_TIME_US, last);
                return 0;
            }
            sample.reset();
            endTrack(t);
            if (status == AMEDIA_ERROR_END_OF_STREAM) return 1;
            *why = "read status " + std::to_string(status);
            return -1;
        });
    }
    bool firstFrame(Sink &sink) override {
        if (!beginTrack(0)) return false;
        qmkvhost::Sample sample;
        const bool ok = mTracks[0]->read(&sample) == AMEDIA_OK;
        if (ok)
            sink.landed(sample->range_length());
        sample.reset();
        endTrack(0);
        return ok;
    }
    bool beginTrack(int track) override {
        mTracks[track] = mExtractor->getTrack((size_t)track);
        return mTracks[track] != nullptr && mTracks[track]->start() == AMEDIA_OK;
    }
    bool seekRead(int track, int64_t timeUs, Sink &sink) override {
        qmkvhost::Sample sample;
        const uint32_t options =
            android::CMediaTrackReadOptions::SEEK | android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC;
        if (mTracks[track]->read(&sample, options, timeUs) != AMEDIA_OK) return false;
        sink.landed(sample->range_length());
        return true;
    }
    void endTrack(int track) override {
        if (mTracks[track] != nullptr) mTracks[track]->stop();
        mTracks[track].reset();
    }
    IoCounts io() const override { return mSource ? mSource->counts() : IoCounts(); }

    int32_t maxInput(int track) const {
        int32_t v = 0;
        AMediaFormat_getInt32(mTrackMeta[(size_t)track], AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &v);
        return v;
    }

private:
    std::unique_ptr<CountingSource> mSource;
    std::unique_ptr<qmkvhost::Extractor> mExtractor;
    std::vector<std::unique_ptr<qmkvhost::Track>> mTracks;
    AMediaFormat *mFileMeta = nullptr;
    std::vector<AMediaFormat *> mTrackMeta;
};

// ---------------------------------------------------------------------------
// libavformat: the matroska demuxer over a custom AVIOContext of the default
// file-protocol buffer size (32 KiB) that reads through the CountingSource;
// av_read_frame to the end, each packet copied to the caller.

class LavfReader : public Reader {
public:
    ~LavfReader() override {
        av_packet_free(&mPacket);
        if (mCtx != nullptr) avformat_close_input(&mCtx);
        if (mPb != nullptr) {
            av_freep(&mPb->buffer);
            avio_context_free(&mPb);
        }
    }
    const char *name() const override { return "libavformat"; }
    bool open(const std::string &path, std::string *error) override {
        av_log_set_level(AV_LOG_QUIET);
        mSource.reset(new CountingSource(path));
        if (!mSource->ok()) {
            *error = "cannot open " + path;
            return false;
        }
        const int kBuffer = 32768;
        uint8_t *buffer = static_cast<uint8_t *>(av_malloc(kBuffer));
        mPb = avio_alloc_context(buffer, kBuffer, 0, this, &LavfReader::readPacket, nullptr, &LavfReader::seek);
        mCtx = avformat_alloc_context();
        mCtx->pb = mPb;
        if (avformat_open_input(&mCtx, "", nullptr, nullptr) < 0) {
            mCtx = nullptr;  // freed by the failed open
            *error = "avformat_open_input failed";
            return false;
        }
        mPacket = av_packet_alloc();
        return true;
    }
    int trackCount() const override { return mCtx != nullptr ? (int)mCtx->nb_streams : 0; }
    bool readAll(Sink &sink, std::string *error) override {
        int r;
        while ((r = av_read_frame(mCtx, mPacket)) >= 0) {
            sink.landed((size_t)mPacket->size);
            av_packet_unref(mPacket);
        }
        if (r != AVERROR_EOF) {
            *error = "av_read_frame " + std::to_string(r);
            return false;
        }
        return true;
    }
    bool firstFrame(Sink &sink) override {
        if (av_read_frame(mCtx, mPacket) < 0) return false;
        sink.landed((size_t)mPacket->size);
        av_packet_unref(mPacket);
        return true;
    }
    bool beginTrack(int) override { return true; }
    // The usual whole-file seek (default stream, backwards to a key frame),
    // then packets until one of the track.
    bool seekRead(int track, int64_t timeUs, Sink &sink) override {
        if (av_seek_frame(mCtx, -1, timeUs, AVSEEK_FLAG_BACKWARD) < 0) return false;
        while (av_read_frame(mCtx, mPacket) >= 0) {
            const bool mine = mPacket->stream_index == track;
            if (mine) sink.landed((size_t)mPacket->size);
            av_packet_unref(mPacket);
            if (mine) return true;
        }
        return false;
    }
    void endTrack(int) override {}
    IoCounts io() const override { return mSource ? mSource->counts() : IoCounts(); }

private:
    static int readPacket(void *opaque, uint8_t *buf, int size) {
        LavfReader *self = static_cast<LavfReader *>(opaque);
        const ssize_t n = self->mSource->readAt(self->mPos, buf, (size_t)size);
        if (n <= 0) return AVERROR_EOF;
        self->mPos += n;
        return (int)n;
    }
    static int64_t seek(void *opaque, int64_t offset, int whence) {
        LavfReader *self = static_cast<LavfReader *>(opaque);
        if (whence & AVSEEK_SIZE) return self->mSource->size();
        whence &= ~AVSEEK_FORCE;
        int64_t pos;
        switch (whence) {
            case SEEK_SET: pos = offset; break;
            case SEEK_CUR: pos = self->mPos + offset; break;
            case SEEK_END: pos = self->mSource->size() + offset; break;
            default: return -1;
        }
        if (pos < 0) return -1;
        self->mPos = pos;
        return pos;
    }

    std::unique_ptr<CountingSource> mSource;
    int64_t mPos = 0;
    AVIOContext *mPb = nullptr;
    AVFormatContext *mCtx = nullptr;
    AVPacket *mPacket = nullptr;
};

// ---------------------------------------------------------------------------
// libwebm's webm_parser: a Reader with a 32 KiB buffer over the
// CountingSource (the same size as libavformat's), a Callback whose OnFrame
// reads each frame's bytes into the caller's buffer. It is a streaming
// parser: opening parses up to the first Cluster; seeking uses the Cues
// (found through the SeekHead, loaded on the first seek) and DidSeek();
// a file without Cues cannot be seeked.

class BufferedReader : public webm::Reader {
public:
    explicit BufferedReader(CountingSource *source) : mSource(source), mBuf(kSize) {}

    webm::Status Read(std::size_t n, std::uint8_t *out, std::uint64_t *got) override {
        *got = 0;
        if (mStart == mEnd && n >= kSize) {
            // Large reads go straight to the destination.
            const ssize_t r = mSource->readAt((int64_t)mPos, out, n);
            if (r <= 0) return webm::Status(webm::Status::kEndOfFile);
            mPos += (uint64_t)r;
            *got = (uint64_t)r;
            return webm::Status((size_t)r == n ? webm::Status::kOkCompleted : webm::Status::kOkPartial);
        }
        if (mStart == mEnd && !fill()) return webm::Status(webm::Status::kEndOfFile);
        const size_t take = std::min(n, mEnd - mStart);
        memcpy(out, mBuf.data() + mStart, take);
        mStart += take;
        mPos += take;
        *got = take;
        return webm::Status(take == n ? webm::Status::kOkCompleted : webm::Status::kOkPartial);
    }
    webm::Status Skip(std::uint64_t n, std::uint64_t *skipped) override {
        const uint64_t size = (uint64_t)mSource->size();
        *skipped = 0;
        if (mPos >= size) return webm::Status(webm::Status::kEndOfFile);
        const uint64_t take = std::min<uint64_t>(n, size - mPos);
        const uint64_t inBuffer = mEnd - mStart;
        if (take < inBuffer) {
            mStart += (size_t)take;
        } else {
            mStart = mEnd = 0;
        }
        mPos += take;
        *skipped = take;
        return webm::Status(take == n ? webm::Status::kOkCompleted : webm::Status::kOkPartial);
    }
    std::uint64_t Position() const override { return mPos; }
    void seekTo(uint64_t pos) {
        mPos = pos;
        mStart = mEnd = 0;
    }

private:
    static const size_t kSize = 32768;
    bool fill() {
        const ssize_t r = mSource->readAt((int64_t)mPos, mBuf.data(), kSize);
        if (r <= 0) return false;
        mStart = 0;
        mEnd = (size_t)r;
        return true;
    }

    CountingSource *mSource;
    std::vector<uint8_t> mBuf;
    size_t mStart = 0, mEnd = 0;
    uint64_t mPos = 0;
};

class WebmReader : public Reader, private webm::Callback {
public:
    const char *name() const override { return "libwebm"; }
    bool open(const std::string &path, std::string *error) override {
        mSource.reset(new CountingSource(path));
        if (!mSource->ok()) {
            *error = "cannot open " + path;
            return false;
        }
        mReader.reset(new BufferedReader(mSource.get()));
        mParser.reset(new webm::WebmParser());
        mMode = Mode::kOpen;
        const webm::Status s = mParser->Feed(this, mReader.get());
        if (!mPaused || s.code != webm::Status::kWouldBlock) {
            *error = "libwebm did not reach a Cluster (" + std::to_string(s.code) + ")";
            return false;
        }
        return true;
    }
    int trackCount() const override { return mTrackCount; }
    bool readAll(Sink &sink, std::string *error) override {
        mSink = &sink;
        mMode = Mode::kAll;
        mPaused = false;
        const webm::Status s = mParser->Feed(this, mReader.get());
        mSink = nullptr;
        if (s.code != webm::Status::kOkCompleted) {
            *error = "libwebm Feed " + std::to_string(s.code);
            return false;
        }
        return true;
    }
    bool firstFrame(Sink &sink) override {
        mSink = &sink;
        mMode = Mode::kFirstFrame;
        mPaused = false;
        mWantTrack = 0;  // any
        const webm::Status s = mParser->Feed(this, mReader.get());
        mSink = nullptr;
        return mPaused && s.code == webm::Status::kWouldBlock;
    }
    bool canSeek() const override { return mCuesPosition >= 0; }
    bool beginTrack(int) override { return canSeek(); }
    bool seekRead(int track, int64_t timeUs, Sink &sink) override {
        if (!mCuesLoaded && !loadCues()) return false;
        const uint64_t number = track < (int)mTrackNumbers.size() ? mTrackNumbers[(size_t)track] : 0;
        // The track's own cues, or any track's when it has none.
        const std::vector<Cue> *list = &mAnyCues;
        auto it = mTrackCues.find(number);
        if (it != mTrackCues.end() && !it->second.empty()) list = &it->second;
        if (list->empty()) return false;
        const uint64_t ticks = (uint64_t)((double)timeUs * 1000.0 / (double)mTimecodeScale);
        auto after = std::upper_bound(list->begin(), list->end(), ticks,
                                      [](uint64_t t, const Cue &c) { return t < c.time; });
        const Cue &cue = after == list->begin() ? *after : *(after - 1);
        mReader->seekTo(mSegmentData + cue.clusterPosition);
        mParser->DidSeek();
        mSink = &sink;
        mMode = Mode::kFirstFrame;
        mWantTrack = number;
        mPaused = false;
        const webm::Status s = mParser->Feed(this, mReader.get());
        mSink = nullptr;
        return mPaused && s.code == webm::Status::kWouldBlock;
    }
    void endTrack(int) override {}
    IoCounts io() const override { return mSource ? mSource->counts() : IoCounts(); }

private:
    enum class Mode { kOpen, kAll, kFirstFrame, kCues };
    struct Cue {
        uint64_t time;
        uint64_t clusterPosition;
    };

    bool loadCues() {
        mCuesLoaded = true;
        mReader->seekTo(mSegmentData + (uint64_t)mCuesPosition);
        mParser->DidSeek();
        mMode = Mode::kCues;
        mPaused = false;
        mParser->Feed(this, mReader.get());  // the Cues, then whatever follows them
        for (auto &entry : mTrackCues)
            std::sort(entry.second.begin(), entry.second.end(),
                      [](const Cue &a, const Cue &b) { return a.time < b.time; });
        std::sort(mAnyCues.begin(), mAnyCues.end(), [](const Cue &a, const Cue &b) { return a.time < b.time; });
        return !mAnyCues.empty();
    }

    webm::Status ok() { return webm::Status(webm::Status::kOkCompleted); }
    webm::Status pause() {
        mPaused = true;
        return webm::Status(webm::Status::kWouldBlock);
    }

    webm::Status OnElementBegin(const webm::ElementMetadata &metadata, webm::Action *action) override {
        *action = webm::Action::kRead;
        // Cues are read only when seeking needs them; the Clusters only
        // when frames are wanted.
        if (metadata.id == webm::Id::kCues && mMode != Mode::kCues) *action = webm::Action::kSkip;
        if (metadata.id == webm::Id::kCluster && mMode == Mode::kCues) *action = webm::Action::kSkip;
        return ok();
    }
    webm::Status OnSegmentBegin(const webm::ElementMetadata &metadata, webm::Action *action) override {
        *action = webm::Action::kRead;
        mSegmentData = metadata.position + metadata.header_size;
        return ok();
    }
    webm::Status OnSeek(const webm::ElementMetadata &, const webm::Seek &seek) override {
        if (seek.id.value() == webm::Id::kCues && seek.position.is_present())
            mCuesPosition = (int64_t)seek.position.value();
        return ok();
    }
    webm::Status OnInfo(const webm::ElementMetadata &, const webm::Info &info) override {
        mTimecodeScale = info.timecode_scale.value();
        return ok();
    }
    webm::Status OnTrackEntry(const webm::ElementMetadata &, const webm::TrackEntry &entry) override {
        mTrackCount++;
        mTrackNumbers.push_back(entry.track_number.value());
        return ok();
    }
    webm::Status OnClusterBegin(const webm::ElementMetadata &, const webm::Cluster &, webm::Action *action) override {
        *action = webm::Action::kRead;
        if (mMode == Mode::kOpen) return pause();
        return ok();
    }
    webm::Status blockBegin(uint64_t track, webm::Action *action) {
        mCurrentTrack = track;
        *action = webm::Action::kRead;
        if (mMode == Mode::kFirstFrame && mWantTrack != 0 && track != mWantTrack) *action = webm::Action::kSkip;
        return ok();
    }
    webm::Status OnSimpleBlockBegin(const webm::ElementMetadata &, const webm::SimpleBlock &block,
                                    webm::Action *action) override {
        return blockBegin(block.track_number, action);
    }
    webm::Status OnBlockBegin(const webm::ElementMetadata &, const webm::Block &block, webm::Action *action) override {
        return blockBegin(block.track_number, action);
    }
    webm::Status OnFrame(const webm::FrameMetadata &metadata, webm::Reader *reader, std::uint64_t *remaining) override {
        // Resumed after the pause that followed this frame (or an empty
        // frame, which is not counted).
        if (*remaining == 0) return ok();
        if (mSink == nullptr) return webm::Callback::OnFrame(metadata, reader, remaining);
        const size_t total = (size_t)*remaining;
        uint8_t *out = mSink->room(total);
        size_t done = 0;
        while (*remaining > 0) {
            std::uint64_t got = 0;
            const webm::Status s = reader->Read((size_t)*remaining, out + done, &got);
            done += (size_t)got;
            *remaining -= got;
            if (s.code != webm::Status::kOkCompleted && s.code != webm::Status::kOkPartial) return s;
        }
        mSink->landed(total);
        if (mMode == Mode::kFirstFrame) return pause();
        return ok();
    }
    webm::Status OnCuePoint(const webm::ElementMetadata &, const webm::CuePoint &point) override {
        const uint64_t time = point.time.value();
        for (const auto &e : point.cue_track_positions) {
            const webm::CueTrackPositions &p = e.value();
            const Cue cue{time, p.cluster_position.value()};
            mTrackCues[p.track.value()].push_back(cue);
            mAnyCues.push_back(cue);
        }
        return ok();
    }

    std::unique_ptr<CountingSource> mSource;
    std::unique_ptr<BufferedReader> mReader;
    std::unique_ptr<webm::WebmParser> mParser;
    Mode mMode = Mode::kOpen;
    bool mPaused = false;
    Sink *mSink = nullptr;
    int mTrackCount = 0;
    std::vector<uint64_t> mTrackNumbers;
    uint64_t mCurrentTrack = 0;
    uint64_t mWantTrack = 0;
    uint64_t mSegmentData = 0;
    uint64_t mTimecodeScale = 1000000;
    int64_t mCuesPosition = -1;
    bool mCuesLoaded = false;
    std::map<uint64_t, std::vector<Cue>> mTrackCues;
    std::vector<Cue> mAnyCues;
};

}  // namespace

const char *kindName(Kind k) {
    switch (k) {
        case Kind::kRaw: return "raw";
        case Kind::kMapped: return "mapped";
        case Kind::kRawSource: return "raw-source";
        case Kind::kCore: return "core";
        case Kind::kCoreDirect: return "core-direct";
        case Kind::kPlugin: return "plugin";
        case Kind::kLavf: return "lavf";
        case Kind::kWebm: return "libwebm";
        case Kind::kMkvparser: return "mkvparser";
    }
    return "?";
}

const std::vector<Kind> &allKinds() {
    static const std::vector<Kind> kinds = {Kind::kRaw,    Kind::kMapped, Kind::kRawSource, Kind::kCore, Kind::kCoreDirect,
                                            Kind::kPlugin, Kind::kLavf,   Kind::kWebm,      Kind::kMkvparser};
    return kinds;
}

bool kindFromName(const std::string &name, Kind *out) {
    for (Kind k : allKinds()) {
        if (name == kindName(k)) {
            *out = k;
            return true;
        }
    }
    return false;
}

std::unique_ptr<Reader> makeReader(Kind kind, const std::vector<uint32_t> &maxInput) {
    switch (kind) {
        case Kind::kRaw: return std::unique_ptr<Reader>(new RawReader(RawWay::kPread));
        case Kind::kMapped: return std::unique_ptr<Reader>(new RawReader(RawWay::kMapped));
        case Kind::kRawSource: return std::unique_ptr<Reader>(new RawReader(RawWay::kSource));
        case Kind::kCore: return std::unique_ptr<Reader>(new CoreReader(true, maxInput));
        case Kind::kCoreDirect: return std::unique_ptr<Reader>(new CoreReader(false, maxInput));
        case Kind::kPlugin: return std::unique_ptr<Reader>(new PluginReader());
        case Kind::kLavf: return std::unique_ptr<Reader>(new LavfReader());
        case Kind::kWebm: return std::unique_ptr<Reader>(new WebmReader());
        case Kind::kMkvparser: return makeMkvparserReader();
    }
    return nullptr;
}

bool fileFacts(const std::string &path, std::vector<uint32_t> *maxInput, int64_t *durationUs) {
    {
        // Gone before the core opens: each source maps the file, and a child
        // that measures peak memory must hold one mapping at a time.
        PluginReader plugin;
        std::string error;
        if (!plugin.open(path, &error)) return false;
        maxInput->clear();
        for (int t = 0; t < plugin.trackCount(); ++t) maxInput->push_back((uint32_t)plugin.maxInput(t));
    }

    CountingSource source(path);
    android::DataSourceHelper helper(source.wrap());
    QCMN_MFAL mfal;
    if (qcmn_mfal_init(&mfal, &helper) != 0) return false;
    const uint32_t params = QMKVD_OPEN_NO_DTS;
    qmkvd_format format;
    int32_t err = 0;
    qmkvd *inst = qmkvd_create(&mfal, &params, &format, &err);
    if (inst != nullptr) {
        *durationUs = format.duration / 10;
        qmkvd_delete(inst);
    }
    qcmn_mfal_deinit(&mfal);
    return inst != nullptr;
}

}  // namespace qmkvbench
