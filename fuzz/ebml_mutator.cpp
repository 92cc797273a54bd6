#include "fuzz/ebml_mutator.h"

#include <string.h>

#include <algorithm>
#include <random>

namespace qmkv_fuzz {

namespace {

// Bounds that keep one mutation cheap next to one execution.
const int kMaxDepth = 12;
const size_t kMaxElements = 4096;
const uint32_t kSimpleBlock = 0xA3, kBlock = 0xA1, kSegment = 0x18538067, kCluster = 0x1F43B675;

const uint32_t kMasters[] = {
    0x1A45DFA3, kSegment,   0x114D9B74, 0x4DBB,     0x1549A966, 0x6924,     kCluster,   0x5854,     0xA0,
    0x75A1,     0xA6,       0x8E,       0xE8,       0xC8,       0x1654AE6B, 0xAE,       0x6624,     0xE0,
    0x55B0,     0x55D0,     0x7670,     0xE1,       0xE2,       0xE3,       0xE4,       0xE9,       0x6D80,
    0x6240,     0x5034,     0x5035,     0x47E7,     0x1C53BB6B, 0xBB,       0xB7,       0xDB,       0x1941A469,
    0x61A7,     0x1043A770, 0x45B9,     0xB6,       0x8F,       0x80,       0x6944,     0x6911,     0x1254C367,
    0x7373,     0x63C0,     0x67C8,     0x41E4,
};
// The Segment's children: an unknown-size one ends where the next begins.
const uint32_t kTopLevel[] = {0x114D9B74, 0x1549A966, 0x1654AE6B, kCluster,
                              0x1C53BB6B, 0x1941A469, 0x1043A770, 0x1254C367};
// IDs an element may be turned into besides its siblings'.
const uint32_t kOtherIds[] = {kCluster, 0xA0, kSimpleBlock, kBlock, 0xE7, 0xAE, 0xD7, 0x83, 0x86, 0x63A2, 0xE0, 0xE1,
                              0xB0, 0xBA, 0xB5, 0x9F, 0x1C53BB6B, 0xBB, 0xB3, 0xB7, 0xF7, 0xF1, 0x2AD7B1, 0x4489,
                              0x6D80, 0x5031, 0x5034, 0x4254, 0x4255, 0x9B, 0xFB, 0xEC, 0x1A45DFA3, 0x4282};

template <size_t N>
bool among(uint32_t id, const uint32_t (&ids)[N]) {
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

// A variable-length integer's length from its first byte (0 when invalid).
int vintLength(uint8_t first, int most) {
    for (int n = 1; n <= most; ++n)
        if (first & (0x80 >> (n - 1))) return n;
    return 0;
}

uint64_t sizeValue(const SizeField &field) {
    uint64_t v = field[0] & (0xFF >> field.size());
    for (size_t i = 1; i < field.size(); ++i) v = (v << 8) | field[i];
    return v;
}

bool unknownSize(const SizeField &field) { return sizeValue(field) == (1ull << (7 * field.size())) - 1; }

// `value` in a size field of `length` bytes (the caller checks it fits).
SizeField sizeField(uint64_t value, size_t length) {
    SizeField f;
    f.length = (uint8_t)length;
    for (size_t i = length; i-- > 0; value >>= 8) f.bytes[i] = (uint8_t)value;
    f.bytes[0] |= (uint8_t)(0x80 >> (length - 1));
    return f;
}

struct Parser {
    const uint8_t *base;
    size_t count = 0;

    // Elements in [pos, end); `topLevel` ends an unknown-size parent's run
    // at the next of the Segment's children.
    std::vector<EbmlElement> run(size_t pos, size_t end, int depth, bool stopAtTopLevel, size_t *stop) {
        std::vector<EbmlElement> out;
        while (pos < end) {
            EbmlElement e;
            const int idLength = vintLength(base[pos], 4);
            const size_t sizeAt = pos + (size_t)idLength;
            const int sizeLength = idLength > 0 && sizeAt < end ? vintLength(base[sizeAt], 8) : 0;
            if (sizeLength == 0 || sizeAt + (size_t)sizeLength > end || ++count > kMaxElements) break;
            for (int i = 0; i < idLength; ++i) e.id = (e.id << 8) | base[pos + (size_t)i];
            if (stopAtTopLevel && among(e.id, kTopLevel)) break;
            e.idLength = (uint8_t)idLength;
            e.sizeField.length = (uint8_t)sizeLength;
            memcpy(e.sizeField.bytes, base + sizeAt, (size_t)sizeLength);
            const size_t dataAt = sizeAt + (size_t)sizeLength;
            const bool unknown = unknownSize(e.sizeField);
            const uint64_t declared = sizeValue(e.sizeField);
            size_t dataEnd = end;
            if (!unknown && declared <= end - dataAt) dataEnd = dataAt + (size_t)declared;
            // A size that runs past the parent, or an unknown one, is kept
            // as it stands: the data then ends with the parent.
            e.sizeFixed = dataEnd == end && (unknown || declared != end - dataAt);
            e.master = among(e.id, kMasters) && depth < kMaxDepth;
            size_t childrenEnd = dataAt;
            if (e.master)
                e.children = run(dataAt, dataEnd, depth + 1, unknown && e.id != kSegment, &childrenEnd);
            if (unknown && e.master && childrenEnd < dataEnd) {
                dataEnd = childrenEnd;  // the next top-level element follows
            } else {
                e.data.assign(base + childrenEnd, base + dataEnd);
            }
            out.push_back(std::move(e));
            pos = dataEnd;
        }
        *stop = pos;
        if (pos < end && !stopAtTopLevel) {
            EbmlElement rest;  // bytes that do not parse, kept as they are
            rest.data.assign(base + pos, base + end);
            out.push_back(std::move(rest));
            *stop = end;
        }
        return out;
    }
};

void write(const EbmlElement &e, std::vector<uint8_t> *out) {
    for (int i = e.idLength; i-- > 0;) out->push_back((uint8_t)(e.id >> (8 * i)));
    if (e.idLength == 0) {
        out->insert(out->end(), e.data.begin(), e.data.end());
        return;
    }
    const size_t headerAt = out->size();
    out->insert(out->end(), e.sizeField.begin(), e.sizeField.end());
    const size_t dataAt = out->size();
    for (const EbmlElement &c : e.children) write(c, out);
    out->insert(out->end(), e.data.begin(), e.data.end());
    if (e.sizeFixed) return;
    // The true size, in the field's own length when it fits.
    const uint64_t size = out->size() - dataAt;
    size_t length = e.sizeField.size();
    while (length < 8 && size >= (1ull << (7 * length)) - 1) ++length;
    const SizeField field = sizeField(size, length);
    out->erase(out->begin() + (ptrdiff_t)headerAt, out->begin() + (ptrdiff_t)dataAt);
    out->insert(out->begin() + (ptrdiff_t)headerAt, field.begin(), field.end());
}

// An element by where it sits, so that it can be taken out or put next to.
struct Slot {
    std::vector<EbmlElement> *siblings;
    size_t index;
    const EbmlElement *parent;
    EbmlElement &get() const { return (*siblings)[index]; }
};

void collect(std::vector<EbmlElement> *list, const EbmlElement *parent, std::vector<Slot> *out) {
    for (size_t i = 0; i < list->size(); ++i) {
        if ((*list)[i].idLength == 0) continue;
        out->push_back({list, i, parent});
        collect(&(*list)[i].children, &(*list)[i], out);
    }
}

class Mutator {
public:
    Mutator(unsigned seed, ByteMutator bytes) : mRng(seed), mBytes(bytes) {}

    // One structural change to `tree`; false when none applied.
    bool mutate(std::vector<EbmlElement> *tree) {
        std::vector<Slot> slots;
        collect(tree, nullptr, &slots);
        if (slots.empty()) return false;
        const Slot s = pick(slots);
        switch (below(8)) {
            case 0: return resize(s.get());
            case 1:
                s.siblings->erase(s.siblings->begin() + (ptrdiff_t)s.index);
                return true;
            case 2: {
                const EbmlElement copy = s.get();
                s.siblings->insert(s.siblings->begin() + (ptrdiff_t)below(s.siblings->size() + 1), copy);
                return true;
            }
            case 3: return move(tree, s);
            case 4: return swapId(s);
            case 5: return damageBlock(slots);
            case 6: return changeData(s.get());
            default: return changeData(pickLeaf(slots));
        }
    }

    // An element from the other input, under a master of the kind it came
    // from when there is one.
    bool splice(std::vector<EbmlElement> *tree, std::vector<EbmlElement> *donor) {
        std::vector<Slot> slots, theirs;
        collect(tree, nullptr, &slots);
        collect(donor, nullptr, &theirs);
        if (theirs.empty()) return false;
        const Slot &from = theirs[below(theirs.size())];
        std::vector<EbmlElement> *into = tree;
        if (!slots.empty()) into = slots[below(slots.size())].siblings;
        for (const Slot &s : slots)
            if (from.parent != nullptr && s.get().id == from.parent->id && chance(2)) into = &s.get().children;
        into->insert(into->begin() + (ptrdiff_t)below(into->size() + 1), from.get());
        return true;
    }

private:
    size_t below(size_t n) { return n == 0 ? 0 : std::uniform_int_distribution<size_t>(0, n - 1)(mRng); }
    bool chance(unsigned oneIn) { return below(oneIn) == 0; }

    // Half the time one of the elements a demuxer's structure hangs on.
    Slot pick(const std::vector<Slot> &slots) {
        if (chance(2)) {
            std::vector<Slot> masters;
            for (const Slot &s : slots)
                if (s.get().master && s.get().id != kSegment) masters.push_back(s);
            if (!masters.empty()) return masters[below(masters.size())];
        }
        return slots[below(slots.size())];
    }

    EbmlElement &pickLeaf(std::vector<Slot> &slots) {
        for (int tries = 0; tries < 8; ++tries) {
            EbmlElement &e = slots[below(slots.size())].get();
            if (!e.master) return e;
        }
        return slots[below(slots.size())].get();
    }

    // Larger, smaller, unknown, or the true size in the 8-byte form.
    bool resize(EbmlElement &e) {
        const uint64_t was = sizeValue(e.sizeField);
        const size_t length = e.sizeField.size();
        const uint64_t most = (1ull << (7 * length)) - 2;
        switch (below(5)) {
            case 0: e.sizeField = sizeField(std::min(most, was + 1 + below(chance(2) ? 16 : 1 << 16)), length); break;
            case 1: e.sizeField = sizeField(was > 0 ? below(was) : 0, length); break;
            case 2: {
                const size_t n = 1 + below(8);
                e.sizeField = sizeField((1ull << (7 * n)) - 1, n);
                break;
            }
            case 3: e.sizeField = sizeField((1ull << 56) - 2 - below(1 << 20), 8); break;
            default:
                e.sizeField = sizeField(0, 8);
                e.sizeFixed = false;  // re-computed when written
                return true;
        }
        e.sizeFixed = true;
        return true;
    }

    // Elsewhere among its siblings, or into another master; taken out
    // first, so that the places it may go are those left.
    bool move(std::vector<EbmlElement> *tree, const Slot &s) {
        EbmlElement moved = std::move(s.get());
        s.siblings->erase(s.siblings->begin() + (ptrdiff_t)s.index);
        std::vector<EbmlElement> *into = s.siblings;
        std::vector<Slot> left;
        collect(tree, nullptr, &left);
        if (!left.empty() && chance(3)) {
            EbmlElement &target = left[below(left.size())].get();
            if (target.master) into = &target.children;
        }
        into->insert(into->begin() + (ptrdiff_t)below(into->size() + 1), std::move(moved));
        return true;
    }

    // A sibling's ID, or one of the IDs the demuxer looks for.
    bool swapId(const Slot &s) {
        EbmlElement &e = s.get();
        uint32_t id = kOtherIds[below(std::size(kOtherIds))];
        if (chance(2) && s.siblings->size() > 1) id = (*s.siblings)[below(s.siblings->size())].id;
        if (id == 0 || id == e.id) return false;
        e.id = id;
        e.idLength = (uint8_t)(id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1);
        return true;
    }

    // A block's lacing: its kind, frame count or frame sizes changed, or the
    // block cut inside them.
    bool damageBlock(std::vector<Slot> &slots) {
        std::vector<EbmlElement *> blocks;
        for (const Slot &s : slots)
            if ((s.get().id == kSimpleBlock || s.get().id == kBlock) && !s.get().master) blocks.push_back(&s.get());
        if (blocks.empty()) return false;
        std::vector<uint8_t> &d = blocks[below(blocks.size())]->data;
        const int trackLength = d.empty() ? 0 : vintLength(d[0], 8);
        const size_t flags = (size_t)trackLength + 2;
        if (trackLength == 0 || d.size() <= flags) return false;
        switch (below(4)) {
            case 0: d[flags] = (uint8_t)((d[flags] & ~6) | (below(4) << 1)); break;
            case 1:
                if (d.size() > flags + 1) d[flags + 1] = (uint8_t)below(256);
                else d.push_back((uint8_t)below(256));
                break;
            case 2:  // the flags byte or one of the lacing bytes after it
                d[flags + below(std::min<size_t>(d.size() - flags, 17))] = (uint8_t)below(256);
                break;
            default: d.resize(flags + 1 + below(std::min<size_t>(d.size() - flags, 24))); break;
        }
        return true;
    }

    // libFuzzer's byte mutation inside one element's data.
    bool changeData(EbmlElement &e) {
        if (mBytes == nullptr) return false;
        if (e.data.empty()) e.data.push_back(0);
        const size_t size = e.data.size(), most = size * 2 + 16;
        e.data.resize(most);
        e.data.resize(mBytes(e.data.data(), size, most));
        return true;
    }

    std::minstd_rand mRng;
    ByteMutator mBytes;
};

// `bytes` into `out` when they fit and differ from its first `size` bytes.
bool store(const std::vector<uint8_t> &bytes, uint8_t *out, size_t size, size_t maxSize, size_t *stored) {
    if (bytes.empty() || bytes.size() > maxSize || (bytes.size() == size && memcmp(bytes.data(), out, size) == 0))
        return false;
    memcpy(out, bytes.data(), bytes.size());
    *stored = bytes.size();
    return true;
}

}  // namespace

std::vector<EbmlElement> parseEbml(const uint8_t *data, size_t size) {
    Parser p{data};
    size_t stop = 0;
    return p.run(0, size, 0, false, &stop);
}

std::vector<uint8_t> serializeEbml(const std::vector<EbmlElement> &elements) {
    std::vector<uint8_t> out;
    for (const EbmlElement &e : elements) write(e, &out);
    return out;
}

size_t mutateEbml(uint8_t *data, size_t size, size_t maxSize, unsigned seed, ByteMutator bytes) {
    // A fifth of the time, and whenever the structure gives nothing to
    // work on, libFuzzer's byte mutation over the whole input.
    if (seed % 5 != 0) {
        Mutator m(seed, bytes);
        std::vector<EbmlElement> tree = parseEbml(data, size);
        bool changed = false;
        for (unsigned n = 1 + seed / 5 % 3; n > 0; --n) changed = m.mutate(&tree) || changed;
        if (changed && store(serializeEbml(tree), data, size, maxSize, &size)) return size;
    }
    return bytes != nullptr ? bytes(data, size, maxSize) : size;
}

size_t crossOverEbml(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2, uint8_t *out,
                     size_t maxOutSize, unsigned seed) {
    Mutator m(seed, nullptr);
    std::vector<EbmlElement> tree = parseEbml(data1, size1), donor = parseEbml(data2, size2);
    size_t size = 0;
    if (m.splice(&tree, &donor) && store(serializeEbml(tree), out, 0, maxOutSize, &size)) return size;
    return 0;
}

}  // namespace qmkv_fuzz
