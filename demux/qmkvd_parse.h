// Element parsers of the Segment's top-level elements. Each reads through
// the descriptor and returns 0 or -1; the record passed in already holds
// the element's data position and size.
#ifndef QMKVD_PARSE_H_
#define QMKVD_PARSE_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Element IDs the parsers dispatch on.
enum {
    QMKVD_ID_EBML = 0x1A45DFA3,
    QMKVD_ID_SEGMENT = 0x18538067,
    QMKVD_ID_SEEKHEAD = 0x114D9B74,
    QMKVD_ID_INFO = 0x1549A966,
    QMKVD_ID_TRACKS = 0x1654AE6B,
    QMKVD_ID_CLUSTER = 0x1F43B675,
    QMKVD_ID_CUES = 0x1C53BB6B,
    QMKVD_ID_ATTACHMENTS = 0x1941A469,
    QMKVD_ID_CHAPTERS = 0x1043A770,
    QMKVD_ID_TAGS = 0x1254C367,
};

// Tracks and TrackEntry with their sub-elements.
QCMN_API int32_t parse_track(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *tracks);
QCMN_API int32_t parse_track_entry(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_track *track);
QCMN_API int32_t parse_video(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_video *video);
QCMN_API int32_t parse_audio(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_audio *audio);
QCMN_API int32_t parse_colour(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_colour *colour);
QCMN_API int32_t parse_mastering_metadata(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                          qmkvd_mastering *mastering);
QCMN_API int32_t parse_contentencodings(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                        qmkvd_content_encodings *encodings);
QCMN_API int32_t parse_contentencoding(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                       qmkvd_encoding *encoding);
QCMN_API int32_t parse_contentcomp(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                   qmkvd_compression *compression);
// Frees what a track entry owns (CodecPrivate, colour, mastering,
// compression settings) and clears those pointers.
void qmkvd_track_free(qmkvd_track *track);

// SeekHead, Info, Tags, Chapters, Attachments.
QCMN_API int32_t parse_seekhead(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *seekhead);
QCMN_API int32_t parse_seekhead_seek(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos,
                                     uint64_t size);
QCMN_API int32_t parse_segmentinfo(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_segment_info *info);
QCMN_API int32_t parse_tags(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags);
QCMN_API int32_t parse_tag(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags);
QCMN_API int32_t parse_tag_targets(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_tags *tags);
QCMN_API int32_t parse_tag_simpletag(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                     qmkvd_simple_tag *simple_tag);
QCMN_API int32_t parse_chapters(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *chapters);
QCMN_API int32_t parse_attachments(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                                   qmkvd_element *attachments);

#endif  // QMKVD_PARSE_H_
