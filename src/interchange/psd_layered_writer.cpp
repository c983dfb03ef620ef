#include "interchange/psd_layered_writer.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "imaging/safe_file.h"
#include "interchange/packbits.h"
#include "interchange/psd_format.h"
#include "runtime/aligned_block.h"
#include "runtime/parallel_for.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

constexpr size_t kRowsPerBlock = 32;

// One picture's channels as PackBits rows: a row length per channel and row, and the data in blocks of rows that
// are encoded in parallel, each into its own slot of a buffer that is kept from picture to picture (two take turns,
// so that one is written while the other is filled). The bytes do not depend on how the blocks are spread over
// threads.
struct CEncoded {
    int channels = 0;
    uint32_t height = 0;
    size_t blockCount = 0;
    size_t slot = 0;                  // bytes a block of one channel may take
    std::vector<uint16_t> rowLengths; // channel-major: channel * height + row
    std::vector<size_t> used;         // block * channels + channel
    // Uninitialised: only what the encoder wrote is ever read.
    std::unique_ptr<uint8_t, decltype(&std::free)> arena{nullptr, &std::free};
    size_t arenaSize = 0;

    uint8_t* Slot(size_t block, int c) const { return arena.get() + (block * size_t(channels) + size_t(c)) * slot; }
    uint64_t ChannelBytes(int c) const
    {
        uint64_t sum = 0;
        for (uint32_t y = 0; y < height; ++y)
            sum += rowLengths[size_t(c) * height + y];
        return sum;
    }
};

// Splits a row of pixels into its planes: alpha (when wanted), red, green, blue, the order of PSD channels.
void SplitRowPlain(const CPixel* src, uint32_t w, uint8_t* __restrict a, uint8_t* __restrict r, uint8_t* __restrict g,
                   uint8_t* __restrict b)
{
    if (a)
        for (uint32_t x = 0; x < w; ++x)
            a[x] = src[x].alpha;
    for (uint32_t x = 0; x < w; ++x) {
        const CPixel p = src[x];
        r[x] = p.red;
        g[x] = p.green;
        b[x] = p.blue;
    }
}

#if VM_SIMD_X86
// One byte of each of four vectors of four pixels (blue 0, green 8, red 16, alpha 24): the lanes hold byte
// values, so neither pack saturates.
template <int Shift> VM_TARGET_SSE2 inline __m128i PlaneOf16(__m128i p0, __m128i p1, __m128i p2, __m128i p3)
{
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i a = _mm_and_si128(_mm_srli_epi32(p0, Shift), low), b = _mm_and_si128(_mm_srli_epi32(p1, Shift), low);
    const __m128i c = _mm_and_si128(_mm_srli_epi32(p2, Shift), low), d = _mm_and_si128(_mm_srli_epi32(p3, Shift), low);
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

VM_TARGET_SSE2 void SplitRowSse2(const CPixel* src, uint32_t w, uint8_t* a, uint8_t* r, uint8_t* g, uint8_t* b)
{
    uint32_t x = 0;
    for (; x + 16 <= w; x += 16) {
        const auto* p = reinterpret_cast<const __m128i*>(src + x);
        const __m128i p0 = _mm_loadu_si128(p), p1 = _mm_loadu_si128(p + 1);
        const __m128i p2 = _mm_loadu_si128(p + 2), p3 = _mm_loadu_si128(p + 3);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(b + x), PlaneOf16<0>(p0, p1, p2, p3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(g + x), PlaneOf16<8>(p0, p1, p2, p3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(r + x), PlaneOf16<16>(p0, p1, p2, p3));
        if (a) _mm_storeu_si128(reinterpret_cast<__m128i*>(a + x), PlaneOf16<24>(p0, p1, p2, p3));
    }
    SplitRowPlain(src + x, w - x, a ? a + x : nullptr, r + x, g + x, b + x);
}

// Eight pixels as four quarters of eight bytes each: blue, green | red, alpha.
VM_TARGET_AVX2 inline __m256i GroupChannels(const CPixel* p)
{
    const __m256i byChannel = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, //
                                               0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, byChannel), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

VM_TARGET_AVX2 void SplitRowAvx2(const CPixel* src, uint32_t w, uint8_t* a, uint8_t* r, uint8_t* g, uint8_t* b)
{
    uint32_t x = 0;
    for (; x + 32 <= w; x += 32) {
        const __m256i v0 = GroupChannels(src + x), v1 = GroupChannels(src + x + 8);
        const __m256i v2 = GroupChannels(src + x + 16), v3 = GroupChannels(src + x + 24);
        const __m256i br01 = _mm256_unpacklo_epi64(v0, v1), ga01 = _mm256_unpackhi_epi64(v0, v1);
        const __m256i br23 = _mm256_unpacklo_epi64(v2, v3), ga23 = _mm256_unpackhi_epi64(v2, v3);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(b + x), _mm256_permute2x128_si256(br01, br23, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(r + x), _mm256_permute2x128_si256(br01, br23, 0x31));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(g + x), _mm256_permute2x128_si256(ga01, ga23, 0x20));
        if (a) _mm256_storeu_si256(reinterpret_cast<__m256i*>(a + x), _mm256_permute2x128_si256(ga01, ga23, 0x31));
    }
    _mm256_zeroupper(); // the compiler leaves it out before a tail call, and legacy SSE after it would stall
    SplitRowSse2(src + x, w - x, a ? a + x : nullptr, r + x, g + x, b + x);
}
#endif

void SplitRow(const CPixel* src, uint32_t w, uint8_t* a, uint8_t* r, uint8_t* g, uint8_t* b)
{
#if VM_SIMD_X86
    switch (vmsimd::CurrentLevel()) {
    case vmsimd::kAvx2: SplitRowAvx2(src, w, a, r, g, b); return;
    case vmsimd::kSse2: SplitRowSse2(src, w, a, r, g, b); return;
    default: break;
    }
#endif
    SplitRowPlain(src, w, a, r, g, b);
}

// Channels alpha, red, green, blue with withAlpha, else red, green, blue. `alongside`, when given, runs first on the
// calling thread (it writes the picture encoded before, from another buffer); the blocks go to whichever thread is
// free, so the other threads encode meanwhile and the calling one joins them when its writing is done.
void Encode(const COLImage& image, bool withAlpha, CEncoded& out, const std::function<void()>& alongside = {})
{
    const int channels = withAlpha ? 4 : 3;
    const uint32_t w = image.GetWidth(), h = image.GetHeight();
    out.channels = channels;
    out.height = h;
    out.rowLengths.assign(size_t(channels) * h, 0);
    out.blockCount = (h + kRowsPerBlock - 1) / kRowsPerBlock;
    out.slot = PackBitsBound(w) * kRowsPerBlock;
    out.used.assign(out.blockCount * size_t(channels), 0);
    const size_t need = out.slot * out.blockCount * size_t(channels);
    if (need > out.arenaSize) {
        const size_t size = (need + vmrt::kHugePage - 1) / vmrt::kHugePage * vmrt::kHugePage;
        out.arena.reset(static_cast<uint8_t*>(std::aligned_alloc(vmrt::kHugePage, size)));
        if (!out.arena) throw std::bad_alloc();
        vmrt::PreferHugePages(out.arena.get(), size);
        out.arenaSize = need;
    }
    std::atomic<size_t> next{0};
    vmpar::ParallelFor(vmpar::WorkerCount(), 1, [&](size_t, size_t, unsigned part) {
        if (part == 0 && alongside) alongside();
        std::vector<uint8_t> rows(size_t(w) * 4);
        uint8_t* plane[4] = {rows.data(), rows.data() + w, rows.data() + 2 * size_t(w), rows.data() + 3 * size_t(w)};
        for (size_t b; (b = next.fetch_add(1, std::memory_order_relaxed)) < out.blockCount;) {
            const uint32_t y0 = uint32_t(b * kRowsPerBlock);
            const uint32_t y1 = std::min<uint32_t>(h, y0 + uint32_t(kRowsPerBlock));
            for (uint32_t y = y0; y < y1; ++y) {
                // One pass over the row splits it into its planes.
                const CPixel* src = image.GetBuffer(0, y);
                if (withAlpha)
                    SplitRow(src, w, plane[0], plane[1], plane[2], plane[3]);
                else
                    SplitRow(src, w, nullptr, plane[0], plane[1], plane[2]);
                for (int c = 0; c < channels; ++c) {
                    size_t& used = out.used[b * size_t(channels) + size_t(c)];
                    const size_t n = EncodePackBits(out.Slot(b, c) + used, plane[c], w);
                    out.rowLengths[size_t(c) * h + y] = static_cast<uint16_t>(n);
                    used += n;
                }
            }
        }
    });
}

// Writes channel c: compression 1, its row table, its rows.
bool WriteChannel(CSafeFileWriter& file, const CEncoded& e, int c)
{
    psd::CByteSink table;
    table.U16(1);
    for (uint32_t y = 0; y < e.height; ++y)
        table.U16(e.rowLengths[size_t(c) * e.height + y]);
    if (!file.Write(table.Data(), table.Size())) return false;
    for (size_t b = 0; b < e.blockCount; ++b)
        if (!file.Write(e.Slot(b, c), e.used[b * size_t(e.channels) + size_t(c)])) return false;
    return true;
}

void Put32(CSafeFileWriter& file, long at, uint32_t v)
{
    const uint8_t b[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    file.Seek(at);
    file.Write(b, 4);
}

long Failed(std::string* reason, const char* text)
{
    if (reason) *reason = text;
    return kFail;
}

} // namespace

long WriteLayeredPsd(const std::string& path, const CLayerStack& stack, std::string* reason)
{
    const int count = stack.GetLayerCount();
    if (count < 1 || stack.GetWidth() < 1 || stack.GetHeight() < 1) return Failed(reason, "the document is empty");
    try {
        psd::CByteSink head;
        head.Text("8BPS");
        head.U16(1);
        head.Zeros(6);
        head.U16(3);
        head.U32(static_cast<uint32_t>(stack.GetHeight()));
        head.U32(static_cast<uint32_t>(stack.GetWidth()));
        head.U16(8);
        head.U16(3);
        head.U32(0); // colour mode data
        head.U32(0); // image resources
        const size_t sectionAt = head.Size();
        head.U32(0); // layer and mask information length, patched below
        head.U32(0); // layer information length, patched below
        head.U16(static_cast<uint32_t>(count));

        // Records, with channel lengths patched once the data is written.
        std::vector<size_t> lengthAt; // 4 per layer
        for (int i = 0; i < count; ++i) {
            const CLayer* layer = stack.GetLayer(i);
            const int32_t top = layer->m_y, left = layer->m_x;
            const bool empty = layer->m_image.IsNull();
            const int32_t bottom = top + (empty ? 0 : int32_t(layer->m_image.GetHeight()));
            const int32_t right = left + (empty ? 0 : int32_t(layer->m_image.GetWidth()));
            head.U32(uint32_t(top));
            head.U32(uint32_t(left));
            head.U32(uint32_t(bottom));
            head.U32(uint32_t(right));
            head.U16(4);
            for (int id : {-1, 0, 1, 2}) {
                head.U16(static_cast<uint16_t>(id));
                lengthAt.push_back(head.Size());
                head.U32(2);
            }
            head.Text("8BIM");
            head.Text(psd::BlendKeyOfMode(layer->m_blendMode));
            head.U8(layer->m_opacity);
            head.U8(0);
            head.U8(i > 0 && !layer->m_visible ? 0x02 : 0x00);
            head.U8(0);
            psd::CByteSink extra;
            extra.U32(0);
            extra.U32(40);
            for (int k = 0; k < 10; ++k)
                extra.U32(0x0000FFFF);
            psd::AppendLayerName(extra, std::string_view(layer->m_name, strnlen(layer->m_name, kLayerNameBytes)));
            head.U32(static_cast<uint32_t>(extra.Size()));
            head.Text(std::string_view(reinterpret_cast<const char*>(extra.Data()), extra.Size()));
        }

        CSafeFileWriter file;
        if (!file.Open(path)) return Failed(reason, "cannot create the file (folder missing or no permission)");
        file.Write(head.Data(), head.Size());
        // Two buffers: one layer is written from one while the next is encoded into the other.
        CEncoded buffers[2];
        CEncoded* pending = nullptr; // encoded, not yet written
        int pendingLayer = -1;
        const auto writePending = [&] {
            if (!pending) return;
            for (int c = 0; c < 4; ++c) {
                WriteChannel(file, *pending, c);
                const long end = file.Tell();
                Put32(file, long(lengthAt[size_t(pendingLayer) * 4 + size_t(c)]),
                      uint32_t(2 + 2 * uint64_t(pending->height) + pending->ChannelBytes(c)));
                file.Seek(end);
            }
            file.StartWriteback(); // the disk takes this layer while the next one is encoded
            pending = nullptr;
        };
        const auto freeBuffer = [&]() -> CEncoded& { return pending == &buffers[0] ? buffers[1] : buffers[0]; };
        for (int i = 0; i < count; ++i) {
            const CLayer* layer = stack.GetLayer(i);
            if (layer->m_image.IsNull()) {
                writePending();
                const uint8_t raw[8] = {};
                file.Write(raw, sizeof raw); // four empty channels: a compression word each
                continue;
            }
            CEncoded& e = freeBuffer();
            Encode(layer->m_image, true, e, writePending);
            pending = &e;
            pendingLayer = i;
        }
        // The last layer, then the end of the layer information.
        const auto finishLayers = [&] {
            writePending();
            long end = file.Tell();
            uint32_t layerInfo = uint32_t(end - long(sectionAt) - 8);
            if (layerInfo % 2) { // the layer information is padded to an even length
                const uint8_t zero = 0;
                file.Write(&zero, 1);
                ++layerInfo;
            }
            const uint8_t globalMask[4] = {};
            file.Write(globalMask, 4);
            end = file.Tell();
            Put32(file, long(sectionAt), layerInfo + 8);
            Put32(file, long(sectionAt) + 4, layerInfo);
            file.Seek(end);
        };

        // The merged picture, opaque as the program shows it. It is merged only now, while the disk takes the
        // layers handed to it above, and encoded while the last layer is written. A failure still leaves no file:
        // the temporary is removed unless committed.
        COLImage composite;
        const COLImage& base = stack.GetLayer(0)->m_image; // the merge keeps a buffer of the right size
        if (!base.IsNull() && composite.Create(base.GetWidth(), base.GetHeight()) == kOk)
            vmrt::PreferHugePages(composite.GetBuffer(), composite.GetAreaByteSize());
        if (!MergeLayers(&stack, &composite, 0)) return Failed(reason, "out of memory");
        CEncoded& e = freeBuffer();
        Encode(composite, false, e, finishLayers);
        const uint8_t rle[2] = {0, 1};
        file.Write(rle, 2);
        for (int c = 0; c < 3; ++c) {
            psd::CByteSink table;
            for (uint32_t y = 0; y < e.height; ++y)
                table.U16(e.rowLengths[size_t(c) * e.height + y]);
            file.Write(table.Data(), table.Size());
        }
        for (int c = 0; c < 3; ++c)
            for (size_t b = 0; b < e.blockCount; ++b)
                file.Write(e.Slot(b, c), e.used[b * 3 + size_t(c)]);
        if (!file.Commit()) return Failed(reason, "the write failed (disk full or no permission)");
    } catch (const std::bad_alloc&) {
        return Failed(reason, "out of memory");
    }
    return kOk;
}
