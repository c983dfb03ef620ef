#pragma once

#include <cstdint>
#include <string>

#include "document/compose_document.h"
#include "effects/lens_blur.h"
#include "imaging/rect.h"

class IHistorySink;
class CLayerStack;

// The lens blur dialog without its window: settings, the synthetic depth map, the reduced preview document, the
// two ways in and the final run with its history step. The window (combos, sliders, the depth panel and the
// preview) drives this object and paints from it.

// Depth modes and aperture shapes, as the dialog's combos list them.
enum : int { kDepthFlat = 0, kDepthTunnel = 1, kDepthHorizon = 2 };
enum : int { kApertureOctagon = 0, kApertureHexagon = 1, kApertureCircle = 2 };

// The dialog's settings with their initial values, and the controls' ranges.
struct LensBlurSettings {
    int depthMode = kDepthFlat;           // 0 "平面", 1 "隧道灭点", 2 "地平线"
    int apertureShape = kApertureHexagon; // 0 "八角", 1 "六角", 2 "普通圆"
    int focus = 0;                        // -10..100; only used when depthMode is above 0 (but see BuildDepthMap)
    int highlightAmplitude = 0;           // 0..100
    int radius = 2;                       // 1..64
    int highlightThreshold = 250;         // 200..255
    int useMask = 0;                      // take the document's mask as the foreground
    int recordHistory = 1;                // the dialog writes its own history step
};
inline constexpr int kFocusMin = -10, kFocusMax = 100;
inline constexpr int kRadiusMin = 1, kRadiusMax = 64;
inline constexpr int kThresholdMin = 200, kThresholdMax = 255;
inline constexpr int kAmplitudeMin = 0, kAmplitudeMax = 100;

// The two entries: the menu command blurs the current layer and records the step; the selection-result wizard
// blurs the layer below the foreground with the document's mask and leaves the history to the wizard.
LensBlurSettings MenuEntrySettings();
LensBlurSettings WizardEntrySettings();
// The wizard's way in: refused (false) on the base layer; otherwise the layer below becomes current and the old
// index is kept in savedIndex.
bool BeginWizardEntry(CLayerStack& document, int& savedIndex);
// ... and out: the mask is cleared, the layer index restored and the document composited again.
void EndWizardEntry(CComposeDocument& document, int savedIndex);

// The depth panel in dialog pixels, and the thumbnail inside it: deflated by an eighth of the panel on every
// side and letterboxed to the picture's proportions. The window lays its panel out at kDepthPanel.
inline constexpr CRect kDepthPanel{10, 10, 266, 202};
CRect ThumbnailRect(const CRect& panel, int imageWidth, int imageHeight);

// The picture shown in the depth panel in modes 1 and 2: the image scaled (bicubic) to the thumbnail's size, each
// channel lightened halfway to white so that the perspective figure drawn over it stays visible. False when the
// thumbnail is empty or memory runs out.
bool MakeDepthThumbnail(const COLImage& image, const CRect& thumbnail, COLImage& picture);

// What the depth map is built from. The vanishing point is in dialog coordinates, the horizon row in rows of the
// picture the map is made for.
struct DepthMapInput {
    int mode = kDepthFlat;
    int focus = 0;
    CRect panel = kDepthPanel;
    CRect thumbnail;
    int vanishX = 0, vanishY = 0;
    int horizonRow = 0;
};

// Distance of picture pixel (x, y) from the vanishing point, 0..255 at the panel's edges: a rectangular pyramid.
int TunnelDistance(const DepthMapInput& in, int x, int y, int width, int height);
// Fills depth (created at width x height): 255 far from focus, 0 sharp. A horizon at or below the last row, a
// vanishing point outside the panel or a picture of one pixel do not divide by zero: where no distance can be
// measured, every pixel counts as lying at the horizon or vanishing point. False when memory runs out.
bool BuildDepthMap(const DepthMapInput& in, uint32_t width, uint32_t height, COLChannel& depth);

// The preview's size: the document's own when both sides are below 512, else 512 on the longer side.
void PreviewSize(int width, int height, int& previewWidth, int& previewHeight, double& scale);
// Copies every layer, scaled to the preview size (method 1), with the mask, into preview, and composites it.
bool MakePreviewDocument(const CLayerStack& document, CComposeDocument& preview, double& scale);

// The aperture picture: 64 x 64, blue, green and red bytes the octagon, hexagon and circle masks.
// "" on success, else the reason.
std::string LoadAperturePicture(const std::string& path, COLImage& picture);
bool ApertureShape(const COLImage& picture, int shape, COLChannel& aperture);

class CLensBlurDlgLogic {
public:
    // Builds the preview document from the document and places the vanishing point and horizon at the preview's
    // centre. False (the dialog cancels itself) when the preview cannot be made or the aperture picture is not
    // 64 x 64.
    bool Init(const CLayerStack& document, const COLImage& aperturePicture);

    // A click in the depth panel (dialog coordinates): the vanishing point in mode 1, the horizon row in mode 2.
    // Other modes ignore it. Points outside the thumbnail are kept as they are: they lie outside the picture.
    void ClickDepthPanel(int dialogX, int dialogY);
    // The same point given in pixels of the full document, as the command line takes it.
    void SetPointInDocument(int x, int y);

    // The depth map at preview size from the settings and the points.
    bool BuildPreviewDepth();
    // One preview run on the calling thread: the preview's current layer gets the blurred picture.
    long RunPreview();
    // The final run on the document's current layer, called directly: kOk, or kFail with the reason key
    // "except" (no picture, memory, or a foreground mask of another size than the layer), the document then
    // unchanged. With recordHistory a step of kind 4 labelled "lensblur" is added.
    long RunFinal(CComposeDocument& document, IHistorySink* history, ProgressCallback progress = {});

    // The same two runs cut around a worker thread, for the window. Prepare* fills params and points the process
    // at its pictures; the caller then runs GetProcess() with params (on the worker; nothing here is touched
    // until it has returned) and hands the result to Finish*. A preview whose run failed or was cancelled is
    // simply not finished.
    bool PreparePreview(LensBlurParams& params);
    void FinishPreview();
    // False (key "except") when the layer cannot be copied, the depth map cannot be made or resized, or the mask
    // does not cover the layer. The preview document stays until FinishFinal, so that a cancelled or failed run
    // can go back to the dialog.
    bool PrepareFinal(const CComposeDocument& document, LensBlurParams& params);
    // After a run that returned kOk: the layer takes the result, the step is recorded, the document composited.
    long FinishFinal(CComposeDocument& document, IHistorySink* history);
    CLensBlurProcess& GetProcess() { return m_process; }

    LensBlurSettings settings;

    const CComposeDocument& GetPreviewDocument() const { return m_previewDocument; }
    CComposeDocument& PreviewDocument() { return m_previewDocument; }
    const COLChannel& GetPreviewDepth() const { return m_previewDepth; }
    double GetPreviewScale() const { return m_previewScale; }
    const CRect& GetThumbnail() const { return m_thumbnail; }
    int GetVanishX() const { return m_vanishX; }
    int GetVanishY() const { return m_vanishY; }
    int GetHorizonRow() const { return m_horizonRow; }

private:
    DepthMapInput DepthInput() const;
    bool FillParams(LensBlurParams& params) const;

    CComposeDocument m_previewDocument{0};
    COLImage m_aperturePicture;
    COLImage m_previewSource;
    COLImage m_previewResult;
    COLChannel m_previewDepth;
    COLChannel m_fullDepth;
    COLImage m_finalResult;
    double m_previewScale = 1.0;
    int m_documentWidth = 0, m_documentHeight = 0;
    CRect m_thumbnail;
    int m_vanishX = 0, m_vanishY = 0; // dialog coordinates
    int m_horizonRow = 0;             // preview rows
    CLensBlurProcess m_process;
};
