// qmkvprobe: what the demuxer sees in a Matroska file. For now it prints the
// EBML header, read through the file-access layer and the EBML primitives.
#include <stdio.h>
#include <string.h>

#include <string>

#include <media/MediaExtractorPluginHelper.h>
#include <media/stagefright/FileSource.h>

#include "demux/qmkvd_ebml.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"

namespace {

const char *headerChildName(uint32_t id) {
    switch (id) {
        case 0x4286: return "EBMLVersion";
        case 0x42F7: return "EBMLReadVersion";
        case 0x42F2: return "EBMLMaxIDLength";
        case 0x42F3: return "EBMLMaxSizeLength";
        case 0x4282: return "DocType";
        case 0x4287: return "DocTypeVersion";
        case 0x4285: return "DocTypeReadVersion";
        default: return nullptr;
    }
}

int printEbmlHeader(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp) {
    uint32_t id;
    uint64_t size;
    if (qmkvd_ebml_get_id_len64(mfal, fp, &id, &size) != 0 || id != 0x1A45DFA3) {
        fprintf(stderr, "qmkvprobe: no EBML header\n");
        return 1;
    }
    int64_t pos;
    mfal->getpos(fp, &pos);
    const int64_t end = pos + (int64_t)size;
    while (pos < end && qmkvd_ebml_get_id_len64(mfal, fp, &id, &size) == 0) {
        mfal->getpos(fp, &pos);
        uint8_t data[64];
        const int32_t n = size <= sizeof(data) ? (int32_t)size : 0;
        if (n > 0 && mfal->read(fp, data, n) != n) break;
        const char *name = headerChildName(id);
        if (name != nullptr && id == 0x4282)
            printf("%s: %.*s\n", name, n, reinterpret_cast<const char *>(data));
        else if (name != nullptr && n <= 8)
            printf("%s: %llu\n", name, (unsigned long long)qmkvd_b2v_u64(data, n));
        pos += (int64_t)size;
        mfal->setpos(fp, &pos);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: qmkvprobe FILE\n");
        return 2;
    }
    android::FileSource file(argv[1]);
    if (file.initCheck() != android::OK) {
        fprintf(stderr, "qmkvprobe: cannot open %s\n", argv[1]);
        return 1;
    }
    android::DataSourceHelper source(file.wrap());
    QCMN_MFAL mfal;
    qcmn_mfal_init(&mfal, &source);
    QCMN_MFAL_FP *fp = mfal.open(&mfal, 0);
    int rc = fp != nullptr ? printEbmlHeader(&mfal, fp) : 1;
    if (fp != nullptr) mfal.close(fp);
    qcmn_mfal_deinit(&mfal);
    return rc;
}
