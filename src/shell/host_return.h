#pragma once

#include <cstdint>
#include <string>

class CSelectionDocument;
class CToolBar;
class IUiServices;

// A host editor's plug-in started the program ("-i", a method digit and its exchange file): the picture came from
// that file, the selection work is the whole visit, and its end sends the cut-out back through the same file and
// ends the program. Nothing here ends the program itself: the answers say whether the window should go.
namespace hostret {

// What the host handed over at the start.
struct HostLink {
    std::string path;      // the exchange file; the picture came from it and the result goes back to it
    uint32_t channels = 3; // bytes a pixel of the host's file: 3 asks for a PSD at path + ".24bit.psd"
};

enum class EHostEnd {
    kStay, // the selection work goes on
    kEnd,  // the program is to end (status 0), with the result written or deliberately without one
};

// The selection method a host asks for by digit: 0 chroma key, 1 inner and outer contours; any other digit
// none (0): the picture stays in compose mode.
int MethodForDigit(int digit);

// Whether there is a cut-out to send: a result mask with at least one pixel below 255 (a mask that keeps
// everything is no cut-out).
bool HasResult(CSelectionDocument& selection);

// The end of the selection work with its result wanted ("confirm and return", the large button, closing the
// window): the "pluginask" question. Cancel goes on editing; No ends without a result; Yes writes the working
// image with the result mask as alpha to the host's file (WriteHostResult, in the form the host's channels ask
// for) and ends. Without a cut-out Yes has nothing to send and the work goes on. A write that fails shows
// "saveerr" and the work goes on with everything in it, so the user can try again or save it another way.
EHostEnd ReturnResult(CToolBar& bar, IUiServices& services, const HostLink& link);

// "Cancel and return": the host gets nothing. Work that would be lost is asked about first ("dropcutout").
EHostEnd CancelWork(CToolBar& bar, IUiServices& services);

} // namespace hostret
