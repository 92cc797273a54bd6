// Every track of a file read at once, one thread per track, through the
// plug-in, with seeks: the same samples as read one track at a time. Run
// under ThreadSanitizer too.
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/corpus.h"
#include "tests/support/plugin_run.h"

namespace {

struct SampleSummary {
    int64_t timeUs;
    size_t size;
    uint32_t checksum;
    bool operator==(const SampleSummary &o) const {
        return timeUs == o.timeUs && size == o.size && checksum == o.checksum;
    }
};

// Reads the track to its end, seeks to a third of the duration (previous
// sync) and reads on, then seeks forward to two thirds and reads on.
std::vector<SampleSummary> readTrack(qmkvhost::Track *track, int64_t durationUs) {
    std::vector<SampleSummary> out;
    const uint32_t seek = android::CMediaTrackReadOptions::SEEK;
    const uint32_t passes[3] = {0, seek | android::CMediaTrackReadOptions::SEEK_PREVIOUS_SYNC,
                                seek | android::CMediaTrackReadOptions::SEEK_NEXT_SYNC};
    const int64_t targets[3] = {0, durationUs / 3, durationUs * 2 / 3};
    for (int p = 0; p < 3; ++p) {
        uint32_t options = passes[p];
        for (int n = 0; n < 100000; ++n) {
            qmkvhost::Sample s;
            if (track->read(&s, options, targets[p]) != AMEDIA_OK) break;
            options = 0;
            const int64_t t = qmkv_test::i64(s->meta_data(), AMEDIAFORMAT_KEY_TIME_US);
            const uint8_t *d = static_cast<const uint8_t *>(s->data()) + s->range_offset();
            uint32_t sum = 0;
            for (size_t i = 0; i < s->range_length(); ++i) sum = sum * 31 + d[i];
            out.push_back({t, s->range_length(), sum});
        }
    }
    return out;
}

class Concurrency : public ::testing::TestWithParam<std::string> {};

TEST_P(Concurrency, TracksReadInParallelMatchTracksReadAlone) {
    QMKV_REQUIRE_CORPUS();
    std::unique_ptr<qmkvhost::Plugin> plugin = qmkv_test::loadPlugin();
    ASSERT_NE(nullptr, plugin);
    qmkvhost::FileSource file(qmkv_test::corpusFile(GetParam()).c_str());

    std::vector<std::vector<SampleSummary>> alone, together;
    for (bool parallel : {false, true}) {
        std::unique_ptr<qmkvhost::Extractor> ex = plugin->open(file.wrap());
        ASSERT_NE(nullptr, ex);
        const size_t n = ex->countTracks();
        ASSERT_GE(n, 2u);
        AMediaFormat *meta = AMediaFormat_new();
        ex->getTrackMetaData(meta, 0, 0);
        const int64_t durationUs = qmkv_test::i64(meta, AMEDIAFORMAT_KEY_DURATION);
        AMediaFormat_delete(meta);
        std::vector<std::unique_ptr<qmkvhost::Track>> tracks;
        for (size_t i = 0; i < n; ++i) {
            tracks.push_back(ex->getTrack(i));
            ASSERT_EQ(AMEDIA_OK, tracks.back()->start());
        }
        std::vector<std::vector<SampleSummary>> &results = parallel ? together : alone;
        results.resize(n);
        if (parallel) {
            std::vector<std::thread> threads;
            for (size_t i = 0; i < n; ++i)
                threads.emplace_back([&, i] { results[i] = readTrack(tracks[i].get(), durationUs); });
            for (std::thread &t : threads) t.join();
        } else {
            for (size_t i = 0; i < n; ++i) results[i] = readTrack(tracks[i].get(), durationUs);
        }
        for (auto &t : tracks) t->stop();
    }
    ASSERT_EQ(alone.size(), together.size());
    for (size_t i = 0; i < alone.size(); ++i) {
        EXPECT_GT(alone[i].size(), 10u);
        EXPECT_TRUE(alone[i] == together[i]) << "track " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, Concurrency,
                         ::testing::Values("h264_aac_30s.mkv", "mkvmerge_nocues.mkv", "h264_srt.mkv"),
                         qmkv_test::testName);

}  // namespace
