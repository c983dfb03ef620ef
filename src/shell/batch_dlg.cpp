#include "shell/batch_dlg.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>

#include "matting/chroma_key.h"
#include "shell/app_globals.h"
#include "shell/file_filter.h"
#include "shell/ui_services.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

QImage ToQImage(const COLImage& image)
{
    if (image.IsNull()) return {};
    QImage out(int(image.GetWidth()), int(image.GetHeight()), QImage::Format_RGB32);
    for (int y = 0; y < out.height(); ++y) {
        const CPixel* src = image.GetBuffer(0, uint32_t(y));
        auto* dst = reinterpret_cast<uint32_t*>(out.scanLine(y));
        for (int x = 0; x < out.width(); ++x)
            dst[x] = src[x].Word() | 0xFF000000u;
    }
    return out;
}

// The display part of a file: name and extension.
QString DisplayName(const std::string& path)
{
    return QFileInfo(QString::fromStdString(path)).fileName();
}

} // namespace

// ---- CBatchPreview ----------------------------------------------------------------------------------------------

CBatchPreview::CBatchPreview(QWidget* parent) : QWidget(parent)
{
    setMinimumSize(200, 150);
    setObjectName(QStringLiteral("preview"));
}

void CBatchPreview::SetPicture(const COLImage* picture)
{
    m_pPicture = picture;
    m_image = picture ? ToQImage(*picture) : QImage();
    update();
}

void CBatchPreview::SetMode(int colourMode, int pickX, int pickY, CPixel colour)
{
    m_mode = colourMode;
    m_pickX = pickX;
    m_pickY = pickY;
    m_colour = colour;
    // With a mode that reads the picture a click picks: the pointer says so.
    setCursor(colourMode != batchkey::kColourAuto && !m_image.isNull() ? Qt::PointingHandCursor : Qt::ArrowCursor);
    update();
}

QRect CBatchPreview::PictureRect() const
{
    return rect().adjusted(1, 1, -1, -1);
}

QPoint CBatchPreview::ImageToWidget(int x, int y) const
{
    if (m_image.isNull()) return {};
    const QRect r = PictureRect();
    return {r.left() + int(int64_t(x) * r.width() / m_image.width()),
            r.top() + int(int64_t(y) * r.height() / m_image.height())};
}

bool CBatchPreview::WidgetToImage(const QPoint& p, int& x, int& y) const
{
    const QRect r = PictureRect();
    if (m_image.isNull() || !r.contains(p) || r.width() <= 0 || r.height() <= 0) return false;
    x = std::clamp(int(int64_t(p.x() - r.left()) * m_image.width() / r.width()), 0, m_image.width() - 1);
    y = std::clamp(int(int64_t(p.y() - r.top()) * m_image.height() / r.height()), 0, m_image.height() - 1);
    return true;
}

void CBatchPreview::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), palette().dark());
    const QRect r = PictureRect();
    if (!m_image.isNull()) p.drawImage(r, m_image);
    if (m_mode == batchkey::kColourFixed) {
        // The colour used for every photo, as a patch framed in white.
        const QRect patch(r.left() + 4, r.top() + 4, 20, 20);
        p.fillRect(patch, QColor(m_colour.red, m_colour.green, m_colour.blue));
        p.setPen(Qt::white);
        p.drawRect(patch.adjusted(-1, -1, 0, 0));
    } else if (m_mode == batchkey::kColourAtPoint && !m_image.isNull()) {
        // A white crosshair of 7 x 7 with a gap at its centre.
        const int ix = int(uint32_t(m_pickX) * uint32_t(m_image.width()) / 100);
        const int iy = int(uint32_t(m_pickY) * uint32_t(m_image.height()) / 100);
        const QPoint c = ImageToWidget(ix, iy);
        p.setPen(Qt::white);
        p.drawLine(c.x() - 3, c.y(), c.x() - 1, c.y());
        p.drawLine(c.x() + 1, c.y(), c.x() + 3, c.y());
        p.drawLine(c.x(), c.y() - 3, c.x(), c.y() - 1);
        p.drawLine(c.x(), c.y() + 1, c.x(), c.y() + 3);
    }
}

void CBatchPreview::mousePressEvent(QMouseEvent* event)
{
    int x = 0, y = 0;
    if (event->button() != Qt::LeftButton || m_mode == batchkey::kColourAuto) return;
    if (WidgetToImage(event->position().toPoint(), x, y)) Q_EMIT Picked(x, y);
}

// ---- CBatchDlg --------------------------------------------------------------------------------------------------

CBatchDlg::CBatchDlg(QWidget* parent, IUiServices& services, CProcessThread* worker, const COLImage* picture,
                     const std::string& documentPath)
    : QDialog(parent), m_services(services), m_pWorker(worker), m_pPicture(picture)
{
    setWindowTitle(Text("batchdlg"));
    setObjectName(QStringLiteral("batchdlg"));
    if (picture && !picture->IsNull()) m_fixedColour = CChromaKeyProcess::EstimateBackdropColour(*picture);

    auto* column = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    column->addLayout(top);

    // The list and its two buttons.
    auto* listBox = new QVBoxLayout;
    listBox->addWidget(new QLabel(Text("batfiles"), this));
    m_pList = new QListWidget(this);
    m_pList->setObjectName(QStringLiteral("files"));
    m_pList->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_pList->setMinimumWidth(200);
    listBox->addWidget(m_pList, 1);
    auto* listButtons = new QHBoxLayout;
    m_pAdd = new QPushButton(Text("batadd"), this);
    m_pAdd->setObjectName(QStringLiteral("add"));
    m_pRemove = new QPushButton(Text("batremove"), this);
    m_pRemove->setObjectName(QStringLiteral("remove"));
    listButtons->addWidget(m_pAdd);
    listButtons->addWidget(m_pRemove);
    listBox->addLayout(listButtons);
    top->addLayout(listBox, 1);

    // The preview with the colour controls.
    auto* right = new QVBoxLayout;
    m_pPreview = new CBatchPreview(this);
    m_pPreview->SetPicture(picture && !picture->IsNull() ? picture : nullptr);
    right->addWidget(m_pPreview, 1);
    auto* modeRow = new QHBoxLayout;
    modeRow->addWidget(new QLabel(Text("batcolourmode"), this));
    m_pMode = new QComboBox(this);
    m_pMode->setObjectName(QStringLiteral("colourmode"));
    m_pMode->addItems({Text("batauto"), Text("batpoint"), Text("batfixed")});
    modeRow->addWidget(m_pMode, 1);
    m_pSwatch = new QLabel(this);
    m_pSwatch->setObjectName(QStringLiteral("fixedcolour"));
    m_pSwatch->setFixedSize(22, 22);
    m_pSwatch->setFrameShape(QFrame::Box);
    modeRow->addWidget(m_pSwatch);
    right->addLayout(modeRow);
    top->addLayout(right, 1);

    m_pReview = new QCheckBox(Text("batreview"), this);
    m_pReview->setObjectName(QStringLiteral("review"));
    m_pReview->setChecked(true);
    column->addWidget(m_pReview);
    m_pRefine = new QCheckBox(Text("bluerefine"), this);
    m_pRefine->setObjectName(QStringLiteral("refine"));
    column->addWidget(m_pRefine);
    auto* note = new QLabel(Text("batreviewnote"), this);
    note->setWordWrap(true);
    column->addWidget(note);

    auto* output = new QGroupBox(Text("batoutput"), this);
    auto* grid = new QGridLayout(output);
    grid->addWidget(new QLabel(Text("batfolder"), output), 0, 0);
    m_pFolder = new QLineEdit(output);
    m_pFolder->setObjectName(QStringLiteral("folder"));
    grid->addWidget(m_pFolder, 0, 1, 1, 2);
    m_pBrowse = new QPushButton(QStringLiteral("..."), output);
    m_pBrowse->setObjectName(QStringLiteral("browse"));
    m_pBrowse->setFixedWidth(32);
    grid->addWidget(m_pBrowse, 0, 3);
    grid->addWidget(new QLabel(Text("batrename"), output), 1, 0);
    m_pAffix = new QLineEdit(output);
    m_pAffix->setObjectName(QStringLiteral("affix"));
    grid->addWidget(m_pAffix, 1, 1);
    m_pPrefix = new QCheckBox(Text("batprefix"), output);
    m_pPrefix->setObjectName(QStringLiteral("prefix"));
    grid->addWidget(m_pPrefix, 1, 2, 1, 2);
    auto* pngNote = new QLabel(Text("batpngnote").replace(QStringLiteral("\r\n"), QStringLiteral("\n")), output);
    pngNote->setWordWrap(true);
    grid->addWidget(pngNote, 2, 0, 1, 4);
    column->addWidget(output);

    m_pProgress = new QProgressBar(this);
    m_pProgress->setObjectName(QStringLiteral("progress"));
    m_pProgress->setRange(0, 100);
    m_pProgress->setValue(0);
    column->addWidget(m_pProgress);
    m_pStatus = new QLabel(this);
    m_pStatus->setObjectName(QStringLiteral("status"));
    column->addWidget(m_pStatus);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_pContinue = new QPushButton(Text("batcontinue"), this);
    m_pContinue->setObjectName(QStringLiteral("continue"));
    m_pContinue->setDefault(true);
    m_pCancel = new QPushButton(Text("batcancel"), this);
    m_pCancel->setObjectName(QStringLiteral("cancel"));
    buttons->addWidget(m_pContinue);
    buttons->addWidget(m_pCancel);
    column->addLayout(buttons);

    chooseFiles = [this] {
        const std::string filter =
            OpenDialogFilter(GetString("openflatfiletype"), GetString("allpictures"), GetString("allfiles"), false);
        std::vector<std::string> paths;
        for (const QString& p : QFileDialog::getOpenFileNames(this, Text("batadd"), QString(),
                                                              QString::fromStdString(ToDialogFilter(filter))))
            paths.push_back(p.toStdString());
        return paths;
    };
    chooseFolder = [this] {
        return QFileDialog::getExistingDirectory(this, Text("batfolderpick"), m_pFolder->text()).toStdString();
    };
    connect(m_pAdd, &QPushButton::clicked, this, [this] {
        if (chooseFiles) AddFiles(chooseFiles());
    });
    connect(m_pRemove, &QPushButton::clicked, this, &CBatchDlg::RemoveSelected);
    connect(m_pBrowse, &QPushButton::clicked, this, [this] {
        const std::string folder = chooseFolder ? chooseFolder() : std::string();
        if (!folder.empty()) m_pFolder->setText(QString::fromStdString(folder));
    });
    connect(m_pMode, &QComboBox::currentIndexChanged, this, [this] { SyncPreview(); });
    connect(m_pPreview, &CBatchPreview::Picked, this, &CBatchDlg::OnPicked);
    connect(m_pContinue, &QPushButton::clicked, this, &CBatchDlg::Continue);
    connect(m_pCancel, &QPushButton::clicked, this, &CBatchDlg::reject);

    // The open photo is the first entry, and its folder the output's.
    if (!documentPath.empty()) {
        AddFiles({documentPath});
        m_pFolder->setText(QFileInfo(QString::fromStdString(documentPath)).absolutePath());
    }
    SyncPreview();
}

CBatchDlg::~CBatchDlg()
{
    StopWorker();
}

void CBatchDlg::AddFiles(const std::vector<std::string>& paths)
{
    for (const std::string& path : paths) {
        if (path.empty() || !batchkey::AddFile(m_files, path)) continue;
        auto* item = new QListWidgetItem(DisplayName(path), m_pList);
        item->setToolTip(QString::fromStdString(path));
    }
}

void CBatchDlg::RemoveSelected()
{
    // At least one photo always stays.
    std::vector<int> rows;
    for (const QListWidgetItem* item : m_pList->selectedItems())
        rows.push_back(m_pList->row(item));
    std::sort(rows.rbegin(), rows.rend());
    for (int row : rows) {
        if (m_files.size() <= 1) break;
        m_files.erase(m_files.begin() + row);
        delete m_pList->takeItem(row);
    }
}

batchkey::Settings CBatchDlg::GetSettings() const
{
    batchkey::Settings s;
    s.colourMode = m_pMode->currentIndex();
    s.pickX = m_pickX;
    s.pickY = m_pickY;
    s.fixedColour = m_fixedColour;
    s.outputDir = m_pFolder->text().toStdString();
    s.affix = m_pAffix->text().toStdString();
    s.affixIsPrefix = m_pPrefix->isChecked();
    s.refine = m_pRefine->isChecked();
    return s;
}

bool CBatchDlg::IsReview() const
{
    return m_pReview->isChecked();
}

void CBatchDlg::OnPicked(int x, int y)
{
    if (!m_pPicture || m_pPicture->IsNull()) return;
    const COLImage& image = *m_pPicture;
    const CPixel p[4] = {image.GetSafePixel(x - 1, y), image.GetSafePixel(x + 1, y), image.GetSafePixel(x, y + 1),
                         image.GetSafePixel(x, y - 1)};
    m_fixedColour = CPixel{uint8_t((p[0].blue + p[1].blue + p[2].blue + p[3].blue) >> 2),
                           uint8_t((p[0].green + p[1].green + p[2].green + p[3].green) >> 2),
                           uint8_t((p[0].red + p[1].red + p[2].red + p[3].red) >> 2), 255};
    m_pickX = int(int64_t(x) * 100 / int64_t(image.GetWidth()));
    m_pickY = int(int64_t(y) * 100 / int64_t(image.GetHeight()));
    SyncPreview();
}

void CBatchDlg::SyncPreview()
{
    m_pPreview->SetMode(m_pMode->currentIndex(), m_pickX, m_pickY, m_fixedColour);
    m_pSwatch->setStyleSheet(QStringLiteral("background: rgb(%1,%2,%3);")
                                 .arg(m_fixedColour.red)
                                 .arg(m_fixedColour.green)
                                 .arg(m_fixedColour.blue));
}

void CBatchDlg::SetInputsEnabled(bool enabled)
{
    for (QWidget* w : std::initializer_list<QWidget*>{m_pList, m_pAdd, m_pRemove, m_pMode, m_pReview, m_pRefine, m_pFolder,
                                                      m_pBrowse, m_pAffix, m_pPrefix, m_pContinue, m_pPreview})
        w->setEnabled(enabled);
}

void CBatchDlg::Continue()
{
    if (m_running || m_files.empty()) return;
    if (IsReview()) {
        m_outcome = kReview;
        accept();
        return;
    }
    m_settings = GetSettings();
    std::error_code ec;
    if (!m_settings.outputDir.empty()) std::filesystem::create_directories(m_settings.outputDir, ec);
    SetInputsEnabled(false);
    m_failures.clear();
    m_written.clear();
    m_index = 0;
    m_running = true;
    m_stopping = false;
    m_pProgress->setValue(0);
    StartNext();
}

void CBatchDlg::StartNext()
{
    if (m_index >= m_files.size()) {
        Finish();
        return;
    }
    m_pStatus->setText(
        QStringLiteral("(%1/%2) %3").arg(m_index + 1).arg(m_files.size()).arg(DisplayName(m_files[m_index])));
    m_params = BatchFileParams{};
    m_params.path = m_files[m_index];
    m_params.settings = m_settings;
    m_pProcess = std::make_unique<CBatchFileProcess>();
    const uint64_t run = ++m_runId;
    if (m_pWorker) {
        m_pWorker->StartImageProcess(this, m_pProcess.get(), &m_params, uint32_t(m_index), 0, 100, 1);
    } else {
        m_pProcess->Process(&m_params);
        QMetaObject::invokeMethod(
            this, [this, run] { OnFileDone(run); }, Qt::QueuedConnection);
    }
}

void CBatchDlg::PostProcessEvent(uint32_t first, int32_t second)
{
    const uint64_t run = m_runId.load();
    if (first == 0) {
        // The photo's own progress within the whole run.
        QMetaObject::invokeMethod(
            this,
            [this, run, second] {
                if (run != m_runId || !m_running || m_files.empty()) return;
                m_pProgress->setValue(int((m_index * 100 + size_t(std::clamp(second, 0, 100))) / m_files.size()));
            },
            Qt::QueuedConnection);
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, run] { OnFileDone(run); }, Qt::QueuedConnection);
}

void CBatchDlg::OnFileDone(uint64_t run)
{
    if (run != m_runId || !m_running) return;
    // The worker has let go of the process once its completion is out.
    if (m_pWorker) m_pWorker->WaitDone();
    if (m_pProcess->WasCancelled()) {
        m_running = false;
        m_outcome = kCancelled;
        QDialog::reject();
        return;
    }
    if (!m_pProcess->GetReason().empty())
        m_failures.push_back({m_files[m_index], m_pProcess->GetReason()});
    else
        m_written.push_back(m_pProcess->GetOutput());
    m_pProgress->setValue(int((m_index + 1) * 100 / m_files.size()));
    ++m_index;
    if (m_stopping) {
        m_running = false;
        m_outcome = kCancelled;
        QDialog::reject();
        return;
    }
    StartNext();
}

void CBatchDlg::Finish()
{
    m_running = false;
    m_pProcess.reset();
    QString text = Text("batover");
    if (!m_failures.empty()) {
        text += QStringLiteral("\n\n") + Text("batfailed");
        for (const batchkey::Failure& f : m_failures)
            text +=
                QStringLiteral("\n") + DisplayName(f.path) + QStringLiteral(": ") + QString::fromStdString(f.reason);
    }
    m_services.MessageBox(text, EMsgButtons::kOk, m_failures.empty() ? EMsgIcon::kInformation : EMsgIcon::kWarning,
                          Text("batchdlg"));
    m_outcome = kFinished;
    done(kFinished);
}

void CBatchDlg::reject()
{
    if (!m_running) {
        m_outcome = kCancelled;
        QDialog::reject();
        return;
    }
    // The photo under way ends first; its result is not written, and the dialog closes when it has.
    m_stopping = true;
    if (m_pProcess) m_pProcess->RequestCancel();
    m_pCancel->setEnabled(false);
    m_pStatus->setText(Text("batstopping"));
}

void CBatchDlg::closeEvent(QCloseEvent* event)
{
    if (m_running) {
        event->ignore();
        reject();
        return;
    }
    QDialog::closeEvent(event);
}

void CBatchDlg::StopWorker()
{
    if (!m_running || !m_pWorker || !m_pProcess) return;
    // The run holds this dialog's process and record: stop it and wait until the worker has let go of them.
    m_pProcess->RequestCancel();
    while (m_pWorker->IsBusy())
        QThread::msleep(50);
    m_pWorker->WaitDone();
    m_running = false;
}
