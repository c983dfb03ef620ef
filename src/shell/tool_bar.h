#pragma once

#include <QImage>
#include <QWidget>
#include <functional>
#include <map>
#include <string>
#include <memory>

#include "document/selection_document.h"
#include "tools/tool_manager.h"

class CAppGlobals;
class CComposeDocument;
class CBrushOptionsPanel;
class CBkPickerOptionsPanel;
class CZoomOptionsPanel;
class CSmartAdjPanel;
class CCropOptionsPanel;
class CImageView;
class QLineEdit;
class QToolButton;

// The option panel of the selection tools: New, Add and Subtract as three toggle buttons, and the tolerance of
// the magic tool. It shows the settings object of the current tool and follows its changes.
class CSelOptionsPanel : public QWidget {
    Q_OBJECT
public:
    explicit CSelOptionsPanel(QWidget* parent = nullptr);
    // Null hides the panel.
    void Show(CToolOptions* options);
    CPropSel* Current() const { return m_pOptions; }

private:
    void Sync();
    CPropSel* m_pOptions = nullptr;
    QToolButton* m_pModes[3] = {};
    QLineEdit* m_pTolerance = nullptr;
};

// The tool bar at the left of the main frame: the buttons of the list that the mode shows, in three columns,
// with tool tips and status texts; a press makes a tool current. It owns the tool manager with every tool and
// the selection document, and serves as the manager's window.
class CToolBar : public QWidget, public IToolBarHost {
    Q_OBJECT
public:
    CToolBar(CAppGlobals& app, CImageView* view, QWidget* parent = nullptr);
    ~CToolBar() override;

    CToolManager& Manager() { return *m_pManager; }
    CSelectionDocument& Selection() { return m_selection; }
    CComposeDocument& Document();
    CSelOptionsPanel* OptionsPanel() const { return m_pPanel; }
    CBrushOptionsPanel* BrushPanel() const { return m_pBrushPanel; }
    CSmartAdjPanel* SmartAdjPanel() const { return m_pSmartPanel; }
    CCropOptionsPanel* CropPanel() const { return m_pCropPanel; }
    CSelectionHistory* SelectionLog() const { return m_context.selectionHistory; }

    // What the frame does for the bar.
    std::function<void(const QString&)> onHelp;        // help panel text
    std::function<void(const QString&)> onStatus;      // status bar text
    std::function<void(bool selectionMode)> onMode;    // swap canvas source and menus
    std::function<bool()> onResultWizard;              // bring-back dialog; true on OK
    std::function<void(const char* key)> onMessage;    // message box with the text of a key
    std::function<void()> onBarsChanged;               // the tools' state changed (a contour drawn, a result made)

    // IToolBarHost
    void ShowHelp(const std::string& text) override;
    void ShowOptionPanel(CToolOptions* panel) override;
    void RedrawBar() override;
    void OnModeChanged(bool selectionMode) override;
    bool RunResultWizard() override { return onResultWizard && onResultWizard(); }

    QSize sizeHint() const override { return {70, 320}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    bool event(QEvent* event) override;

private:
    // Button cells start below the frame's large button; the manager's cells are relative to the bar's top.
    static constexpr int kTop = 75;
    CRect Cell(int index) const;
    CToolBase* Hit(const QPoint& p) const;

    CAppGlobals& m_app;
    CSelectionDocument m_selection;
    CToolContext m_context;
    std::unique_ptr<CToolManager> m_pManager;
    CSelOptionsPanel* m_pPanel;
    std::map<std::string, QImage> m_icons; // button pictures by tip key
    CBrushOptionsPanel* m_pBrushPanel;
    CBkPickerOptionsPanel* m_pBkPickerPanel;
    CZoomOptionsPanel* m_pZoomPanel;
    CSmartAdjPanel* m_pSmartPanel;
    CCropOptionsPanel* m_pCropPanel;
};
