#pragma once

struct CCommandContext;

// The selection commands of the compose document. Each changes the selection mask or the current layer under
// the document lock, asks for a new composite and records its step. False when refused.

// Mask 255 everywhere, created at document size when there is none.
bool SelectAll(CCommandContext& context);
// Frees the mask; refused when there is none.
bool SelectNone(CCommandContext& context);
// Every byte v becomes 255 - v (no mask counts as all 0); a mask left all 0 is freed.
bool SelectInverse(CCommandContext& context);
// Deletes the selected part of the current layer (inverse: the unselected part). The base stays opaque and is
// painted with the foreground colour; other layers lose coverage. Without a selection nothing happens (true).
bool DeleteSelection(CCommandContext& context, bool inverse, const char* label);
