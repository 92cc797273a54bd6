// MPEG-4 AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1) for AAC tracks: the
// object type with SBR/PS signalling, the sampling frequency and the
// channel count; an ADTS header in its place is read as well.
#include "qextractorcmn/qcmn_bitreader.h"
#include "qextractorcmn/qcmn_config_error.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

namespace {

constexpr uint32_t fcc(char a, char b, char c, char d) {
    return (uint32_t)(uint8_t)a | (uint32_t)(uint8_t)b << 8 | (uint32_t)(uint8_t)c << 16 | (uint32_t)(uint8_t)d << 24;
}

bool is_aac_tag(uint32_t tag) {
    return tag == 0 || tag == 0xFF || tag == fcc('m', 'p', '4', 'a') || tag == fcc('M', 'P', '4', 'A') ||
           tag == fcc('a', 'a', 'c', ' ');
}

const int32_t kFrequencies[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};

uint32_t object_type(BitReader &br) {
    const uint32_t t = br.bits(5);
    return t == 31 ? 32 + br.bits(6) : t;
}

// Index 15 escapes to an explicit 24-bit frequency; 13 and 14 are reserved.
bool frequency(BitReader &br, int32_t *hz) {
    const uint32_t index = br.bits(4);
    if (index == 15) {
        *hz = (int32_t)br.bits(24);
    } else if (index < 13) {
        *hz = kFrequencies[index];
    } else {
        return false;
    }
    return br.ok() && *hz > 0;
}

// Channels of a channelConfiguration; 0 means "from a program config
// element", -1 a reserved value.
int32_t channels_of_configuration(uint32_t c) {
    static const int32_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, -1, -1, -1, 7, 8, 24, 8, -1};
    return kChannels[c & 15];
}

// Object types the standard defines (0 is "null", the rest reserved).
bool is_defined_object_type(uint32_t aot) {
    return aot >= 1 && aot <= 46 && aot != 10 && aot != 11 && aot != 18 && aot != 31;
}

bool has_ga_specific_config(uint32_t aot) {
    switch (aot) {
        case 1: case 2: case 3: case 4: case 6: case 7:
        case 17: case 19: case 20: case 21: case 22: case 23:
            return true;
        default:
            return false;
    }
}

bool is_error_resilient(uint32_t aot) { return (aot >= 17 && aot <= 27) || aot == 39; }

// program_config_element(): counts the channels it lays out.
bool program_config_element(BitReader &br, int32_t *channels) {
    br.skip(4 + 2 + 4);  // element_instance_tag, object_type, sampling_frequency_index
    const uint32_t front = br.bits(4), side = br.bits(4), back = br.bits(4);
    const uint32_t lfe = br.bits(2), assoc = br.bits(3), cc = br.bits(4);
    if (br.bit()) br.skip(4);  // mono mixdown
    if (br.bit()) br.skip(4);  // stereo mixdown
    if (br.bit()) br.skip(3);  // matrix mixdown
    int32_t count = 0;
    for (uint32_t i = 0; i < front + side + back; ++i) {
        count += br.bit() ? 2 : 1;  // channel pair or single channel element
        br.skip(4);
    }
    count += (int32_t)lfe;
    br.skip(4 * lfe + 4 * assoc + 5 * cc);
    br.byte_align();
    br.skip(8 * (uint64_t)br.bits(8));  // comment field
    *channels = count;
    return br.ok();
}

bool ga_specific_config(BitReader &br, uint32_t aot, uint32_t channel_config, int32_t *channels,
                        int32_t *frame_length) {
    const uint32_t short_frames = br.bit();  // frameLengthFlag
    if (aot == 23) {
        *frame_length = short_frames ? 480 : 512;
    } else {
        *frame_length = short_frames ? 960 : 1024;
    }
    if (br.bit()) br.skip(14);  // dependsOnCoreCoder: coreCoderDelay
    const uint32_t extension = br.bit();
    if (channel_config == 0 && !program_config_element(br, channels)) return false;
    if (aot == 6 || aot == 20) br.skip(3);  // layerNr
    if (extension) {
        if (aot == 22) br.skip(5 + 11);  // numOfSubFrame, layer_length
        if (aot == 17 || aot == 19 || aot == 20 || aot == 23) br.skip(3);  // resilience flags
        br.skip(1);  // extensionFlag3
    }
    return br.ok();
}

int32_t parse_adts(const uint8_t *d, size_t n, qaud_config_out *out) {
    if (n < 7) return malformed("AAC ADTS header cut short");
    BitReader br(d, n);
    br.skip(12 + 1 + 2 + 1);  // syncword, ID, layer, protection_absent
    const uint32_t aot = br.bits(2) + 1;
    const uint32_t index = br.bits(4);
    br.skip(1);
    const uint32_t channel_config = br.bits(3);
    if (index >= 13) return malformed("AAC ADTS header: reserved sampling frequency index");
    out->profile = (int32_t)aot;
    out->object_type = (int32_t)aot;
    out->sample_rate = kFrequencies[index];
    out->channels = channels_of_configuration(channel_config);
    out->frame_length = 1024;
    return QAUD_CFG_OK;
}

int32_t parse_asc(const uint8_t *d, size_t n, qaud_config_out *out) {
    BitReader br(d, n);
    auto bad = [&br](const char *why) { return malformed(br.ok() ? why : "AAC AudioSpecificConfig cut short"); };
    uint32_t aot = object_type(br);
    int32_t rate = 0;
    if (!frequency(br, &rate)) return bad("AAC AudioSpecificConfig: reserved sampling frequency");
    const uint32_t channel_config = br.bits(4);
    if (!br.ok() || !is_defined_object_type(aot)) return bad("AAC AudioSpecificConfig: reserved audio object type");
    int32_t channels = channels_of_configuration(channel_config);
    if (channels < 0) return bad("AAC AudioSpecificConfig: reserved channel configuration");

    uint32_t ext_aot = 0;
    int32_t ext_rate = 0;
    bool sbr = false, ps = false;
    if (aot == 5 || aot == 29) {
        // Explicit hierarchical signalling: the extension's output rate,
        // then the object type of the core coder underneath it.
        ext_aot = 5;
        sbr = true;
        ps = aot == 29;
        if (!frequency(br, &ext_rate)) return bad("AAC AudioSpecificConfig: reserved SBR sampling frequency");
        aot = object_type(br);
        if (!br.ok() || !is_defined_object_type(aot) || aot == 5 || aot == 29)
            return bad("AAC AudioSpecificConfig: bad core object type under SBR");
        if (aot == 22) br.skip(4);  // extensionChannelConfiguration
    }

    int32_t frame_length = 0;
    bool parsed_tail = false;  // whether the bits after the core config are known
    if (has_ga_specific_config(aot)) {
        if (!ga_specific_config(br, aot, channel_config, &channels, &frame_length))
            return bad("AAC AudioSpecificConfig cut short");
        parsed_tail = true;
    } else if (aot == 39) {
        // ELDSpecificConfig: only its frame length is read; SBR inside it
        // is the low-delay kind, which does not change the profile.
        frame_length = br.bit() ? 480 : 512;
        if (!br.ok()) return bad("AAC AudioSpecificConfig cut short");
    }
    if (parsed_tail && is_error_resilient(aot)) {
        br.skip(2);  // epConfig
        if (!br.ok()) return bad("AAC AudioSpecificConfig cut short");
    }

    // Backward-compatible signalling: a sync extension after the core
    // configuration may announce SBR (0x2B7) and then PS (0x548).
    if (parsed_tail && ext_aot == 0 && br.bits_left() >= 16) {
        BitReader probe = br;
        if (probe.bits(11) == 0x2B7) {
            const uint32_t candidate = object_type(probe);
            if (candidate == 5) {
                const uint32_t present = probe.bit();
                int32_t hz = 0;
                if (!probe.ok() || (present && !frequency(probe, &hz)))
                    return malformed(probe.ok() ? "AAC AudioSpecificConfig: reserved SBR sampling frequency"
                                                : "AAC AudioSpecificConfig cut short");
                if (present) {
                    ext_aot = 5;
                    ext_rate = hz;
                    sbr = true;
                    if (probe.bits_left() >= 12 && probe.bits(11) == 0x548) ps = probe.bit() != 0 && probe.ok();
                }
            }
        }
    }

    out->profile = (int32_t)(ps ? 29 : sbr ? 5 : aot);
    out->sample_rate = rate;
    out->channels = channels;
    out->object_type = (int32_t)aot;
    out->ext_object_type = ps ? 29 : (int32_t)ext_aot;
    out->ext_sample_rate = ext_rate;
    out->sbr_present = sbr ? 1 : 0;
    out->ps_present = ps ? 1 : 0;
    out->frame_length = frame_length;
    return QAUD_CFG_OK;
}

}  // namespace

}  // namespace qcmn

using namespace qcmn;

QCMN_API int32_t qaud_config_parser(const qaud_config_in *in, qaud_config_out *out) {
    clear_config_error();
    if (in == nullptr || out == nullptr) return QAUD_CFG_ERR_ARG;
    if (in->data == nullptr || in->size == 0) return QAUD_CFG_ERR_ARG;
    if (!is_aac_tag(in->tag)) return QAUD_CFG_ERR_UNSUPPORTED;
    const uint8_t *d = in->data;
    const size_t n = in->size;
    qaud_config_out tmp = *out;
    // 12 set bits are an ADTS syncword; as a configuration they would be
    // object type 95, which does not exist.
    const bool adts = n >= 2 && d[0] == 0xFF && (d[1] & 0xF0) == 0xF0;
    const int32_t r = adts ? parse_adts(d, n, &tmp) : parse_asc(d, n, &tmp);
    if (r == QAUD_CFG_OK) *out = tmp;
    return r;
}
