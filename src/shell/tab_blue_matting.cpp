#include "shell/tab_blue_matting.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/panels.h"
#include "shell/side_bar.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

QImage ToQImage(const COLImage& image)
{
    if (image.IsNull()) return {};
    return QImage(reinterpret_cast<const uchar*>(image.GetBuffer()), int(image.GetWidth()), int(image.GetHeight()),
                  int(image.GetWidth()) * 4, QImage::Format_ARGB32)
        .copy();
}

// A level's gray over a checkerboard of 4-pixel cells, so that the level reads as coverage.
QColor LevelOverChecker(int level, int x, int y)
{
    const int back = ((x / 4 + y / 4) % 2) ? 0xC0 : 0xFF;
    const int v = (back * (255 - level)) / 255;
    return QColor(v, v, v);
}

} // namespace

// ---- CAlphaHistogram --------------------------------------------------------------------------------------------

CAlphaHistogram::CAlphaHistogram(CBlueMattingLogic& logic, QWidget* parent) : QWidget(parent), m_logic(logic)
{
    setMinimumSize(180, 90);
    setObjectName(QStringLiteral("blue-histogram"));
}

void CAlphaHistogram::SetResult(const COLImage* result)
{
    if (result && !result->IsNull())
        m_bins = CBlueMattingLogic::CleaningHistogram(*result);
    else
        m_bins.clear();
    update();
}

void CAlphaHistogram::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), Qt::black);
    if (m_bins.empty()) {
        p.setPen(Qt::white);
        p.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, Text("nomask"));
        return;
    }
    const int left = Left(), right = Right(), h = height();
    const int highest = std::max(1, *std::max_element(m_bins.begin(), m_bins.end()));
    const int barBottom = h - 17;
    for (int x = left; x < right; ++x) {
        const int level = std::clamp((x - left) * 256 / std::max(1, right - left), 0, 255);
        const int bar = CBlueMattingLogic::BarHeight(m_bins[size_t(level)], highest, h);
        const bool inside = level >= m_logic.levelLow && level <= m_logic.levelHigh;
        p.setPen(inside ? QColor(255, 255, 255) : QColor(0xA0, 0xA0, 0xA0));
        if (bar > 0) p.drawLine(x, barBottom - bar, x, barBottom - 1);
        // The level strip: the input level, a black row, the level after the mapping.
        const int mapped = level < m_logic.levelLow    ? 0
                           : level > m_logic.levelHigh ? 255
                                                       : (level - m_logic.levelLow) * 255 /
                                                             std::max(1, m_logic.levelHigh - m_logic.levelLow);
        for (int y = 0; y < 8; ++y) {
            p.setPen(LevelOverChecker(level, x, y));
            p.drawPoint(x, barBottom + y);
            p.setPen(LevelOverChecker(mapped, x, y));
            p.drawPoint(x, barBottom + 9 + y);
        }
    }
    // The handles: small triangles pointing at their level.
    auto handle = [&](int level, const QColor& colour) {
        const int x = left + level * (right - left) / 256;
        const QPointF tri[3] = {{double(x), double(barBottom - 1)}, {x - 4.0, barBottom - 8.0}, {x + 4.0, barBottom - 8.0}};
        p.setPen(Qt::black);
        p.setBrush(colour);
        p.drawPolygon(tri, 3);
    };
    handle(m_logic.levelLow, QColor(40, 40, 40));
    handle(m_logic.levelHigh, QColor(240, 240, 240));
}

void CAlphaHistogram::mousePressEvent(QMouseEvent* event)
{
    if (m_bins.empty() || event->button() != Qt::LeftButton) return;
    const int x = int(event->position().x());
    const int lowX = Left() + m_logic.levelLow * (Right() - Left()) / 256;
    const int highX = Left() + m_logic.levelHigh * (Right() - Left()) / 256;
    m_dragging = std::abs(x - lowX) <= std::abs(x - highX) ? 1 : 2;
    mouseMoveEvent(event);
}

void CAlphaHistogram::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging) return;
    const int x = int(event->position().x());
    if (m_dragging == 1)
        m_logic.DragLowHandle(x, Left(), Right());
    else
        m_logic.DragHighHandle(x, Left(), Right());
    update();
}

void CAlphaHistogram::mouseReleaseEvent(QMouseEvent*)
{
    if (!m_dragging) return;
    m_dragging = 0;
    if (onLevelsChanged) onLevelsChanged();
}

// ---- CBlueMattingPreview ----------------------------------------------------------------------------------------

void CBlueMattingPreview::StartProcess()
{
    CBkPickerTool& picker = m_page.Picker();
    if (picker.GetPicked().empty() || picker.GetBeforeKey().IsNull()) return;
    m_generation = m_page.m_generation;
    CImageProcess& process = m_run.Prepare(picker.CurrentSettings());
    m_result.Free();
    process.SetImages(picker.BeforeKeySource(), &m_result);
    // A cancel asked of an earlier run that had already ended must not stop this one.
    process.TestAndClearCancel();
    ++m_started;
    m_running = true;
    m_page.m_pProgress->setValue(0);
    m_page.m_pProgress->show();
    m_thread.StartImageProcess(this, &process, m_run.GetParams(), 0, 0, 100, 1);
}

void CBlueMattingPreview::OnProcessProgress(int percent)
{
    m_page.m_pProgress->setValue(percent);
}

void CBlueMattingPreview::OnProcessFinished(uint32_t userValue, long result)
{
    ++m_finished;
    m_running = false;
    m_page.m_pProgress->hide();
    // A run superseded by a newer change, a pick, Apply or Revert shows nothing.
    if (!m_restartPending && result == kOk && !m_result.IsNull() && m_generation == m_page.m_generation &&
        !m_page.Picker().GetPicked().empty()) {
        m_page.m_taking = true;
        if (m_page.Picker().TakeResult(m_result, false)) m_page.OnPreviewShown();
        m_page.m_taking = false;
    }
    m_result.Free();
    DefaultProcDlg::OnProcessFinished(userValue, result);
}

void CBlueMattingPreview::Abandon()
{
    m_restartPending = 0;
    m_thread.WaitIdle();
}

void CBlueMattingPreview::OnClosed()
{
    // Close put the working image back; the mask goes back with it.
    if (m_pChannelTarget && !m_savedChannel.IsNull()) m_pChannelTarget->DuplicateFrom(&m_savedChannel);
}

// ---- CTabBlueMatting --------------------------------------------------------------------------------------------

CTabBlueMatting::CTabBlueMatting(CAppGlobals& app, CToolBar& bar, QWidget* parent)
    : QWidget(parent), m_app(app), m_bar(bar), m_pBarAlive(&bar)
{
    setObjectName(QStringLiteral("tabBlue"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    column->setSpacing(4);

    m_pTabs = new QTabWidget(this);
    // Strength.
    auto* strengthPage = new QWidget;
    auto* strengthCol = new QVBoxLayout(strengthPage);
    m_pStrength = new QSlider(Qt::Horizontal, strengthPage);
    m_pStrength->setObjectName(QStringLiteral("blue-strength"));
    m_pStrength->setRange(0, 100);
    m_pStrength->setValue(50);
    m_pStrength->setToolTip(Text("bluestrengthtip"));
    auto* strengthLabel = new QLabel(Text("tabBlue2"), strengthPage);
    strengthCol->addWidget(strengthLabel);
    strengthCol->addWidget(m_pStrength);
    m_pStrip = new QLabel(strengthPage);
    m_pStrip->setObjectName(QStringLiteral("blue-strip"));
    m_pStrip->setFixedSize(CBlueMattingLogic::kStripWidth / 2 + 40, CBlueMattingLogic::kStripHeight);
    m_pStrip->setScaledContents(true);
    m_pStrip->setToolTip(Text("bluestriptip"));
    strengthCol->addWidget(m_pStrip);
    strengthCol->addStretch(1);
    // Cleaning.
    auto* cleanPage = new QWidget;
    auto* cleanCol = new QVBoxLayout(cleanPage);
    auto* note = new QLabel(Text("bluecleannote"), cleanPage);
    note->setWordWrap(true);
    cleanCol->addWidget(note);
    m_pHistogram = new CAlphaHistogram(m_logic, cleanPage);
    cleanCol->addWidget(m_pHistogram, 1);
    // Options.
    auto* optionPage = new QWidget;
    auto* optionCol = new QVBoxLayout(optionPage);
    auto box = [&](const char* key, const char* name) {
        auto* b = new QCheckBox(Text(key), optionPage);
        b->setObjectName(QString::fromLatin1(name));
        optionCol->addWidget(b);
        return b;
    };
    m_pFeather = box("bluefeather", "blue-feather");
    m_pShadow = box("blueshadow", "blue-shadow");
    m_pRecover = box("bluerecover", "blue-recover");
    m_pJpeg = box("bluejpeg", "blue-jpeg");
    m_pRefine = box("bluerefine", "blue-refine");
    m_pRefine->setToolTip(Text("bluerefinetip"));
    optionCol->addStretch(1);
    m_pTabs->addTab(strengthPage, Text("tabBlue2"));
    m_pTabs->addTab(cleanPage, Text("tabBlue3"));
    m_pTabs->addTab(optionPage, Text("tabBlue1"));
    // The three titles stand side by side in the narrow side bar, without scroll arrows.
    m_pTabs->setUsesScrollButtons(false);
    {
        QFont f = m_pTabs->tabBar()->font();
        f.setPointSizeF(f.pointSizeF() * 0.85);
        m_pTabs->tabBar()->setFont(f);
    }
    column->addWidget(m_pTabs, 1);

    m_pProgress = new QProgressBar(this);
    m_pProgress->setRange(0, 100);
    m_pProgress->setMaximumHeight(10);
    m_pProgress->setTextVisible(false);
    m_pProgress->hide();
    column->addWidget(m_pProgress);
    auto* buttons = new QHBoxLayout;
    m_pApply = new QPushButton(Text("blueapply"), this);
    m_pApply->setObjectName(QStringLiteral("blue-apply"));
    m_pRevert = new QPushButton(Text("bluerevert"), this);
    m_pRevert->setObjectName(QStringLiteral("blue-revert"));
    buttons->addWidget(m_pApply);
    buttons->addWidget(m_pRevert);
    column->addLayout(buttons);
    SetPending(false);

    CProcessThread* worker = app.Worker();
    if (!worker) {
        m_pOwnThread = std::make_unique<CProcessThread>();
        worker = m_pOwnThread.get();
    }
    m_pPreview = std::make_unique<CBlueMattingPreview>(*this, *worker, m_poster);
    SyncWidgets();
    m_applied = Read();

    // The strength counts when the slider is let go (or moved by keys), not at every step of a drag.
    connect(m_pStrength, &QSlider::sliderReleased, this, [this] { OnControlChanged(); });
    connect(m_pStrength, &QSlider::valueChanged, this, [this] {
        if (!m_pStrength->isSliderDown()) OnControlChanged();
    });
    for (QCheckBox* b : {m_pFeather, m_pShadow, m_pRecover, m_pJpeg, m_pRefine})
        connect(b, &QCheckBox::toggled, this, [this] { OnControlChanged(); });
    m_pHistogram->onLevelsChanged = [this] { OnControlChanged(); };
    connect(m_pApply, &QPushButton::clicked, this, [this] { Apply(); });
    connect(m_pRevert, &QPushButton::clicked, this, [this] { Revert(); });

    Picker().SetPage(this);
    RefreshStrip();
}

CTabBlueMatting::~CTabBlueMatting()
{
    if (m_pBarAlive) Picker().SetPage(nullptr);
    m_pPreview->Abandon();
    m_pPreview.reset();
}

CBkPickerTool& CTabBlueMatting::Picker() { return m_bar.Manager().GetBkPickerTool(); }

bool CTabBlueMatting::IsRefined() const { return m_pRefine->isChecked(); }

CTabBlueMatting::Controls CTabBlueMatting::Read() const
{
    Controls c;
    c.slider = m_logic.slider;
    c.levelLow = m_logic.levelLow;
    c.levelHigh = m_logic.levelHigh;
    c.includeShadow = m_logic.includeShadow;
    c.recoverColour = m_logic.recoverColour;
    c.jpegChroma = m_logic.jpegChroma;
    c.featherSelection = m_logic.featherSelection;
    c.refine = m_pRefine->isChecked();
    return c;
}

void CTabBlueMatting::Write(const Controls& c)
{
    m_logic.slider = c.slider;
    m_logic.levelLow = c.levelLow;
    m_logic.levelHigh = c.levelHigh;
    m_logic.includeShadow = c.includeShadow;
    m_logic.recoverColour = c.recoverColour;
    m_logic.jpegChroma = c.jpegChroma;
    m_logic.featherSelection = c.featherSelection;
    m_syncing = true;
    m_pRefine->setChecked(c.refine);
    m_syncing = false;
    SyncWidgets();
}

void CTabBlueMatting::SyncWidgets()
{
    m_syncing = true;
    m_pStrength->setValue(m_logic.slider);
    m_pFeather->setChecked(m_logic.featherSelection != 0);
    // "Keep shadows" is the record's includeShadow: ticked, the shadow pass does not run.
    m_pShadow->setChecked(m_logic.includeShadow != 0);
    m_pRecover->setChecked(m_logic.recoverColour != 0);
    m_pJpeg->setChecked(m_logic.jpegChroma != 0);
    m_syncing = false;
    m_pHistogram->update();
}

void CTabBlueMatting::OnControlChanged()
{
    if (m_syncing) return;
    m_logic.slider = m_pStrength->value();
    m_logic.featherSelection = m_pFeather->isChecked() ? 1 : 0;
    m_logic.includeShadow = m_pShadow->isChecked() ? 1 : 0;
    m_logic.recoverColour = m_pRecover->isChecked() ? 1 : 0;
    m_logic.jpegChroma = m_pJpeg->isChecked() ? 1 : 0;
    m_pHistogram->update();
    RefreshStrip();
    CBkPickerTool& picker = Picker();
    if (picker.GetPicked().empty() || !picker.HasResult() || picker.GetBeforeKey().IsNull()) return;
    m_pPreview->Restart();
}

void CTabBlueMatting::RefreshStrip()
{
    std::vector<CPixel> colours;
    for (uint32_t c : Picker().GetPicked()) colours.push_back(CPixel::FromWord(c));
    const bool keyed = m_logic.RefreshHueStrip(&colours);
    m_pStrip->setPixmap(QPixmap::fromImage(ToQImage(keyed ? m_logic.GetStripPicture() : m_logic.GetHueStrip())));
}

void CTabBlueMatting::SetPending(bool pending)
{
    m_pApply->setEnabled(pending);
    m_pRevert->setEnabled(pending);
}

void CTabBlueMatting::ShowPage(bool show)
{
    // On the side bar the bar shows the page, with its title, and opens it when it was folded.
    if (auto* bar = qobject_cast<CSideBar*>(parentWidget())) {
        bar->SetPageVisible(this, show);
        if (show) bar->SetPageOpen(this, true);
        return;
    }
    setVisible(show);
}

void CTabBlueMatting::OnPicked()
{
    // The first-pick rule may have moved the strength.
    ++m_generation;
    SyncWidgets();
    RefreshStrip();
}

void CTabBlueMatting::OnResult()
{
    CSelectionDocument& selection = m_bar.Selection();
    m_pHistogram->SetResult(selection.GetWorkingImage());
    if (m_taking) return;
    // A pick or Apply: this is what Revert comes back to.
    ++m_generation;
    m_pPreview->Keep(selection.GetWorkingImage(), selection.GetResultMask());
    m_applied = Read();
    SetPending(false);
}

void CTabBlueMatting::OnPreviewShown()
{
    SetPending(true);
}

void CTabBlueMatting::OnReset()
{
    ++m_generation;
    m_pHistogram->SetResult(nullptr);
    SetPending(false);
    RefreshStrip();
}

long CTabBlueMatting::RunKey(CImageProcess& process, const void* params, bool& cancelled)
{
    CProcessThread* worker = m_app.Worker();
    if (!worker) {
        process.SetProgressCallback({});
        process.SetProgressRange(0, 100);
        return process.Process(params);
    }
    return RunProcessWithWait(*worker, process, params, window(), m_pStatus, &cancelled);
}

void CTabBlueMatting::WaitIdle()
{
    ++m_generation;
    m_pPreview->Abandon();
}

void CTabBlueMatting::Enter()
{
    WaitIdle();
    Picker().ResetForEntry();
    SyncWidgets();
    m_applied = Read();
    SetPending(false);
    m_pHistogram->SetResult(nullptr);
    RefreshStrip();
    show();
}

void CTabBlueMatting::Apply()
{
    if (!m_pApply->isEnabled()) return;
    // The settings as they stand make the cut-out again, with its step; the preview's run is not needed.
    Picker().Rerun();
    SetPending(false);
}

void CTabBlueMatting::Revert()
{
    ++m_generation;
    m_pPreview->Abandon();
    m_pPreview->Close(false);
    Write(m_applied);
    SetPending(false);
    CSelectionDocument& selection = m_bar.Selection();
    m_pHistogram->SetResult(selection.GetResultMask()->IsNull() ? nullptr : selection.GetWorkingImage());
    RefreshStrip();
    selection.RefreshPreview();
}

namespace selmode {

bool EnterChromaKey(CToolBar& bar, CTabBlueMatting& page, IUiServices& services)
{
    CToolManager& manager = bar.Manager();
    if (manager.IsSelectionMode()) return false;
    const CLayer* layer = bar.Document().GetCurrentLayer();
    if (!layer || layer->m_image.IsNull()) return false;
    const CPixel* p = layer->m_image.GetBuffer();
    for (size_t i = 0, n = layer->m_image.GetPixelCount(); i < n; ++i)
        if (p[i].alpha != 255) {
            // The cut-out becomes the layer's alpha: a layer that has one already cannot be cut out.
            services.MessageBox(Text("cantsel"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            return false;
        }
    if (!manager.EnterOrLeaveSelectionMode(true, kMethodChroma, true)) {
        services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    page.Enter();
    manager.SetCurrentTool(&manager.GetBkPickerTool());
    return true;
}

} // namespace selmode
