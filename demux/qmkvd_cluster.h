// Walking Clusters and their blocks for one stream.
#ifndef QMKVD_CLUSTER_H_
#define QMKVD_CLUSTER_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Reads the children of [parse_start, parse_start + parse_size) up to the
// first block, which becomes next_block_pos. 0 or -1.
QCMN_API int32_t parse_cluster(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cluster *cluster);
// Reads the block element at next_block_pos and moves past it. 0, or -1 when
// it is not a block (the Cluster's blocks are over) or cannot be read.
QCMN_API int32_t parse_cluster_blockgroup(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_block_info *block,
                                          qmkvd_cluster *cluster, int32_t read_all_children);
// The same two through a window the caller keeps (`w`, over `fp` of
// `mfal`): what one read brings in serves the next, and no bytes are copied
// into a small window of their own. The file position is left undefined;
// *stop is where the head's reading ended.
QCMN_API int32_t qmkvd_cluster_head(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cluster *cluster,
                                    int64_t *stop);
QCMN_API int32_t qmkvd_block_element(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_block_info *block,
                                     qmkvd_cluster *cluster, int32_t read_all_children);
// The header at `pos` through `w`: 0 for a Cluster, with its size and data
// position; 1 for any other element; -1 when none can be read there.
QCMN_API int32_t qmkvd_cluster_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint64_t *size,
                                  int64_t *data);
// The head of the stream's Cluster at parse_start through the stream's
// window, which draws on what the file's other windows hold; its fill
// brings in the first blocks too, for the next frame read. The file is
// left where the reading stopped. 0 or -1.
QCMN_API int32_t qmkvds_cluster_head(qmkvds *stream);
// Whether an element with this ID can stand inside a Cluster. A Cluster of
// unknown size (live recordings write it) ends where one that cannot begins.
bool qmkvd_is_cluster_child(uint32_t id);

// Whether the end of the file cuts the block: a recording that stopped, a
// download that broke off. Such a block is not delivered at all.
bool qmkvd_block_cut(const qmkvd *file, const qmkvd_block_info *block);

// Finds the stream's next block, crossing Clusters and damage. 0 with the
// file on the block's flags byte, 1 at the end of the stream, -1 on a read
// error.
QCMN_API int32_t get_blockgroup(qmkvds *stream, qmkvd_block_info *block);

#endif  // QMKVD_CLUSTER_H_
