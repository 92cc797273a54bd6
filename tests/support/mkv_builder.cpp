#include "tests/support/mkv_builder.h"

namespace qmkv_test {

Bytes ebmlHeader(const std::string &docType) {
    return el(mkv::EBML, {uint_el(0x4286, 1), uint_el(0x42F7, 1), uint_el(0x42F2, 4), uint_el(0x42F3, 8),
                          str_el(mkv::DocType, docType), uint_el(0x4287, 4), uint_el(0x4285, 2)});
}

Bytes segmentInfo(double durationTicks, std::initializer_list<Bytes> extra) {
    Bytes children = cat({uint_el(mkv::TimecodeScale, 1000000), f64_el(mkv::Duration, durationTicks)});
    for (const Bytes &b : extra) children.insert(children.end(), b.begin(), b.end());
    return el(mkv::Info, children);
}

Bytes trackEntry(uint32_t number, uint8_t type, const std::string &codecId, std::initializer_list<Bytes> extra) {
    Bytes children =
        cat({uint_el(mkv::TrackNumber, number), uint_el(mkv::TrackUID, number), uint_el(mkv::TrackType, type),
             str_el(mkv::CodecID, codecId)});
    for (const Bytes &b : extra) children.insert(children.end(), b.begin(), b.end());
    return el(mkv::TrackEntry, children);
}

Bytes tracks(std::initializer_list<Bytes> entries) { return el(mkv::Tracks, cat(entries)); }

Bytes cluster(uint64_t timecode) {
    // SimpleBlock: track 1, relative time 0, key flag, 4 payload bytes.
    return el(mkv::Cluster, {uint_el(mkv::Timecode, timecode), el(mkv::SimpleBlock, Bytes{0x81, 0, 0, 0x80, 1, 2, 3, 4})});
}

Bytes blockHeader(uint32_t track, int16_t relTimecode, uint8_t flags) {
    Bytes h = ebml_size(track);
    h.push_back((uint8_t)((uint16_t)relTimecode >> 8));
    h.push_back((uint8_t)relTimecode);
    h.push_back(flags);
    return h;
}

Bytes simpleBlock(uint32_t track, int16_t relTimecode, uint8_t flags, const Bytes &payload) {
    return el(mkv::SimpleBlock, cat({blockHeader(track, relTimecode, flags), payload}));
}

namespace {
Bytes framesOf(const std::vector<Bytes> &frames) {
    Bytes out;
    for (const Bytes &f : frames) out.insert(out.end(), f.begin(), f.end());
    return out;
}
}  // namespace

Bytes xiphLace(const std::vector<Bytes> &frames) {
    Bytes out{(uint8_t)(frames.size() - 1)};
    for (size_t i = 0; i + 1 < frames.size(); ++i) {
        size_t n = frames[i].size();
        for (; n >= 255; n -= 255) out.push_back(255);
        out.push_back((uint8_t)n);
    }
    return cat({out, framesOf(frames)});
}

Bytes ebmlLace(const std::vector<Bytes> &frames) {
    Bytes out{(uint8_t)(frames.size() - 1)};
    if (frames.size() > 1) {
        const Bytes first = ebml_size(frames[0].size());
        out.insert(out.end(), first.begin(), first.end());
    }
    for (size_t i = 1; i + 1 < frames.size(); ++i) {
        // Signed difference stored with a bias, in the shortest length that fits.
        const int64_t diff = (int64_t)frames[i].size() - (int64_t)frames[i - 1].size();
        int len = 1;
        while (len < 4 && (diff < -((1ll << (7 * len - 1)) - 1) || diff > ((1ll << (7 * len - 1)) - 1))) ++len;
        const Bytes d = ebml_size((uint64_t)(diff + ((1ll << (7 * len - 1)) - 1)), len);
        out.insert(out.end(), d.begin(), d.end());
    }
    return cat({out, framesOf(frames)});
}

Bytes encodings(std::initializer_list<Bytes> children) {
    return el(mkv::ContentEncodings, {el(mkv::ContentEncoding, children)});
}

Bytes compression(uint64_t algo, const Bytes &settings) {
    const Bytes a = uint_el(mkv::ContentCompAlgo, algo);
    return el(mkv::ContentCompression, settings.empty() ? a : cat({a, bin_el(mkv::ContentCompSettings, settings)}));
}

Bytes encryption() { return el(mkv::ContentEncryption, Bytes{0x47, 0xE1, 0x81, 5}); }

Bytes clusterOf(uint64_t timecode, std::initializer_list<Bytes> blocks) {
    return el(mkv::Cluster, cat({uint_el(mkv::Timecode, timecode), cat(blocks)}));
}

Bytes file(std::initializer_list<Bytes> children) { return cat({ebmlHeader(), el(mkv::Segment, cat(children))}); }

Bytes minimalFile() {
    return file({segmentInfo(), tracks({trackEntry(1, 1, "V_VP8", {el(mkv::Video, {uint_el(mkv::PixelWidth, 64),
                                                                            uint_el(mkv::PixelHeight, 48)})})}),
                 cluster()});
}

CoreFile::CoreFile(Bytes bytes, uint32_t openParams) : file(std::move(bytes)) {
    inst = qmkvd_create(&file.mfal, &openParams, &format, &error);
}

CoreFile::~CoreFile() { qmkvd_delete(inst); }

Bytes nalFrame(std::initializer_list<Bytes> units) {
    Bytes out;
    for (const Bytes &u : units) {
        const uint32_t n = (uint32_t)u.size();
        out.insert(out.end(), {(uint8_t)(n >> 24), (uint8_t)(n >> 16), (uint8_t)(n >> 8), (uint8_t)n});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

Bytes startCoded(std::initializer_list<Bytes> units) {
    Bytes out;
    for (const Bytes &u : units) {
        out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

}  // namespace qmkv_test
