#pragma once

#include <cstddef>
#include <string>

#include "interchange/export.h"

class CLayerStack;
class COLChannel;
class COLImage;

// What the save dialog offers, and which writer, file filter and extension each choice takes. The dialog is a
// window; everything it decides is here, without one, so that it is tested headless.

enum class ESaveChoice {
    kProject,       // the document as a project, with or without its history
    kCompositePng,  // the composed picture with its transparency
    kCompositeJpeg, // the composed picture, through the JPEG quality dialog
    kCompositeBmp,
    kCompositeTiff,
    kCompositeTga,
    kCompositePsd, // the composed picture as a one-layer Photoshop document, pixels exact
    kLayeredPsd,   // every layer as a Photoshop layer
    kLayerPng,     // the current layer (or the cut-out of selection mode) with its transparency
    kLayerPsd,     // the same as a one-layer Photoshop document
};

// Who writes the file.
enum class ESaveWriter {
    kProject,     // the document session (the project stream)
    kExportTable, // ExportPicture, by the extension
    kPsdOneLayer, // SavePsd
    kPsdLayered,  // WriteLayeredPsd
};

// What is written.
enum class ESaveSource {
    kDocument,     // the whole layer stack
    kComposite,    // the layers merged into one picture
    kLayerPicture, // the current layer's pixels as they stand (without its position), or the cut-out
};

struct SaveChoiceInfo {
    ESaveChoice choice;
    ESaveWriter writer;
    ESaveSource source;
    // The file dialog's filter in the table's form ("name|*.ext||"); for the project the string key of its filter.
    const char* filter;
    bool filterIsKey;
    const char* extension; // without the dot
    const char* label;     // the button's text (format names are not translated)
    const char* failureKey;
};

size_t SaveChoiceCount();
// Every choice, in the order the dialog lays them out.
const SaveChoiceInfo& GetSaveChoice(size_t index);
const SaveChoiceInfo& DescribeSaveChoice(ESaveChoice choice);

// Whether the dialog offers a choice. layerOnly: opened for the layer export alone (only the two layer choices).
// The layer choices are meant for the layers above the background: they are offered when layerOnly is set or the
// current layer's index is above 0.
bool IsSaveChoiceOffered(ESaveChoice choice, bool layerOnly, int currentLayerIndex);

// The name the file gets: the name itself when it already ends in the choice's extension (in any case), else the
// name with it added ("cut" and "cut.final" give "cut.png" and "cut.final.png"; "cut.jpg" for PNG gives
// "cut.jpg.png": the button chose the format, and the name must say what the file holds).
std::string SavePathFor(const std::string& path, ESaveChoice choice);

// The pictures a choice may need; only those of the choice's source must be set.
struct SaveSources {
    const CLayerStack* stack = nullptr;     // kDocument
    const COLImage* composite = nullptr;    // kComposite
    const COLImage* layerPicture = nullptr; // kLayerPicture
    const char* gbkLayerName = nullptr;     // the one-layer PSD's layer name; null gives the default name
};

// Writes an image choice (every choice but the project) to SavePathFor(path). Every writer writes a temporary
// file in the folder and renames it at the end, so a failure leaves an older file of that name intact.
// Returns kOk, or kFail (nothing to write, unknown choice, folder missing or not writable, disk full).
long WriteSaveChoice(ESaveChoice choice, const std::string& path, const SaveSources& sources,
                     const ExportOptions& options = {});

// The document as one picture, as the canvas shows it: the colours of the merged layers, and as alpha the
// coverage: the base's alpha with every visible layer's alpha (times its opacity / 255) laid over it,
// cover + a x (255 - cover) / 255, truncated. The caller holds the document lock when another thread may change
// the stack. False when there are no layers or memory runs out.
bool ComposeForSave(const CLayerStack& stack, COLImage& out);

// The cut-out of selection mode as one picture: the working image's colours with the selection plane's bytes as
// alpha. Fails (false, out untouched) when there is no working image or the plane's size differs.
bool BuildSelectionExport(const COLImage& working, const COLChannel& plane, COLImage& out);

// The value the JPEG writer takes from the quality dialog: quality 0 counts as 1, and full-resolution colour
// adds 100 (101..200).
int JpegWriterQuality(int quality, bool highColour);
