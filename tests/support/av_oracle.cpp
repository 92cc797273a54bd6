#include "tests/support/av_oracle.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/pixdesc.h>
}

namespace qmkv_test {

namespace {

std::string avError(int err) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(err, buf, sizeof buf);
    return buf;
}

int64_t toUs(int64_t t, AVRational tb) {
    if (t == AV_NOPTS_VALUE) return kAvNoTime;
    return av_rescale_q(t, tb, AVRational{1, 1000000});
}

std::map<std::string, std::string> dictToMap(const AVDictionary *dict) {
    std::map<std::string, std::string> out;
    const AVDictionaryEntry *e = nullptr;
    while ((e = av_dict_get(dict, "", e, AV_DICT_IGNORE_SUFFIX)) != nullptr) out[e->key] = e->value;
    return out;
}

struct CloseInput {
    void operator()(AVFormatContext *ctx) const { avformat_close_input(&ctx); }
};
using InputPtr = std::unique_ptr<AVFormatContext, CloseInput>;

// Opens the file with libavformat's parsers off, so packets are exactly the
// frames the Matroska demuxer produced (no re-splitting, no timestamps
// guessed), and nothing but the container header has been read.
InputPtr openRaw(const std::string &path, std::string *error) {
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_FATAL); });

    AVFormatContext *ctx = avformat_alloc_context();
    if (ctx == nullptr) {
        *error = "out of memory";
        return nullptr;
    }
    ctx->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    int err = avformat_open_input(&ctx, path.c_str(), nullptr, nullptr);
    if (err < 0) {  // ctx has been freed
        *error = "avformat_open_input: " + avError(err);
        return nullptr;
    }
    return InputPtr(ctx);
}

int mediaType(AVMediaType t) {
    switch (t) {
        case AVMEDIA_TYPE_VIDEO: return kAvVideo;
        case AVMEDIA_TYPE_AUDIO: return kAvAudio;
        case AVMEDIA_TYPE_SUBTITLE: return kAvSubtitle;
        case AVMEDIA_TYPE_ATTACHMENT: return kAvAttachment;
        default: return kAvOther;
    }
}

}  // namespace

AvFile avOpen(const std::string &path) {
    AvFile file;
    file.path = path;
    InputPtr ctx = openRaw(path, &file.error);
    if (!ctx) {
        ADD_FAILURE() << "oracle cannot open " << path << ": " << file.error;
        return file;
    }
    file.ok = true;
    file.duration_us = ctx->duration == AV_NOPTS_VALUE ? kAvNoTime : ctx->duration;  // AV_TIME_BASE is 1 MHz
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        AVStream *st = ctx->streams[i];
        const AVCodecParameters *par = st->codecpar;
        AvStream s;
        s.index = st->index;
        s.id = st->id;
        s.codec_name = avcodec_get_name(par->codec_id);
        s.media_type = mediaType(par->codec_type);
        s.width = par->width;
        s.height = par->height;
        s.sample_rate = par->sample_rate;
        s.channels = par->ch_layout.nb_channels;
        if (par->extradata != nullptr && par->extradata_size > 0)
            s.extradata.assign(par->extradata, par->extradata + par->extradata_size);
        s.metadata = dictToMap(st->metadata);
        file.streams.push_back(std::move(s));
    }
    return file;
}

namespace {

AvPacket convert(const AVPacket *pkt, AVRational tb) {
    AvPacket p;
    p.stream = pkt->stream_index;
    p.pts_us = toUs(pkt->pts, tb);
    p.duration_us = pkt->duration > 0 ? toUs(pkt->duration, tb) : 0;
    p.pos = pkt->pos;
    p.key = (pkt->flags & AV_PKT_FLAG_KEY) != 0;
    if (pkt->size > 0) p.data.assign(pkt->data, pkt->data + pkt->size);
    return p;
}

}  // namespace

std::vector<AvPacket> AvFile::readAll() const {
    std::vector<AvPacket> packets;
    std::string error;
    InputPtr ctx = openRaw(path, &error);
    if (!ctx) {
        ADD_FAILURE() << "oracle cannot open " << path << ": " << error;
        return packets;
    }
    AVPacket *pkt = av_packet_alloc();
    int err;
    while ((err = av_read_frame(ctx.get(), pkt)) >= 0) {
        packets.push_back(convert(pkt, ctx->streams[pkt->stream_index]->time_base));
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    if (err != AVERROR_EOF) ADD_FAILURE() << "oracle read error in " << path << ": " << avError(err);
    return packets;
}

std::vector<int64_t> AvFile::keyFrameTimesUs(int stream) const {
    std::vector<int64_t> times;
    for (const AvPacket &p : readAll())
        if (p.stream == stream && p.key) times.push_back(p.pts_us);
    return times;
}

bool avProbeVideo(const std::string &path, AvVideoParams *out) {
    AVFormatContext *raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) {
        ADD_FAILURE() << "oracle cannot open " << path;
        return false;
    }
    InputPtr ctx(raw);
    if (avformat_find_stream_info(ctx.get(), nullptr) < 0 || ctx->nb_streams == 0) {
        ADD_FAILURE() << "oracle cannot probe " << path;
        return false;
    }
    const AVCodecParameters *par = ctx->streams[0]->codecpar;
    out->width = par->width;
    out->height = par->height;
    out->profile = par->profile;
    out->level = par->level;
    if (const AVPixFmtDescriptor *d = av_pix_fmt_desc_get((AVPixelFormat)par->format)) {
        out->bit_depth = d->comp[0].depth;
        const bool sub_w = d->log2_chroma_w > 0, sub_h = d->log2_chroma_h > 0;
        out->chroma_format = d->nb_components < 3 || (!sub_w && sub_h) ? 0
                             : sub_w && sub_h                        ? 1
                             : sub_w                                 ? 2
                                                                     : 3;
    }
    if (par->field_order != AV_FIELD_UNKNOWN) out->interlaced = par->field_order != AV_FIELD_PROGRESSIVE;
    return true;
}

std::string AvFile::codecSummary() const {
    std::string s;
    for (const AvStream &st : streams) s += (s.empty() ? "" : "+") + st.codec_name;
    return s;
}

}  // namespace qmkv_test
