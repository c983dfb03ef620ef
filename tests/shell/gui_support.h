#pragma once

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDialog>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QString>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QWidget>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/menu_table.h"
#include "shell/save_dlg.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"
#include "shell/wait_dialog.h"
#include "support/engine_checks.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace vmtest {

// Scripted dialogs: every message is recorded and answered from a queue (Yes, or Discard, when it is empty); file
// dialogs answer the paths queued for them (empty: cancelled).
class CFakeServices : public IUiServices {
public:
    EMsgResult MessageBox(const QString& text, EMsgButtons buttons, EMsgIcon, const QString&) override
    {
        messages.push_back(text.toStdString());
        if (!answers.empty()) {
            EMsgResult r = answers.front();
            answers.pop_front();
            return r;
        }
        if (buttons == EMsgButtons::kSaveDiscardCancel) return EMsgResult::kDiscard;
        return buttons == EMsgButtons::kOk ? EMsgResult::kOk : EMsgResult::kYes;
    }
    QString GetOpenFileName(const std::string& filter) override
    {
        filters.push_back(filter);
        return Next(openPaths);
    }
    QString GetSaveFileName(const std::string& filter) override
    {
        filters.push_back(filter);
        return Next(savePaths);
    }
    bool OpenAddress(const QString& address) override
    {
        addresses.push_back(address.toStdString());
        return true;
    }

    std::vector<std::string> messages;
    std::vector<std::string> filters;
    std::vector<std::string> addresses;
    std::deque<EMsgResult> answers;
    std::deque<std::string> openPaths;
    std::deque<std::string> savePaths;

private:
    static QString Next(std::deque<std::string>& q)
    {
        if (q.empty()) return {};
        std::string p = q.front();
        q.pop_front();
        return QString::fromStdString(p);
    }
};

// A text file's whole content, and a text written to a file (its folders made first).
inline std::string ReadText(const std::string& path)
{
    const std::vector<uint8_t> bytes = ReadAll(path);
    return std::string(bytes.begin(), bytes.end());
}
inline void WriteText(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    WriteAll(path, std::vector<uint8_t>(text.begin(), text.end()));
}

// Runs the event loop until pred holds or the time is up.
inline bool WaitFor(const std::function<bool()>& pred, int ms = 5000)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > ms) return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// Runs action on the first visible top-level widget of type T once it is up: modal dialogs block the caller, so
// the action is queued before the dialog is opened.
template <class T> void OnDialogShown(std::function<void(T*)> action)
{
    auto* timer = new QTimer();
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, action] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* d = qobject_cast<T*>(w); d && d->isVisible()) {
                timer->stop();
                timer->deleteLater();
                action(d);
                return;
            }
    });
    timer->start();
}

// Start-up options for tests: the committed data folder and a profile in a temporary folder.
inline AppInitOptions TestOptions(const TempDir& dir, const std::string& language = "zh")
{
    return {AssetPath(""), dir.File("config/Velmorando.ini"), language};
}

// With VM_SCREENSHOT_DIR set, the widget is saved there under the given name once pending repaints have run.
inline void Shot(QWidget* widget, const char* name, int waitMs = 300)
{
    const char* dir = std::getenv("VM_SCREENSHOT_DIR");
    if (!dir) return;
    QTest::qWait(waitMs); // the canvas repaints on a timer
    widget->grab().save(QString::fromUtf8(dir) + QLatin1Char('/') + QString::fromLatin1(name));
}

// Answers the next modal dialog (the one of that object name, or any when name is null) once it is up: answer
// runs on it inside the dialog's own event loop, and must close it. answered, when given, tells whether it ran.
inline void AnswerDialog(const char* name, std::function<void(QDialog&)> answer, bool* answered = nullptr)
{
    if (answered) *answered = false;
    QTimer::singleShot(0, [name, answer, answered] {
        QDialog* found = nullptr;
        WaitFor([&] {
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* d = qobject_cast<QDialog*>(w);
                    d && d->isVisible() && (!name || d->objectName() == QLatin1String(name)))
                    found = d;
            return found != nullptr;
        });
        if (!found) return;
        if (answered) *answered = true;
        answer(*found);
    });
}

// A run on the worker that reports half its progress and then holds until it is let go, reporting the end, or
// until it is asked to stop, when it returns 7. After 10 s it lets itself go: a stop that never comes fails a test
// instead of hanging it.
class CHeldProcess : public CImageProcess {
public:
    long Process(const void*) override
    {
        ReportProgress(50);
        for (int i = 0; i < 2000 && !m_released; ++i) {
            if (TestAndClearCancel()) return 7;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ReportProgress(100);
        return kOk;
    }
    void Release() { m_released = true; }

private:
    std::atomic<bool> m_released{false};
};

// Presses Esc once in the wait dialog as soon as one is up, for as long as it lives: a run long enough to show the
// dialog is cancelled from inside its own event loop.
class CEscapeWait {
public:
    CEscapeWait()
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            if (auto* wait = qobject_cast<CWaitDialog*>(QApplication::activeModalWidget()); wait && !pressed) {
                pressed = true;
                QTest::keyClick(wait, Qt::Key_Escape);
            }
        });
        m_timer.start(1);
    }
    bool pressed = false;

private:
    QTimer m_timer;
};

// A dark disc with a soft rim on a light, slightly graded background: the band of a cut-out holds real mixed
// pixels, and the segmentation finds a real edge.
inline COLImage DiscPicture(uint32_t w, uint32_t h)
{
    const double cx = w / 2.0, cy = h / 2.0, r = std::min(w, h) * 0.3;
    return Picture(w, h, [&](uint32_t x, uint32_t y) {
        const double a = std::clamp((r + 4 - std::hypot(x - cx, y - cy)) / 8, 0.0, 1.0);
        const auto mix = [&](double fg, double bg) { return uint8_t(fg * a + bg * (1 - a)); };
        return CPixel::Make(mix(40, 200 + x % 40), mix(60, 220), mix(150, 180 + y % 50), 255);
    });
}

// A gradient that tells positions apart, opaque: what most window tests open.
inline CPixel GradientAt(uint32_t x, uint32_t y)
{
    return CPixel::Make(uint8_t(x * 3 / 2), uint8_t(y * 2), 120, 255);
}
inline COLImage Gradient(uint32_t w, uint32_t h)
{
    return Picture(w, h, GradientAt);
}

// The alpha byte of every pixel of a picture.
inline std::vector<uint8_t> AlphaBytes(const COLImage& image)
{
    std::vector<uint8_t> alpha;
    for (size_t i = 0; i < image.GetPixelCount(); ++i)
        alpha.push_back(image.GetBuffer()[i].alpha);
    return alpha;
}

// A host editor's exchange file: width and height in four bytes each, least significant first, then the first
// `rows` rows of red, green and blue, with a pad byte after each pixel at four bytes a pixel.
inline std::vector<uint8_t> HostFile(uint32_t w, uint32_t h, int bytesPerPixel, uint32_t rows,
                                     const std::function<CPixel(uint32_t x, uint32_t y)>& at)
{
    std::vector<uint8_t> bytes;
    for (uint32_t v : {w, h})
        for (int k = 0; k < 4; ++k)
            bytes.push_back(uint8_t(v >> (8 * k)));
    for (uint32_t y = 0; y < rows; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const CPixel p = at(x, y);
            bytes.insert(bytes.end(), {p.red, p.green, p.blue});
            if (bytesPerPixel == 4) bytes.push_back(7); // never read
        }
    return bytes;
}

// What the save dialog offered, seen before the press, and whether it stayed up after it.
struct SaveOffer {
    bool project = true, history = true, composite = true, layered = true, layerPng = false, layerPsd = false;
    bool stayedUp = false;
};

// The fixture of the window tests: an application started without a file (English unless asked), its main window
// shown at the given size once the command line has been handled.
class FrameTest : public ::testing::Test {
protected:
    // The application up and its command line handled; the window as the start-up left it. m_exits records the
    // requests to end the program.
    void LaunchWith(const std::string& commandLine, const char* language = "en")
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_exits = std::make_unique<QSignalSpy>(m_shell.get(), &CShellApp::ExitRequested);
        m_shell->Start(commandLine, TestOptions(m_dir, language), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
    }
    void Launch(const char* language = "en") { LaunchWith("", language); }

    void StartFrame(int width, int height, const char* language = "en", const std::string& commandLine = "")
    {
        ASSERT_NO_FATAL_FAILURE(LaunchWith(commandLine, language));
        if (width > 0) m_frame->resize(width, height);
        m_frame->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_frame));
    }

    // A file opened through the Open item, as a user picks it in the file dialog.
    void Open(const std::string& path)
    {
        m_services.openPaths.push_back(path);
        m_frame->OnCommand(cmd::kOpen);
        ASSERT_EQ(m_app.Document().GetLayerCount(), 1) << path;
    }
    // A picture written to the test's folder under the given name, then opened.
    void OpenPicture(const COLImage& image, const char* name = "p.png")
    {
        ASSERT_NO_FATAL_FAILURE(Open(SavePicture(m_dir.File(name), image)));
    }

    // Sends a key to the canvas as the user would type it.
    void Key(Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier)
    {
        m_frame->View()->setFocus();
        QTest::keyClick(m_frame->View(), key, mods);
    }
    // Whether the window lets itself be closed.
    bool CloseAccepted()
    {
        QCloseEvent close;
        QApplication::sendEvent(m_frame, &close);
        return close.isAccepted();
    }

    // Runs the command that opens the save dialog; once it is up, look (if given) sees it first, then the button of
    // choice is pressed with path queued for the file dialog (empty: cancelled). A dialog still up after the press,
    // or whose button of choice is grey, is closed.
    SaveOffer SaveThrough(int command, ESaveChoice choice, const std::string& path,
                          std::function<void(CSaveDlg*)> look = {})
    {
        SaveOffer offer;
        m_services.savePaths.push_back(path);
        OnDialogShown<CSaveDlg>([&offer, choice, look](CSaveDlg* d) {
            if (look) look(d);
            offer.project = d->Button(ESaveChoice::kProject)->isEnabled();
            offer.history = d->findChild<QCheckBox*>()->isEnabled();
            offer.composite = d->Button(ESaveChoice::kCompositePng)->isEnabled() ||
                              d->Button(ESaveChoice::kCompositeJpeg)->isEnabled();
            offer.layered = d->Button(ESaveChoice::kLayeredPsd)->isEnabled();
            offer.layerPng = d->Button(ESaveChoice::kLayerPng)->isEnabled();
            offer.layerPsd = d->Button(ESaveChoice::kLayerPsd)->isEnabled();
            if (d->Button(choice)->isEnabled()) d->Button(choice)->click();
            offer.stayedUp = d->isVisible();
            if (offer.stayedUp) d->reject();
        });
        m_frame->OnCommand(command);
        return offer;
    }

    CToolBar& Bar() { return *m_frame->ToolBar(); }
    CToolManager& Manager() { return Bar().Manager(); }
    CSelectionDocument& Sel() { return Bar().Selection(); }

    // Where the canvas shows an image point.
    QPoint Client(int x, int y)
    {
        const CViewPoint c = m_frame->View()->ImageToClient(x, y);
        return QPoint(c.x, c.y);
    }

    // Presses the button of a tool in the shown list, as a user does.
    void PressButton(CToolBase* tool)
    {
        const auto& shown = Manager().GetShownTools();
        for (size_t i = 0; i < shown.size(); ++i)
            if (shown[i] == tool) {
                // The bar's cells count from below the frame's large button: 71 pixels up.
                const CRect cell = Manager().GetButtonRect(int(i));
                QTest::mouseClick(&Bar(), Qt::LeftButton, Qt::NoModifier, QPoint(cell.left + 5, cell.top - 71 + 5));
                return;
            }
        ADD_FAILURE() << "the tool has no button in this list";
    }

    // A press at the first point, moves with the button held through the others, and a release at the last,
    // through the canvas's own events.
    void Drag(const std::vector<CViewPoint>& points)
    {
        CImageView* view = m_frame->View();
        QTest::mouseMove(view, Client(points.front().x, points.front().y));
        QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, Client(points.front().x, points.front().y));
        for (size_t i = 1; i < points.size(); ++i) {
            const QPoint at = Client(points[i].x, points[i].y);
            QMouseEvent move(QEvent::MouseMove, at, view->mapToGlobal(at), Qt::NoButton, Qt::LeftButton,
                             Qt::NoModifier);
            QApplication::sendEvent(view, &move);
        }
        QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, Client(points.back().x, points.back().y));
    }

    // The rectangle tool, taken from the tool bar and dragged over the canvas.
    void SelectRectangle(int x0, int y0, int x1, int y1)
    {
        PressButton(&Manager().GetRectTool());
        ASSERT_EQ(Manager().GetCurrentTool(), &Manager().GetRectTool());
        Drag({{x0, y0}, {(x0 + x1) / 2, (y0 + y1) / 2}, {x1, y1}});
        ASSERT_FALSE(m_app.Document().GetSelectionMask().IsAllZero());
    }

    // The contours around and inside the disc of DiscPicture(200, 160), drawn with the polygon tools.
    void DrawOuter() { Polygon(Manager().GetOutPolygonTool(), {{40, 10}, {160, 10}, {170, 150}, {30, 150}}); }
    void DrawInner() { Polygon(Manager().GetInPolygonTool(), {{85, 65}, {115, 65}, {115, 95}, {85, 95}}); }
    // DiscPicture(w, h) opened and in selection mode with both contours drawn.
    void DiscWithContours(uint32_t w = 200, uint32_t h = 160)
    {
        ASSERT_NO_FATAL_FAILURE(OpenPicture(DiscPicture(w, h), "disc.png"));
        ASSERT_NO_FATAL_FAILURE(EnterSelectionMode());
        DrawOuter();
        DrawInner();
        ASSERT_FALSE(Sel().GetOuterPlane()->IsAllZero());
        ASSERT_FALSE(Sel().GetInnerPlane()->IsAllZero());
    }

    // The coffee photo in selection mode, the cup on its saucer outlined: the outer contour just outside it, the
    // inner one well inside.
    void OutlineTheCup()
    {
        ASSERT_NO_FATAL_FAILURE(Open(AssetPath("samples/coffee.png")));
        ASSERT_EQ(m_app.Document().GetWidth(), 600);
        ASSERT_NO_FATAL_FAILURE(EnterSelectionMode());
        const std::vector<CViewPoint> outer = {{170, 4},   {300, 2},   {425, 45},  {450, 100}, {495, 200},
                                               {495, 280}, {440, 370}, {300, 399}, {150, 385}, {70, 320},
                                               {55, 220},  {75, 130},  {160, 55}};
        const std::vector<CViewPoint> inner = {{195, 40},  {300, 30},  {395, 55},  {400, 110}, {445, 175},
                                               {455, 270}, {390, 345}, {300, 375}, {190, 355}, {110, 290},
                                               {95, 210},  {130, 140}, {180, 100}};
        Polygon(Manager().GetOutPolygonTool(), outer);
        Polygon(Manager().GetInPolygonTool(), inner);
    }

    // The large button enters selection mode.
    void EnterSelectionMode()
    {
        auto* createSel = m_frame->findChild<QToolButton*>(QStringLiteral("createsel"));
        ASSERT_NE(createSel, nullptr);
        QTest::mouseClick(createSel, Qt::LeftButton);
        ASSERT_TRUE(m_frame->IsSelectionMode());
    }

    // A polygon drawn with a tool through the canvas, as a user clicks it: a click on each corner, a double-click
    // on the last.
    void Polygon(CToolBase& tool, const std::vector<CViewPoint>& corners)
    {
        Manager().SetCurrentTool(&tool);
        CImageView* view = m_frame->View();
        QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, Client(corners[0].x, corners[0].y));
        for (const CViewPoint& p : corners) {
            QTest::mouseMove(view, Client(p.x, p.y));
            QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, Client(p.x, p.y));
        }
        QTest::mouseDClick(view, Qt::LeftButton, Qt::NoModifier, Client(corners.back().x, corners.back().y));
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    std::unique_ptr<QSignalSpy> m_exits;
    CMainFrame* m_frame = nullptr;
};

} // namespace vmtest
