#pragma once

#include <atomic>

#include "document/compose_document.h"

// A view with a fixed zoom and origin that counts the redraws and merge reports the document sends it.
class CFakeView : public ICanvasView {
public:
    double GetZoom() const override { return zoom; }
    CViewPoint GetOrigin() const override { return origin; }
    void Redraw() override { ++redraws; }
    void PostMergeDone() override { ++posted; }

    double zoom = 1.0;
    CViewPoint origin;
    int redraws = 0;
    std::atomic<int> posted{0};
};
