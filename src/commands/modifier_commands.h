#pragma once

#include <cstdint>

#include "effects/selection_modifiers.h"
#include "effects/selection_paint.h"

struct CCommandContext;
class CSegmentProcess;

// The commands that change the selection as a whole or paint it onto the current layer. Each works on a copy and
// changes the document only when it succeeded, asks for a new composite and records its step. False when refused.

// Expand (amount above 0) or shrink (below 0) the selection mask by |amount| pixels, 1..32. A mask left empty is
// freed and recorded as "His_selectnone"; otherwise the step carries the dialog's caption ("expanddlg" or
// "selshink"). Refused without a mask.
bool ExpandSelection(CCommandContext& context, int32_t amount);

// The feather of composition: the mask blurred at sigma value x 0.5, value 1..999; "His_Feature".
bool FeatherSelection(CCommandContext& context, int32_t value);

// The feather of selection mode, on the result mask of the selection document through the host: radius 0..8;
// a step of the selection log for the result mask, "His_Feature". Refused outside selection mode or without a
// result mask.
bool FeatherResultMask(CCommandContext& context, const FeatherRecord& record);

// The selection shrunk to the segments that lie wholly inside it; "smartin". engine, when given, runs the
// segmentation (progress and cancel).
bool DeflateSelection(CCommandContext& context, CSegmentProcess* engine = nullptr);

// Fill: a layer above the current one painted with the colour where the mask is, merged down; the current layer
// (unless it is the base) trimmed to its content; step kind 4, "fill". Without a selection an empty layer is
// merged and the step written all the same. Refused at the layer limit or without memory, leaving the document
// as it was.
bool FillSelection(CCommandContext& context, const FillSettings& settings);

// Stroke: the band between the mask and the mask expanded by the width, merged down; step kind 4, "stroke".
bool StrokeSelection(CCommandContext& context, const StrokeSettings& settings);

// Reads a colour argument "RRGGBB" (six hex digits, an optional leading '#') into a pixel word with alpha 255.
bool ParseColourArg(const char* text, uint32_t& colour);
