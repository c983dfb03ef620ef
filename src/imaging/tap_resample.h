#pragma once

#include <cstdint>
#include <functional>

class COLImage;
struct CPixel;

// The codec's resample (COLImageCodec::Resample, method 1): along an axis that shrinks, each output sample is the
// area average of the source samples it covers; along one that grows, it is bilinear with pixel centres aligned
// and the ends held. Weights are 14-bit fixed point summing to exactly 1 << 14, so flat areas stay flat and a
// resample to the same size is exact; between the horizontal and the vertical pass values keep 6 extra bits.
//
// The two passes run together, band by band of output rows: each part of the parallel loop works out the
// horizontal pass of a source row when an output row first needs it and keeps the last two, so nothing of the
// size of the picture is held between the passes.
namespace vmresample {

// Called with each output row once all four bytes of its pixels are written, from the part of the parallel loop
// that wrote it, in the order of rows within that part.
using RowFinisher = std::function<void(uint32_t y, CPixel* row)>;
// Makes one RowFinisher per part of the loop, so that each part keeps its own working rows.
using RowFinisherFactory = std::function<RowFinisher()>;

// Resamples source into target, which must already have its output size and must not be source. finishers may
// be null. The bytes do not depend on the split or the vector level. Throws std::bad_alloc when memory runs out.
void ResampleInto(const COLImage& source, COLImage& target, const RowFinisherFactory* finishers = nullptr);

} // namespace vmresample
