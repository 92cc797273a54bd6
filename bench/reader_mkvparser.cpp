// libwebm's mkvparser, the parser the platform's own Matroska extractor is
// built on, read as that extractor reads: an IMkvReader whose every Read is
// one read of the data source (no buffering of its own), the headers parsed
// up to the first Cluster at open, Clusters loaded one by one as the blocks
// are walked, and each frame read with Block::Frame::Read into the caller's
// buffer. Seeking uses the Cues as the platform does (loaded cue point by
// cue point up to the target, Cues::Find, FindOrPreloadCluster); a file
// without Cues cannot be seeked.
#include "bench_readers.h"

#include <mkvparser/mkvparser.h>

namespace qmkvbench {

namespace {

class CountedMkvReader : public mkvparser::IMkvReader {
public:
    explicit CountedMkvReader(CountingSource *source) : mSource(source) {}
    virtual ~CountedMkvReader() {}
    int Read(long long pos, long len, unsigned char *buf) override {
        if (len == 0) return 0;
        return mSource->readAt(pos, buf, (size_t)len) == (ssize_t)len ? 0 : -1;
    }
    int Length(long long *total, long long *available) override {
        *total = mSource->size();
        *available = *total;
        return 0;
    }

private:
    CountingSource *mSource;
};

class MkvparserReader : public Reader {
public:
    ~MkvparserReader() override { delete mSegment; }
    const char *name() const override { return "mkvparser"; }
    bool open(const std::string &path, std::string *error) override {
        mSource.reset(new CountingSource(path));
        if (!mSource->ok()) {
            *error = "cannot open " + path;
            return false;
        }
        mReader.reset(new CountedMkvReader(mSource.get()));
        mkvparser::EBMLHeader header;
        long long pos = 0;
        if (header.Parse(mReader.get(), pos) < 0 ||
            mkvparser::Segment::CreateInstance(mReader.get(), pos, mSegment) != 0 || mSegment->ParseHeaders() != 0) {
            *error = "mkvparser cannot parse the headers";
            return false;
        }
        long len = 0;
        if (mSegment->LoadCluster(pos, len) < 0 || mSegment->GetTracks() == nullptr) {
            *error = "mkvparser cannot load the first Cluster";
            return false;
        }
        return true;
    }
    int trackCount() const override { return (int)mSegment->GetTracks()->GetTracksCount(); }
    bool readAll(Sink &sink, std::string *error) override {
        for (const mkvparser::Cluster *c = mSegment->GetFirst(); c != nullptr && !c->EOS(); c = next(c)) {
            const mkvparser::BlockEntry *entry = nullptr;
            if (c->GetFirst(entry) < 0) {
                *error = "Cluster::GetFirst failed";
                return false;
            }
            while (entry != nullptr && !entry->EOS()) {
                if (!readBlock(entry->GetBlock(), sink, error)) return false;
                if (c->GetNext(entry, entry) < 0) {
                    *error = "Cluster::GetNext failed";
                    return false;
                }
            }
        }
        return true;
    }
    bool firstFrame(Sink &sink) override { return readFrom(mSegment->GetFirst(), 0, sink); }
    bool canSeek() const override { return findCues() != nullptr; }
    bool beginTrack(int) override { return canSeek(); }
    bool seekRead(int track, int64_t timeUs, Sink &sink) override {
        const mkvparser::Cues *cues = findCues();
        const mkvparser::Tracks *tracks = mSegment->GetTracks();
        const mkvparser::Track *t = tracks->GetTrackByIndex((unsigned long)track);
        if (cues == nullptr || t == nullptr) return false;
        // As the platform does: the cue of the video track (the key frame
        // every track resumes after), any track's when there is no video.
        const mkvparser::Track *cueTrack = t;
        for (unsigned long i = 0; i < tracks->GetTracksCount(); ++i) {
            const mkvparser::Track *v = tracks->GetTrackByIndex(i);
            if (v != nullptr && v->GetType() == mkvparser::Track::kVideo) {
                cueTrack = v;
                break;
            }
        }
        const long long ns = timeUs * 1000;
        while (!cues->DoneParsing()) {
            cues->LoadCuePoint();
            const mkvparser::CuePoint *last = cues->GetLast();
            if (last != nullptr && last->GetTime(mSegment) >= ns) break;
        }
        const mkvparser::CuePoint *point = nullptr;
        const mkvparser::CuePoint::TrackPosition *position = nullptr;
        if (!cues->Find(ns, cueTrack, point, position) || position == nullptr) return false;
        return readFrom(mSegment->FindOrPreloadCluster(position->m_pos), t->GetNumber(), sink);
    }
    void endTrack(int) override {}
    IoCounts io() const override { return mSource ? mSource->counts() : IoCounts(); }

private:
    // The Cues, located through the SeekHead the first time (the headers
    // parsed at open stop before them when they follow the Clusters).
    const mkvparser::Cues *findCues() const {
        if (mSegment->GetCues() != nullptr) return mSegment->GetCues();
        const mkvparser::SeekHead *head = mSegment->GetSeekHead();
        for (int i = 0; head != nullptr && i < head->GetCount(); ++i) {
            const mkvparser::SeekHead::Entry *e = head->GetEntry(i);
            if (e->id != 0x1C53BB6B) continue;  // the Cues
            long long pos = 0;
            long len = 0;
            mSegment->ParseCues(e->pos, pos, len);
            break;
        }
        return mSegment->GetCues();
    }
    // The Cluster after `c`, loaded from the file when it is not yet (as the
    // platform's block iterator moves on); null at the end.
    const mkvparser::Cluster *next(const mkvparser::Cluster *c) {
        const mkvparser::Cluster *n = nullptr;
        long long pos = 0;
        long len = 0;
        return mSegment->ParseNext(c, n, pos, len) == 0 ? n : nullptr;
    }
    // Every frame of the block into the caller's buffer. False on a read
    // error.
    bool readBlock(const mkvparser::Block *block, Sink &sink, std::string *error) {
        for (int i = 0; i < block->GetFrameCount(); ++i) {
            const mkvparser::Block::Frame &frame = block->GetFrame(i);
            if (frame.Read(mReader.get(), sink.room((size_t)frame.len)) != 0) {
                *error = "Frame::Read failed";
                return false;
            }
            sink.landed((size_t)frame.len);
        }
        return true;
    }
    // The first frame of track `number` (any when 0) from Cluster `c` on.
    bool readFrom(const mkvparser::Cluster *c, long long number, Sink &sink) {
        for (; c != nullptr && !c->EOS(); c = next(c)) {
            const mkvparser::BlockEntry *entry = nullptr;
            if (c->GetFirst(entry) < 0) return false;
            while (entry != nullptr && !entry->EOS()) {
                const mkvparser::Block *block = entry->GetBlock();
                if ((number == 0 || block->GetTrackNumber() == number) && block->GetFrameCount() > 0) {
                    const mkvparser::Block::Frame &frame = block->GetFrame(0);
                    if (frame.Read(mReader.get(), sink.room((size_t)frame.len)) != 0) return false;
                    sink.landed((size_t)frame.len);
                    return true;
                }
                if (c->GetNext(entry, entry) < 0) return false;
            }
        }
        return false;
    }

    std::unique_ptr<CountingSource> mSource;
    std::unique_ptr<CountedMkvReader> mReader;
    mkvparser::Segment *mSegment = nullptr;
};

}  // namespace

std::unique_ptr<Reader> makeMkvparserReader() { return std::unique_ptr<Reader>(new MkvparserReader()); }

}  // namespace qmkvbench
