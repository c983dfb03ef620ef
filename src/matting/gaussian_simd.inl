// Interior loop of the Gaussian line passes for one instruction set. Included by gaussian.cpp inside a namespace
// that defines Isa (vector type, step and primitives) and VM_KERNEL (the instruction set's target attribute);
// once per instruction set.
//
// Per output byte: acc = w0 c + sum over k of w_k (up_k + down_k), then acc / d by multiply and shift. The pair
// sums fit 16 bits (at most 510), the weights too (at most 2048), so two taps at a time go through one
// multiply-add of 16-bit pairs into 32-bit lanes, which is exact: a whole kernel sums to at most 255 * 2048.

template <int N, int Stride>
VM_KERNEL inline const uint8_t* TapUp(const Taps& t, int k)
{
    if constexpr (Stride > 0)
        return t.centre - Stride * k;
    else
        return t.up[k];
}

template <int N, int Stride>
VM_KERNEL inline const uint8_t* TapDown(const Taps& t, int k)
{
    if constexpr (Stride > 0)
        return t.centre + Stride * k;
    else
        return t.down[k];
}

template <int N, int Stride>
VM_KERNEL void Interior(const Taps& t, uint8_t* out, size_t count, const uint16_t* weights, uint32_t magic)
{
    using V = typename Isa::V;
    constexpr int kPairs = (N + 1) / 2;
    V w[kPairs];
    for (int p = 0; p < kPairs; ++p) {
        const uint32_t a = weights[2 * p], b = 2 * p + 1 < N ? weights[2 * p + 1] : 0;
        w[p] = Isa::Set32(a | (b << 16));
    }
    const V m = Isa::Set32(magic);
    size_t i = 0;
    for (; i + Isa::kStep <= count; i += Isa::kStep) {
        V lo = Isa::Zero(), hi = Isa::Zero();
        for (int p = 0; p < kPairs; ++p) {
            const int k0 = 2 * p, k1 = 2 * p + 1;
            const V s0 = k0 == 0 ? Isa::Widen(t.centre + i)
                                 : Isa::Add16(Isa::Widen(TapUp<N, Stride>(t, k0) + i), Isa::Widen(TapDown<N, Stride>(t, k0) + i));
            const V s1 = k1 < N ? Isa::Add16(Isa::Widen(TapUp<N, Stride>(t, k1) + i), Isa::Widen(TapDown<N, Stride>(t, k1) + i))
                                : Isa::Zero();
            lo = Isa::Add32(lo, Isa::MulAddPairs(Isa::UnpackLo16(s0, s1), w[p]));
            hi = Isa::Add32(hi, Isa::MulAddPairs(Isa::UnpackHi16(s0, s1), w[p]));
        }
        Isa::StoreNarrow(out + i, Isa::MulHigh32(lo, m), Isa::MulHigh32(hi, m));
    }
    for (; i < count; ++i) {
        uint32_t acc = uint32_t(weights[0]) * t.centre[i];
        for (int k = 1; k < N; ++k) acc += uint32_t(weights[k]) * (TapUp<N, Stride>(t, k)[i] + TapDown<N, Stride>(t, k)[i]);
        out[i] = static_cast<uint8_t>((uint64_t(acc) * magic) >> 32);
    }
}

template <int Stride, size_t... I>
constexpr std::array<InteriorFn, GaussianKernel::kMaxTaps + 1> MakeTable(std::index_sequence<I...>)
{
    return {nullptr, &Interior<int(I) + 1, Stride>...};
}

constexpr auto kRows = MakeTable<0>(std::make_index_sequence<GaussianKernel::kMaxTaps>());
constexpr auto kStride1 = MakeTable<1>(std::make_index_sequence<GaussianKernel::kMaxTaps>());
constexpr auto kStride4 = MakeTable<4>(std::make_index_sequence<GaussianKernel::kMaxTaps>());
