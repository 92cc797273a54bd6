#include "fuzz/ebml_mutator.h"

#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

namespace qmkv_fuzz {

namespace {

// Bounds that keep one mutation cheap next to one execution.
const int kMaxDepth = 12;
const size_t kMaxElements = 4096;            // read from one input
const size_t kMaxNodes = 3 * kMaxElements;  // with the copies mutations add
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

// A size field's bytes as written (1 to 8).
struct SizeField {
    uint8_t bytes[8] = {};
    uint8_t length = 0;
    size_t size() const { return length; }
    const uint8_t *begin() const { return bytes; }
    const uint8_t *end() const { return bytes + length; }
    uint8_t operator[](size_t i) const { return bytes[i]; }
};

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

// An element as written: ID and size field bytes are kept as they stand
// unless the element's data changes length. A node without an ID holds
// bytes that did not parse as an element; a tree's root holds the
// top-level elements and is not written itself.
struct Node {
    uint32_t id = 0;
    uint8_t idLength = 0;
    SizeField sizeField;
    bool sizeFixed = false;  // written as it stands even if it does not match
    bool master = false;
    // A leaf's data, or what follows a master's children: in the input, or
    // in a block of changed bytes.
    const uint8_t *data = nullptr;
    size_t dataLength = 0;
    int32_t firstChild = -1, next = -1;
};

// An element and the master (or root) it sits in.
struct Slot {
    int32_t node, parent;
};

// Trees in one flat table with links by index, kept from one mutation to the
// next: once the tables have grown, a mutation allocates nothing (a heap
// block per element made a mutation cost as much as an execution).
class Trees {
public:
    void reset() {
        mNodes.clear();
        mChangedUsed = 0;
    }

    Node &operator[](int32_t n) { return mNodes[(size_t)n]; }

    // The root of the tree read from `data`.
    int32_t parse(const uint8_t *data, size_t size) {
        const int32_t root = add(Node{});
        mNodes[(size_t)root].master = true;
        size_t count = 0;
        run(data, 0, size, 0, false, root, &count);
        return root;
    }

    // Every element under `parent`, depth first.
    void collect(int32_t parent, std::vector<Slot> *out) {
        for (int32_t c = mNodes[(size_t)parent].firstChild; c >= 0; c = mNodes[(size_t)c].next) {
            if (mNodes[(size_t)c].idLength == 0) continue;
            out->push_back({c, parent});
            collect(c, out);
        }
    }

    size_t childCount(int32_t parent) {
        size_t n = 0;
        for (int32_t c = mNodes[(size_t)parent].firstChild; c >= 0; c = mNodes[(size_t)c].next) ++n;
        return n;
    }

    // The link to the `k`th child of `parent` (its end past the last).
    int32_t *link(int32_t parent, size_t k) {
        int32_t *at = &mNodes[(size_t)parent].firstChild;
        while (k-- > 0 && *at >= 0) at = &mNodes[(size_t)*at].next;
        return at;
    }

    void unlink(const Slot &s) {
        int32_t *at = &mNodes[(size_t)s.parent].firstChild;
        while (*at != s.node) at = &mNodes[(size_t)*at].next;
        *at = mNodes[(size_t)s.node].next;
    }

    // `node` as the `k`th child of `parent` (0 to their count).
    void insert(int32_t parent, int32_t node, size_t k) {
        int32_t *at = link(parent, k);
        mNodes[(size_t)node].next = *at;
        *at = node;
    }

    // A copy of `node` and everything under it, unlinked; -1 when the table
    // is full.
    int32_t copy(int32_t node) {
        if (mNodes.size() >= kMaxNodes) return -1;
        Node n = mNodes[(size_t)node];
        n.firstChild = n.next = -1;
        const int32_t at = add(n);
        int32_t last = -1;
        for (int32_t c = mNodes[(size_t)node].firstChild; c >= 0; c = mNodes[(size_t)c].next) {
            const int32_t cc = copy(c);
            if (cc < 0) break;
            if (last < 0) mNodes[(size_t)at].firstChild = cc;
            else mNodes[(size_t)last].next = cc;
            last = cc;
        }
        return at;
    }

    // A block of its own for `node`'s data, holding it and `extra` bytes of
    // room; copies share their data, so a change never goes in place.
    std::vector<uint8_t> &own(int32_t node, size_t extra) {
        if (mChangedUsed == mChanged.size()) mChanged.emplace_back();
        std::vector<uint8_t> &block = mChanged[mChangedUsed++];
        const Node &n = mNodes[(size_t)node];
        block.assign(n.data, n.data + n.dataLength);
        block.reserve(n.dataLength + extra);
        return block;
    }

    // The tree under `root` written out, every size not fixed made to fit.
    const std::vector<uint8_t> &serialize(int32_t root) {
        mOut.clear();
        for (int32_t c = mNodes[(size_t)root].firstChild; c >= 0; c = mNodes[(size_t)c].next) write(c);
        return mOut;
    }

private:
    int32_t add(const Node &n) {
        mNodes.push_back(n);
        return (int32_t)mNodes.size() - 1;
    }

    // Elements in [pos, end) under `parent`; `stopAtTopLevel` ends an
    // unknown-size parent's run at the next of the Segment's children.
    // Returns where the run stopped.
    size_t run(const uint8_t *base, size_t pos, size_t end, int depth, bool stopAtTopLevel, int32_t parent,
               size_t *count) {
        int32_t last = -1;
        auto append = [&](const Node &n) {
            const int32_t at = add(n);
            if (last < 0) mNodes[(size_t)parent].firstChild = at;
            else mNodes[(size_t)last].next = at;
            last = at;
            return at;
        };
        while (pos < end) {
            Node e;
            const int idLength = vintLength(base[pos], 4);
            const size_t sizeAt = pos + (size_t)idLength;
            const int sizeLength = idLength > 0 && sizeAt < end ? vintLength(base[sizeAt], 8) : 0;
            if (sizeLength == 0 || sizeAt + (size_t)sizeLength > end || ++*count > kMaxElements) break;
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
            const int32_t at = append(e);
            size_t childrenEnd = dataAt;
            if (e.master) childrenEnd = run(base, dataAt, dataEnd, depth + 1, unknown && e.id != kSegment, at, count);
            if (unknown && e.master && childrenEnd < dataEnd) {
                dataEnd = childrenEnd;  // the next top-level element follows
            } else {
                mNodes[(size_t)at].data = base + childrenEnd;
                mNodes[(size_t)at].dataLength = dataEnd - childrenEnd;
            }
            pos = dataEnd;
        }
        if (pos < end && !stopAtTopLevel) {
            Node rest;  // bytes that do not parse, kept as they are
            rest.data = base + pos;
            rest.dataLength = end - pos;
            append(rest);
            return end;
        }
        return pos;
    }

    void write(int32_t node) {
        const Node &e = mNodes[(size_t)node];
        if (e.idLength == 0) {
            mOut.insert(mOut.end(), e.data, e.data + e.dataLength);
            return;
        }
        for (int i = e.idLength; i-- > 0;) mOut.push_back((uint8_t)(e.id >> (8 * i)));
        const size_t headerAt = mOut.size();
        mOut.insert(mOut.end(), e.sizeField.begin(), e.sizeField.end());
        const size_t dataAt = mOut.size();
        for (int32_t c = e.firstChild; c >= 0; c = mNodes[(size_t)c].next) write(c);
        mOut.insert(mOut.end(), e.data, e.data + e.dataLength);
        if (e.sizeFixed) return;
        // The true size, in the field's own length when it fits.
        const uint64_t size = mOut.size() - dataAt;
        size_t length = e.sizeField.size();
        while (length < 8 && size >= (1ull << (7 * length)) - 1) ++length;
        const SizeField field = sizeField(size, length);
        if (length == e.sizeField.size()) {
            memcpy(mOut.data() + headerAt, field.bytes, length);
            return;
        }
        mOut.erase(mOut.begin() + (ptrdiff_t)headerAt, mOut.begin() + (ptrdiff_t)dataAt);
        mOut.insert(mOut.begin() + (ptrdiff_t)headerAt, field.begin(), field.end());
    }

    std::vector<Node> mNodes;
    // Changed data, one block per change; blocks keep their room for the
    // next mutations.
    std::vector<std::vector<uint8_t>> mChanged;
    size_t mChangedUsed = 0;
    std::vector<uint8_t> mOut;
};

class Mutator {
public:
    Mutator(Trees &trees, unsigned seed, ByteMutator bytes) : mTrees(trees), mRng(seed), mBytes(bytes) {}

    // One structural change to the tree under `root`; false when none
    // applied.
    bool mutate(int32_t root) {
        mSlots.clear();
        mTrees.collect(root, &mSlots);
        if (mSlots.empty()) return false;
        const Slot s = pick();
        switch (below(8)) {
            case 0: return resize(mTrees[s.node]);
            case 1:
                mTrees.unlink(s);
                return true;
            case 2: {
                const int32_t copy = mTrees.copy(s.node);
                if (copy < 0) return false;
                mTrees.insert(s.parent, copy, below(mTrees.childCount(s.parent) + 1));
                return true;
            }
            case 3: return move(root, s);
            case 4: return swapId(s);
            case 5: return damageBlock();
            case 6: return changeData(s.node);
            default: return changeData(pickLeaf());
        }
    }

    // An element of the tree under `donor`, under a master of the kind it
    // came from when there is one.
    bool splice(int32_t root, int32_t donor) {
        std::vector<Slot> &theirs = mDonorSlots;
        mSlots.clear();
        theirs.clear();
        mTrees.collect(root, &mSlots);
        mTrees.collect(donor, &theirs);
        if (theirs.empty()) return false;
        const Slot from = theirs[below(theirs.size())];
        int32_t into = root;
        if (!mSlots.empty()) into = mSlots[below(mSlots.size())].parent;
        for (const Slot &s : mSlots)
            if (from.parent != donor && mTrees[s.node].id == mTrees[from.parent].id && chance(2)) into = s.node;
        // The donor's node itself: nothing else of the donor is written.
        mTrees.insert(into, from.node, below(mTrees.childCount(into) + 1));
        return true;
    }

private:
    size_t below(size_t n) { return n == 0 ? 0 : std::uniform_int_distribution<size_t>(0, n - 1)(mRng); }
    bool chance(unsigned oneIn) { return below(oneIn) == 0; }

    // Half the time one of the elements a demuxer's structure hangs on.
    Slot pick() {
        if (chance(2)) {
            auto structural = [&](const Slot &s) { return mTrees[s.node].master && mTrees[s.node].id != kSegment; };
            const size_t masters = (size_t)std::count_if(mSlots.begin(), mSlots.end(), structural);
            size_t k = below(masters);
            for (const Slot &s : mSlots)
                if (masters > 0 && structural(s) && k-- == 0) return s;
        }
        return mSlots[below(mSlots.size())];
    }

    int32_t pickLeaf() {
        for (int tries = 0; tries < 8; ++tries) {
            const int32_t n = mSlots[below(mSlots.size())].node;
            if (!mTrees[n].master) return n;
        }
        return mSlots[below(mSlots.size())].node;
    }

    // Larger, smaller, unknown, or the true size in the 8-byte form.
    bool resize(Node &e) {
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
    bool move(int32_t root, const Slot &s) {
        mTrees.unlink(s);
        int32_t into = s.parent;
        mSlots.clear();
        mTrees.collect(root, &mSlots);
        if (!mSlots.empty() && chance(3)) {
            const int32_t target = mSlots[below(mSlots.size())].node;
            if (mTrees[target].master) into = target;
        }
        mTrees.insert(into, s.node, below(mTrees.childCount(into) + 1));
        return true;
    }

    // A sibling's ID, or one of the IDs the demuxer looks for.
    bool swapId(const Slot &s) {
        uint32_t id = kOtherIds[below(std::size(kOtherIds))];
        const size_t siblings = mTrees.childCount(s.parent);
        if (chance(2) && siblings > 1) id = mTrees[*mTrees.link(s.parent, below(siblings))].id;
        Node &e = mTrees[s.node];
        if (id == 0 || id == e.id) return false;
        e.id = id;
        e.idLength = (uint8_t)(id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1);
        return true;
    }

    // A block's lacing: its kind, frame count or frame sizes changed, or the
    // block cut inside them.
    bool damageBlock() {
        auto isBlock = [&](const Slot &s) {
            const Node &n = mTrees[s.node];
            return (n.id == kSimpleBlock || n.id == kBlock) && !n.master;
        };
        const size_t blocks = (size_t)std::count_if(mSlots.begin(), mSlots.end(), isBlock);
        if (blocks == 0) return false;
        size_t k = below(blocks);
        int32_t node = -1;
        for (const Slot &s : mSlots)
            if (isBlock(s) && k-- == 0) node = s.node;
        const Node &n = mTrees[node];
        const int trackLength = n.dataLength == 0 ? 0 : vintLength(n.data[0], 8);
        const size_t flags = (size_t)trackLength + 2;
        if (trackLength == 0 || n.dataLength <= flags) return false;
        std::vector<uint8_t> &d = mTrees.own(node, 1);
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
        mTrees[node].data = d.data();
        mTrees[node].dataLength = d.size();
        return true;
    }

    // libFuzzer's byte mutation inside one element's data.
    bool changeData(int32_t node) {
        if (mBytes == nullptr) return false;
        const size_t size = std::max<size_t>(mTrees[node].dataLength, 1), most = size * 2 + 16;
        std::vector<uint8_t> &d = mTrees.own(node, most);
        d.resize(most);  // an empty element gets one zero byte to change
        mTrees[node].data = d.data();
        mTrees[node].dataLength = mBytes(d.data(), size, most);
        return true;
    }

    Trees &mTrees;
    std::minstd_rand mRng;
    ByteMutator mBytes;
    // Kept from one mutation to the next, as the trees are.
    static std::vector<Slot> mSlots, mDonorSlots;
};

std::vector<Slot> Mutator::mSlots, Mutator::mDonorSlots;

// The trees of the mutation under way; libFuzzer mutates on one thread.
Trees &scratch() {
    static Trees trees;
    trees.reset();
    return trees;
}

// `bytes` into `out` when they fit and differ from its first `size` bytes.
bool store(const std::vector<uint8_t> &bytes, uint8_t *out, size_t size, size_t maxSize, size_t *stored) {
    if (bytes.empty() || bytes.size() > maxSize || (bytes.size() == size && memcmp(bytes.data(), out, size) == 0))
        return false;
    memcpy(out, bytes.data(), bytes.size());
    *stored = bytes.size();
    return true;
}

}  // namespace

size_t mutateEbml(uint8_t *data, size_t size, size_t maxSize, unsigned seed, ByteMutator bytes) {
    // A fifth of the time, and whenever the structure gives nothing to
    // work on, libFuzzer's byte mutation over the whole input.
    if (seed % 5 != 0) {
        Trees &trees = scratch();
        const int32_t root = trees.parse(data, size);
        Mutator m(trees, seed, bytes);
        bool changed = false;
        for (unsigned n = 1 + seed / 5 % 3; n > 0; --n) changed = m.mutate(root) || changed;
        // Written out before `data` is overwritten: the tree reads from it.
        if (changed && store(trees.serialize(root), data, size, maxSize, &size)) return size;
    }
    return bytes != nullptr ? bytes(data, size, maxSize) : size;
}

size_t crossOverEbml(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2, uint8_t *out,
                     size_t maxOutSize, unsigned seed) {
    Trees &trees = scratch();
    const int32_t root = trees.parse(data1, size1), donor = trees.parse(data2, size2);
    Mutator m(trees, seed, nullptr);
    size_t size = 0;
    if (m.splice(root, donor) && store(trees.serialize(root), out, 0, maxOutSize, &size)) return size;
    return 0;
}

}  // namespace qmkv_fuzz
