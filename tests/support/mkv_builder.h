// Building blocks for crafted Matroska files, and the core opened over them.
#ifndef QMKV_TEST_MKV_BUILDER_H_
#define QMKV_TEST_MKV_BUILDER_H_

#include <memory>
#include <string>

#include "demux/qmkvd.h"
#include "tests/support/ebml_writer.h"
#include "tests/support/memory_file.h"

namespace qmkv_test {

namespace mkv {
enum : uint32_t {
    EBML = 0x1A45DFA3, DocType = 0x4282, Segment = 0x18538067, SeekHead = 0x114D9B74, Seek = 0x4DBB,
    SeekID = 0x53AB, SeekPosition = 0x53AC, Info = 0x1549A966, TimecodeScale = 0x2AD7B1, Duration = 0x4489,
    Title = 0x7BA9, DateUTC = 0x4461, MuxingApp = 0x4D80, Tracks = 0x1654AE6B, TrackEntry = 0xAE,
    TrackNumber = 0xD7, TrackUID = 0x73C5, TrackType = 0x83, CodecID = 0x86, CodecPrivate = 0x63A2,
    Language = 0x22B59C, Name = 0x536E, FlagDefault = 0x88, DefaultDuration = 0x23E383,
    TrackTimecodeScale = 0x23314F, Video = 0xE0, PixelWidth = 0xB0, PixelHeight = 0xBA, Colour = 0x55B0,
    MatrixCoefficients = 0x55B1, Range = 0x55B9, MaxCLL = 0x55BC, Mastering = 0x55D0, PrimaryRX = 0x55D1,
    PrimaryRY = 0x55D2, LuminanceMax = 0x55D9, LuminanceMin = 0x55DA, Audio = 0xE1,
    SamplingFrequency = 0xB5, OutputSamplingFrequency = 0x78B5, Channels = 0x9F, BitDepth = 0x6264,
    ContentEncodings = 0x6D80, ContentEncoding = 0x6240, ContentEncodingOrder = 0x5031,
    ContentCompression = 0x5034, ContentCompAlgo = 0x4254, ContentCompSettings = 0x4255,
    ContentEncryption = 0x5035, Cluster = 0x1F43B675, Timecode = 0xE7, SimpleBlock = 0xA3,
    Cues = 0x1C53BB6B, CuePoint = 0xBB, CueTime = 0xB3, CueTrackPositions = 0xB7, CueTrack = 0xF7,
    CueClusterPosition = 0xF1, Tags = 0x1254C367, Tag = 0x7373, Targets = 0x63C0, SimpleTag = 0x67C8,
    TagName = 0x45A3, TagString = 0x4487, Chapters = 0x1043A770, Attachments = 0x1941A469, Void = 0xEC,
};
}  // namespace mkv

Bytes ebmlHeader(const std::string &docType = "matroska");
// An Info with TimecodeScale 1 ms and an 8-byte Duration in ticks.
Bytes segmentInfo(double durationTicks = 1000.0, std::initializer_list<Bytes> extra = {});
// A TrackEntry with number, type and CodecID, plus any extra children.
Bytes trackEntry(uint32_t number, uint8_t type, const std::string &codecId, std::initializer_list<Bytes> extra = {});
Bytes tracks(std::initializer_list<Bytes> entries);
// A TrackEntry's ContentEncodings with one ContentEncoding of `children`;
// a ContentCompression by `algo` (3, header stripping: `settings` are the
// stripped bytes); a ContentEncryption.
Bytes encodings(std::initializer_list<Bytes> children);
Bytes compression(uint64_t algo, const Bytes &settings = {});
Bytes encryption();
// A small Cluster holding one key frame of track 1.
Bytes cluster(uint64_t timecode = 0);
// Block header: track number, 16-bit relative timecode, flags.
Bytes blockHeader(uint32_t track, int16_t relTimecode, uint8_t flags);
Bytes simpleBlock(uint32_t track, int16_t relTimecode, uint8_t flags, const Bytes &payload);
// Lace data (count byte, sizes, frames) for flags 0x02 Xiph, 0x06 EBML.
Bytes xiphLace(const std::vector<Bytes> &frames);
Bytes ebmlLace(const std::vector<Bytes> &frames);
// A Cluster with its Timecode and the given block elements.
Bytes clusterOf(uint64_t timecode, std::initializer_list<Bytes> blocks);
// EBML header + Segment of known size around `children`.
Bytes file(std::initializer_list<Bytes> children);

// AVC/HEVC payloads: units behind 4-byte length fields, and the start-code
// form the stream reader delivers them in.
Bytes nalFrame(std::initializer_list<Bytes> units);
Bytes startCoded(std::initializer_list<Bytes> units);
// The usual minimal well-formed file: Info, one video track, a Cluster.
Bytes minimalFile();

// The core opened over bytes in memory.
struct CoreFile {
    explicit CoreFile(Bytes bytes, uint32_t openParams = QMKVD_OPEN_NO_DTS);
    ~CoreFile();
    CoreFile(const CoreFile &) = delete;
    CoreFile &operator=(const CoreFile &) = delete;

    MemoryFile file;
    qmkvd_format format;
    int32_t error = 1;
    qmkvd *inst = nullptr;
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_MKV_BUILDER_H_
