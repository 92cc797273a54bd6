// Damaged real files: truncated at many offsets and with bytes flipped at
// many positions. Nothing crashes or hangs, and every frame whose block lies
// wholly before the first damaged byte is delivered exactly as from the
// undamaged file.
#include <gtest/gtest.h>

#include <random>

#include "demux/qmkvds.h"
#include "tests/support/corpus.h"
#include "tests/support/file_core.h"
#include "tests/support/memory_file.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/plugin_run.h"

using namespace qmkv_test;

namespace {

using Frame = CoreFrame;

// Every track's frames.
std::vector<std::vector<Frame>> readAll(const Bytes &bytes, int32_t *openError) {
    std::vector<std::vector<Frame>> tracks;
    CoreFile f(bytes);
    *openError = f.error;
    for (int t = 0; f.inst != nullptr && t < f.format.track_count; ++t) tracks.push_back(readCoreFrames(f.inst, t));
    return tracks;
}

// The damaged file's frames must start with every intact frame whose
// block ends at or before `damage`.
void expectIntactPrefix(const std::vector<std::vector<Frame>> &good, const std::vector<std::vector<Frame>> &bad,
                        int64_t damage, int32_t badOpenError, const std::string &what) {
    for (size_t t = 0; t < good.size(); ++t) {
        size_t must = 0;
        while (must < good[t].size() && good[t][must].blockEnd <= damage) ++must;
        if (must == 0) continue;
        ASSERT_EQ(0, badOpenError) << what << ": the file no longer opens though frames lie before the damage";
        ASSERT_LT(t, bad.size()) << what;
        ASSERT_GE(bad[t].size(), must) << what << " track " << t;
        for (size_t i = 0; i < must; ++i) {
            ASSERT_EQ(good[t][i].pts, bad[t][i].pts) << what << " track " << t << " frame " << i;
            ASSERT_EQ(good[t][i].key, bad[t][i].key) << what << " track " << t << " frame " << i;
            ASSERT_TRUE(good[t][i].data == bad[t][i].data) << what << " track " << t << " frame " << i;
        }
    }
}

// Offsets to damage: densely through the headers and the first Cluster,
// then spread over the rest of the file.
std::vector<size_t> damageOffsets(size_t size, size_t dense, size_t spread) {
    std::vector<size_t> out;
    for (size_t i = 0; i < dense && i * 3 < size; ++i) out.push_back(i * 3);
    for (size_t i = 1; i <= spread; ++i) out.push_back(size * i / (spread + 1));
    return out;
}

class Damage : public ::testing::TestWithParam<std::string> {};

TEST_P(Damage, CutOrFlippedBytesKeepEveryFrameBeforeThem) {
    QMKV_REQUIRE_CORPUS();
    const Bytes bytes = readBytes(corpusFile(GetParam()));
    ASSERT_GT(bytes.size(), 1000u);
    int32_t err = 0;
    const auto good = readAll(bytes, &err);
    ASSERT_EQ(0, err);
    std::mt19937 rng(1234);
    const std::vector<size_t> offsets = damageOffsets(bytes.size(), 300, 200);
    ASSERT_GE(offsets.size(), 200u);
    for (const bool cut : {true, false}) {
        for (size_t pos : offsets) {
            Bytes damaged = bytes;
            if (cut) {
                damaged.resize(pos);
            } else {
                damaged[pos] ^= (uint8_t)(1u << (rng() % 8)) | (rng() % 2 ? 0x80 : 0);
            }
            int32_t badErr = 0;
            const auto bad = readAll(damaged, &badErr);
            expectIntactPrefix(good, bad, (int64_t)pos, badErr, (cut ? "cut at " : "flip at ") + std::to_string(pos));
        }
    }
}

TEST_P(Damage, ThePlugInSurvivesTheSameDamage) {
    QMKV_REQUIRE_CORPUS();
    const Bytes bytes = readBytes(corpusFile(GetParam()));
    std::unique_ptr<qmkvhost::Plugin> plugin = loadPlugin();
    ASSERT_NE(nullptr, plugin);
    std::mt19937 rng(99);
    int variants = 0;
    for (size_t pos : damageOffsets(bytes.size(), 60, 60)) {
        Bytes damaged = bytes;
        if (variants % 2) {
            damaged.resize(pos + 128);
        } else {
            damaged[pos] ^= (uint8_t)(rng() | 1);
        }
        MemorySource src(damaged);
        std::unique_ptr<qmkvhost::Extractor> ex = plugin->open(src.source());
        ++variants;
        if (ex == nullptr) continue;
        for (size_t t = 0; t < ex->countTracks(); ++t) {
            std::unique_ptr<qmkvhost::Track> track = ex->getTrack(t);
            if (track == nullptr || track->start() != AMEDIA_OK) continue;
            qmkvhost::Sample s;
            // A seek into the damaged file, then read on to its end.
            media_status_t st = track->read(&s, android::CMediaTrackReadOptions::SEEK, 1000000);
            for (int n = 0; st == AMEDIA_OK && n < 200000; ++n) st = track->read(&s);
            EXPECT_NE(AMEDIA_OK, st);
            track->stop();
        }
    }
    RecordProperty("variants", variants);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Damage,
                         ::testing::Values("h264_aac.mkv", "h264_aac_cues_front.mkv", "mkvmerge_h264_aac.mkv",
                                           "laced_vorbis.mka", "hdrstrip_mp3.mkv", "h264_srt.mkv",
                                           "mkvmerge_blockgroups.mkv"),
                         testName);

}  // namespace
