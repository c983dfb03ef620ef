#pragma once

#include <QColor>
#include <QWidget>
#include <functional>

class CPropSmartAdj;
class CToolOptions;
class QToolButton;

// The smart-adjust brush's own part of its option panel, under the brush panel: the two reference colours as
// swatches (grey with "?" until picked; a click opens the colour dialog on the colour) and the three modes, both
// ways, raise only, lower only. It follows the tool's settings, which picking in the picture and Shift or Ctrl
// also change.
class CSmartAdjPanel : public QWidget {
    Q_OBJECT
public:
    explicit CSmartAdjPanel(QWidget* parent = nullptr);
    // Null, or options of another kind, hide the panel. The first showing starts the colours afresh.
    void Show(CToolOptions* options);
    CPropSmartAdj* Current() const { return m_pOptions; }
    QToolButton* Swatch(int which) const { return m_pSwatches[which]; }
    QToolButton* ModeButton(int mode) const { return m_pModes[mode]; }
    // What a swatch asks for: an invalid colour is a cancel (default: the colour dialog).
    std::function<QColor(const QColor& initial)> chooseColour;

private:
    void Sync();
    void ChooseSwatch(int which);
    CPropSmartAdj* m_pOptions = nullptr;
    QToolButton* m_pSwatches[2] = {};
    QToolButton* m_pModes[3] = {};
    bool m_faceMade = false;
};
