// The fuzzers' element-aware mutator: its tree writes back every input
// byte for byte, and its changes are structural, bounded and deterministic.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "fuzz/ebml_mutator.h"
#include "tests/support/ebml_writer.h"

using qmkv_test::Bytes;
using qmkv_test::cat;
using qmkv_test::ebml_id;
using qmkv_test::ebml_unknown_size;
using qmkv_test::el;
using qmkv_test::el_header;
using qmkv_test::str_el;
using qmkv_test::uint_el;

namespace {

const uint32_t kSegment = 0x18538067, kCluster = 0x1F43B675, kTracks = 0x1654AE6B, kTrackEntry = 0xAE,
               kSimpleBlock = 0xA3, kTags = 0x1254C367;

Bytes block(uint8_t flags) { return el(kSimpleBlock, Bytes{0x81, 0x00, 0x00, flags, 1, 2, 3, 4, 5, 6}); }

Bytes file() {
    return cat({el(0x1A45DFA3, {str_el(0x4282, "matroska")}),
                el(kSegment, {el(kTracks, {el(kTrackEntry, {uint_el(0xD7, 1), str_el(0x86, "V_VP8")})}),
                              el(kCluster, {uint_el(0xE7, 0), block(0x80), block(0x86)}),
                              el(kCluster, {uint_el(0xE7, 10), block(0x00)})})});
}

// Flips the first byte: enough to see that the byte mutation was used.
size_t flipFirst(uint8_t *data, size_t size, size_t) {
    if (size > 0) data[0] ^= 0xFF;
    return size;
}

Bytes roundTrip(const Bytes &in) { return qmkv_fuzz::serializeEbml(qmkv_fuzz::parseEbml(in.data(), in.size())); }

Bytes mutated(const Bytes &in, size_t maxSize, unsigned seed) {
    Bytes out = in;
    out.resize(std::max(maxSize, in.size()));
    out.resize(qmkv_fuzz::mutateEbml(out.data(), in.size(), maxSize, seed, flipFirst));
    return out;
}

struct Layout {
    const char *name;
    Bytes bytes;
};

class EbmlTreeRoundTrip : public testing::TestWithParam<Layout> {};

TEST_P(EbmlTreeRoundTrip, WritesBackEveryByte) { EXPECT_EQ(GetParam().bytes, roundTrip(GetParam().bytes)); }

INSTANTIATE_TEST_SUITE_P(
    Layouts, EbmlTreeRoundTrip,
    testing::Values(
        Layout{"wellFormed", file()},
        // Sizes in longer forms than needed stay as written.
        Layout{"longSizeForms", el(kSegment, el(kCluster, uint_el(0xE7, 5), 8), 8)},
        // An unknown-size Cluster ends where the next one starts.
        Layout{"unknownSizes", cat({ebml_id(kSegment), ebml_unknown_size(8), ebml_id(kCluster),
                                    ebml_unknown_size(1), uint_el(0xE7, 1), block(0x80),
                                    el(kCluster, {uint_el(0xE7, 2)})})},
        // A size past the end of the file, then nothing.
        Layout{"cutOff", cat({el_header(kSegment, 500), el_header(kCluster, 400), uint_el(0xE7, 1)})},
        // Bytes that are no element, inside a master and at the end.
        Layout{"garbage", cat({el(kTracks, Bytes{0x00, 0x00, 0x12}), Bytes{0x00, 0xFF, 0x01}})},
        Layout{"empty", Bytes{}}),
    [](const testing::TestParamInfo<Layout> &info) { return std::string(info.param.name); });

TEST(EbmlMutator, ChangesStayWithinTheRoomAndWriteBackThemselves) {
    const Bytes in = file();
    for (size_t room : {in.size(), in.size() + 64}) {
        for (unsigned seed = 0; seed < 400; ++seed) {
            const Bytes out = mutated(in, room, seed);
            ASSERT_LE(out.size(), room) << "seed " << seed;
            ASSERT_EQ(out, roundTrip(out)) << "seed " << seed;
        }
    }
}

TEST(EbmlMutator, TheSameSeedGivesTheSameChange) {
    for (unsigned seed : {1u, 7u, 1234u}) EXPECT_EQ(mutated(file(), 4096, seed), mutated(file(), 4096, seed));
}

// Across seeds the changes reach what the fuzz targets need: Clusters
// dropped or repeated, lacing kinds, unknown and 8-byte sizes, and
// libFuzzer's own byte mutation.
TEST(EbmlMutator, ChangesReachEveryKind) {
    const Bytes in = file();
    std::set<size_t> clusterCounts;
    bool lacingChanged = false, unknownSize = false, eightByteSize = false, byteMutation = false;
    for (unsigned seed = 0; seed < 2000; ++seed) {
        const Bytes out = mutated(in, 4096, seed);
        byteMutation = byteMutation || (out.size() == in.size() && out[0] == (in[0] ^ 0xFF));
        size_t clusters = 0;
        for (size_t i = 0; i + 4 < out.size(); ++i) {
            clusters += out[i] == 0x1F && out[i + 1] == 0x43 && out[i + 2] == 0xB6 && out[i + 3] == 0x75;
            unknownSize = unknownSize || (out[i] == 0x1F && out[i + 3] == 0x75 && out[i + 4] == 0xFF);
            eightByteSize = eightByteSize || (out[i] == 0x75 && out[i + 1] == 0x01);
            // The second block of the first Cluster: its flags byte.
            if (out[i] == 0xA3 && i + 5 < out.size() && out[i + 2] == 0x81 && (out[i + 5] & 6) != (0x86 & 6) &&
                (out[i + 5] & 6) != 0)
                lacingChanged = true;
        }
        clusterCounts.insert(clusters);
    }
    EXPECT_GE(clusterCounts.size(), 3u);  // fewer, as many and more than the two there are
    EXPECT_TRUE(lacingChanged);
    EXPECT_TRUE(unknownSize);
    EXPECT_TRUE(eightByteSize);
    EXPECT_TRUE(byteMutation);
}

TEST(EbmlMutator, CrossOverSplicesAnElementOfTheOtherInput) {
    const Bytes first = file();
    const Bytes second = el(kSegment, {el(kTags, {str_el(0x45A3, "DONOR")})});
    bool spliced = false;
    for (unsigned seed = 0; seed < 200; ++seed) {
        Bytes out(first.size() + second.size());
        out.resize(qmkv_fuzz::crossOverEbml(first.data(), first.size(), second.data(), second.size(), out.data(),
                                            out.size(), seed));
        ASSERT_LE(out.size(), first.size() + second.size());
        spliced = spliced || std::string(out.begin(), out.end()).find("DONOR") != std::string::npos;
    }
    EXPECT_TRUE(spliced);
    // No room for the first input: nothing.
    uint8_t small[4];
    EXPECT_EQ(0u, qmkv_fuzz::crossOverEbml(first.data(), first.size(), second.data(), second.size(), small,
                                           sizeof(small), 3));
}

}  // namespace
