#pragma once

#include <algorithm>

// A rectangle in pixels: left and top inclusive, right and bottom exclusive.
struct CRect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    int Width() const { return right - left; }
    int Height() const { return bottom - top; }
    bool IsEmpty() const { return right <= left || bottom <= top; }
    bool Contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
    // Swaps the sides so that left <= right and top <= bottom.
    void Normalize()
    {
        if (left > right) std::swap(left, right);
        if (top > bottom) std::swap(top, bottom);
    }
    bool operator==(const CRect&) const = default;
};
