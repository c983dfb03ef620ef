#pragma once

#include <string>

class CLayerStack;

// Writes a whole composition as a layered Photoshop document, so that other editors get its layers:
// every layer bottom to top with its name (GBK, and a Unicode copy for names that are not ASCII), position,
// size, opacity, blend-mode key, visibility and transparency, its channels PackBits-compressed; then the merged
// picture as this program composites it (opaque, RGB, PackBits). The base layer is written visible. Layer masks,
// saved selections and the selection mask are not written.
// Returns kOk, or kFail with a reason when given: an empty stack, no memory, or a failed write (which leaves no
// file, and an older one untouched).
long WriteLayeredPsd(const std::string& path, const CLayerStack& stack, std::string* reason = nullptr);
