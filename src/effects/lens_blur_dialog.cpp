#include "effects/lens_blur_dialog.h"

#include <algorithm>
#include <memory>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "effects/image_size.h"
#include "filters/resample.h"
#include "imaging/codec.h"

namespace {

constexpr int kPreviewSide = 512;

} // namespace

LensBlurSettings MenuEntrySettings()
{
    LensBlurSettings s;
    s.useMask = 0;
    s.recordHistory = 1;
    return s;
}

LensBlurSettings WizardEntrySettings()
{
    LensBlurSettings s;
    s.useMask = 1;
    s.recordHistory = 0;
    return s;
}

bool BeginWizardEntry(CLayerStack& document, int& savedIndex)
{
    savedIndex = document.GetCurrentIndex();
    if (savedIndex <= 0 || savedIndex >= document.GetLayerCount()) return false;
    document.SetCurrentIndex(savedIndex - 1);
    return true;
}

void EndWizardEntry(CComposeDocument& document, int savedIndex)
{
    {
        CStackLock lock(document);
        document.GetSelectionMask().Free();
    }
    document.SetCurrentIndex(savedIndex);
    document.Refresh();
}

CRect ThumbnailRect(const CRect& panel, int imageWidth, int imageHeight)
{
    const int dx = panel.Width() / 8, dy = panel.Height() / 8;
    const CRect box{panel.left + dx, panel.top + dy, panel.right - dx, panel.bottom - dy};
    if (imageWidth < 1 || imageHeight < 1) return box;
    int w = box.Width(), h = box.Height();
    if (int64_t(imageWidth) * box.Height() > int64_t(imageHeight) * box.Width())
        h = static_cast<int>(int64_t(imageHeight) * box.Width() / imageWidth);
    else
        w = static_cast<int>(int64_t(imageWidth) * box.Height() / imageHeight);
    const int left = box.left + (box.Width() - w) / 2, top = box.top + (box.Height() - h) / 2;
    return CRect{left, top, left + w, top + h};
}

bool MakeDepthThumbnail(const COLImage& image, const CRect& thumbnail, COLImage& picture)
{
    if (thumbnail.IsEmpty() || !ScaleImage(image, picture, thumbnail.Width(), thumbnail.Height(), kScaleBicubic))
        return false;
    CPixel* p = picture.GetBuffer();
    for (size_t i = 0, n = picture.GetPixelCount(); i < n; ++i) {
        p[i].blue = uint8_t((p[i].blue + 255) / 2);
        p[i].green = uint8_t((p[i].green + 255) / 2);
        p[i].red = uint8_t((p[i].red + 255) / 2);
    }
    return true;
}

int TunnelDistance(const DepthMapInput& in, int x, int y, int width, int height)
{
    const CRect& t = in.thumbnail;
    const CRect& g = in.panel;
    const int px = t.Width() * x / std::max(width, 1) + t.left;
    const int py = t.Height() * y / std::max(height, 1) + t.top;
    const int cx = in.vanishX, cy = in.vanishY;
    // Measured to the panel's edges. A vanishing point outside the panel can make a span empty or negative;
    // no pixel then lies on that side of it, and a span of at least 1 keeps the division defined.
    const int dx =
        px <= cx ? (cx - px) * 255 / std::max(cx - g.left + 1, 1) : (px - cx) * 255 / std::max(g.right - cx + 1, 1);
    const int dy =
        py <= cy ? (cy - py) * 255 / std::max(cy - g.top + 1, 1) : (py - cy) * 255 / std::max(g.bottom - cy + 1, 1);
    return std::max(dx, dy);
}

bool BuildDepthMap(const DepthMapInput& in, uint32_t width, uint32_t height, COLChannel& depth)
{
    if (width < 1 || height < 1 || depth.Create(width, height) != kOk) return false;
    const int w = int(width), h = int(height);
    int maxDistance = 255;
    if (in.mode == kDepthTunnel) {
        maxDistance = 0;
        for (const auto& [x, y] : {std::pair{0, 0}, std::pair{w, 0}, std::pair{0, h}, std::pair{w, h}})
            maxDistance = std::max(maxDistance, TunnelDistance(in, x, y, w, h));
    } else if (in.mode == kDepthHorizon) {
        maxDistance = h - in.horizonRow;
    }
    const int f = in.focus * 255 / 100;
    for (int y = 0; y < h; ++y) {
        uint8_t* row = depth.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < w; ++x) {
            int t = 0;
            if (in.mode == kDepthTunnel)
                t = TunnelDistance(in, x, y, w, h);
            else if (in.mode == kDepthHorizon)
                t = std::max(0, y - in.horizonRow);
            // No distance to measure (a horizon at or below the last row): the pixel lies at the horizon.
            const int u = maxDistance > 0 ? std::min(t * 255 / maxDistance, 255) : 0;
            const int d = 255 - u;
            int value;
            if (f > 0) {
                if (d > f)
                    value = (d - f) * 255 / (255 - f);
                else
                    value = static_cast<int>(((f - d) * 255) / (f * 1.3)); // the near side blurs more slowly
            } else {
                value = std::min(d - f, 255);
            }
            row[x] = static_cast<uint8_t>(value);
        }
    }
    return true;
}

void PreviewSize(int width, int height, int& previewWidth, int& previewHeight, double& scale)
{
    if (width < kPreviewSide && height < kPreviewSide) {
        previewWidth = width;
        previewHeight = height;
        scale = 1.0;
    } else if (width > height) {
        previewWidth = kPreviewSide;
        previewHeight = std::max(1, height * kPreviewSide / width);
        scale = double(kPreviewSide) / width;
    } else {
        previewHeight = kPreviewSide;
        previewWidth = std::max(1, width * kPreviewSide / height);
        scale = double(kPreviewSide) / height;
    }
}

bool MakePreviewDocument(const CLayerStack& document, CComposeDocument& preview, double& scale)
{
    preview.Clear();
    const int W = document.GetWidth(), H = document.GetHeight();
    if (document.GetLayerCount() == 0 || W < 1 || H < 1) return false;
    int pw = 0, ph = 0;
    PreviewSize(W, H, pw, ph, scale);
    const double rx = double(pw) / W, ry = double(ph) / H;
    preview.SetSize(pw, ph);
    for (int i = 0; i < document.GetLayerCount(); ++i) {
        const CLayer* from = document.GetLayer(i);
        auto layer = std::make_unique<CLayer>();
        std::copy(std::begin(from->m_name), std::end(from->m_name), layer->m_name);
        layer->m_opacity = from->m_opacity;
        layer->m_blendMode = from->m_blendMode;
        layer->m_visible = from->m_visible;
        if (i == 0) {
            if (!ScaleImage(from->m_image, layer->m_image, pw, ph, kScaleBilinear)) return false;
        } else {
            layer->m_x = static_cast<int>(from->m_x * rx);
            layer->m_y = static_cast<int>(from->m_y * ry);
            if (!from->m_image.IsNull() &&
                !ScaleImage(from->m_image, layer->m_image, static_cast<int>(from->m_image.GetWidth() * rx),
                            static_cast<int>(from->m_image.GetHeight() * ry), kScaleBilinear))
                return false;
        }
        if (!preview.InsertLayer(layer.release(), i - 1)) return false;
    }
    const COLChannel& mask = document.GetSelectionMask();
    if (!mask.IsNull() && !ResampleChannel(&mask, &preview.GetSelectionMask(), pw, ph)) return false;
    preview.SetCurrentIndex(document.GetCurrentIndex());
    preview.MergeNow();
    return true;
}

std::string LoadAperturePicture(const std::string& path, COLImage& picture)
{
    COLImageCodec codec;
    if (!codec.LoadFile(path.c_str(), &picture)) return "cannot read the aperture picture " + path;
    if (picture.GetWidth() != uint32_t(CLensBlurProcess::kApertureSide) ||
        picture.GetHeight() != uint32_t(CLensBlurProcess::kApertureSide))
        return "the aperture picture " + path + " is not 64 x 64";
    return "";
}

bool ApertureShape(const COLImage& picture, int shape, COLChannel& aperture)
{
    if (shape < kApertureOctagon || shape > kApertureCircle) return false;
    return aperture.ExtractFrom(&picture, shape) != 0; // blue, green, red: octagon, hexagon, circle
}

// ---- CLensBlurDlgLogic --------------------------------------------------------------------------------------

bool CLensBlurDlgLogic::Init(const CLayerStack& document, const COLImage& aperturePicture)
{
    if (aperturePicture.GetWidth() != uint32_t(CLensBlurProcess::kApertureSide) ||
        aperturePicture.GetHeight() != uint32_t(CLensBlurProcess::kApertureSide) ||
        !m_aperturePicture.DuplicateFrom(&aperturePicture))
        return false;
    if (!MakePreviewDocument(document, m_previewDocument, m_previewScale)) return false;
    const CLayer* current = m_previewDocument.GetCurrentLayer();
    if (!current || !m_previewSource.DuplicateFrom(&current->m_image)) return false;
    m_documentWidth = document.GetWidth();
    m_documentHeight = document.GetHeight();
    const int pw = m_previewDocument.GetWidth(), ph = m_previewDocument.GetHeight();
    m_thumbnail = ThumbnailRect(kDepthPanel, pw, ph);
    m_vanishX = m_thumbnail.Width() * (pw / 2) / pw + m_thumbnail.left;
    m_vanishY = m_thumbnail.Height() * (ph / 2) / ph + m_thumbnail.top;
    m_horizonRow = ph / 2;
    return true;
}

void CLensBlurDlgLogic::ClickDepthPanel(int dialogX, int dialogY)
{
    if (settings.depthMode == kDepthTunnel) {
        m_vanishX = dialogX;
        m_vanishY = dialogY;
    } else if (settings.depthMode == kDepthHorizon) {
        const int ph = m_previewDocument.GetHeight();
        m_horizonRow = (dialogY - m_thumbnail.top) * ph / std::max(m_thumbnail.Height(), 1);
    }
}

void CLensBlurDlgLogic::SetPointInDocument(int x, int y)
{
    // Into preview pixels, then where the dialog would show that pixel.
    const int px = static_cast<int>(x * m_previewScale), py = static_cast<int>(y * m_previewScale);
    const int pw = std::max(m_previewDocument.GetWidth(), 1), ph = std::max(m_previewDocument.GetHeight(), 1);
    if (settings.depthMode == kDepthTunnel) {
        m_vanishX = static_cast<int>(int64_t(m_thumbnail.Width()) * px / pw + m_thumbnail.left);
        m_vanishY = static_cast<int>(int64_t(m_thumbnail.Height()) * py / ph + m_thumbnail.top);
    } else if (settings.depthMode == kDepthHorizon) {
        m_horizonRow = py;
    }
}

DepthMapInput CLensBlurDlgLogic::DepthInput() const
{
    DepthMapInput in;
    in.mode = settings.depthMode;
    in.focus = settings.focus;
    in.thumbnail = m_thumbnail;
    in.vanishX = m_vanishX;
    in.vanishY = m_vanishY;
    in.horizonRow = m_horizonRow;
    return in;
}

bool CLensBlurDlgLogic::BuildPreviewDepth()
{
    const CLayer* current = m_previewDocument.GetCurrentLayer();
    if (!current || current->m_image.IsNull()) return false;
    return BuildDepthMap(DepthInput(), current->m_image.GetWidth(), current->m_image.GetHeight(), m_previewDepth);
}

bool CLensBlurDlgLogic::FillParams(LensBlurParams& params) const
{
    params.highlightThreshold = settings.highlightThreshold;
    params.highlightAmplitude = settings.highlightAmplitude;
    return ApertureShape(m_aperturePicture, settings.apertureShape, params.aperture);
}

bool CLensBlurDlgLogic::PreparePreview(LensBlurParams& params)
{
    if (!BuildPreviewDepth()) return false;
    const CLayer* current = m_previewDocument.GetCurrentLayer();
    if (!current || !FillParams(params)) return false;
    params.depth = &m_previewDepth;
    params.radius = settings.radius * m_previewScale;
    const COLChannel& mask = m_previewDocument.GetSelectionMask();
    params.mask = settings.useMask && !mask.IsNull() ? &mask : nullptr;
    m_process.SetImages(&m_previewSource, &m_previewResult);
    return true;
}

void CLensBlurDlgLogic::FinishPreview()
{
    CLayer* current = m_previewDocument.GetCurrentLayer();
    if (!current || !current->m_image.DuplicateFrom(&m_previewResult)) return;
    m_previewDocument.MergeNow();
}

long CLensBlurDlgLogic::RunPreview()
{
    LensBlurParams params;
    if (!PreparePreview(params)) return kFail;
    const long r = m_process.Process(&params);
    if (r != kOk) return r;
    FinishPreview();
    return kOk;
}

bool CLensBlurDlgLogic::PrepareFinal(const CComposeDocument& document, LensBlurParams& params)
{
    const CLayer* layer = document.GetCurrentLayer();
    if (!layer || layer->m_image.IsNull() || !m_previewSource.DuplicateFrom(&layer->m_image)) return false;
    // The depth map is still made at preview size and brought up to the picture's.
    if (!BuildPreviewDepth()) return false;
    if (!ResampleChannel(&m_previewDepth, &m_fullDepth, int(m_previewSource.GetWidth()),
                         int(m_previewSource.GetHeight())))
        return false;
    if (!FillParams(params)) return false;
    params.depth = &m_fullDepth;
    params.radius = settings.radius;
    params.mask = nullptr;
    const COLChannel& mask = document.GetSelectionMask();
    if (settings.useMask && !mask.IsNull()) {
        // A mask that does not cover the picture pixel for pixel would cut the wrong colours out.
        if (mask.GetWidth() != m_previewSource.GetWidth() || mask.GetHeight() != m_previewSource.GetHeight())
            return false;
        params.mask = &mask;
    }
    // Into a picture of its own, which replaces the layer's only when the run succeeded.
    m_finalResult.Free();
    m_process.SetImages(&m_previewSource, &m_finalResult);
    return true;
}

long CLensBlurDlgLogic::FinishFinal(CComposeDocument& document, IHistorySink* history)
{
    CLayer* layer = document.GetCurrentLayer();
    if (!layer || m_finalResult.IsNull()) return kFail;
    m_previewDocument.Clear();
    {
        CStackLock lock(document);
        layer->m_image = std::move(m_finalResult);
    }
    if (settings.recordHistory && history)
        history->AddStep(&document, kStepLayerHeaderRegion, document.GetCurrentIndex(), "lensblur");
    document.Refresh();
    return kOk;
}

long CLensBlurDlgLogic::RunFinal(CComposeDocument& document, IHistorySink* history, ProgressCallback progress)
{
    LensBlurParams params;
    if (!PrepareFinal(document, params)) return kFail;
    m_process.SetProgressCallback(progress);
    m_process.SetProgressRange(0, 100);
    const long r = m_process.Process(&params);
    m_process.SetProgressCallback({});
    if (r != kOk) {
        m_finalResult.Free();
        return r;
    }
    return FinishFinal(document, history);
}
