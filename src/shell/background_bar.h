#pragma once

#include <QColor>
#include <QWidget>
#include <functional>

class CAppGlobals;
class CToolBar;
class IUiServices;
class QToolButton;

// The buttons at the foot of the left bar in selection mode, shown once a result exists: what lies behind the
// cut-out (plain colour, checkerboard, picture, the mask in black and white), each with the button of the
// current choice pressed, as the Background menu shows it checked; small helpers beside the first three choose
// the colour, switch the checkerboard between light and dark, and choose the picture. Above them "Original"
// shows the untouched layer while it is held down.
class CBackgroundBar : public QWidget {
    Q_OBJECT
public:
    CBackgroundBar(CAppGlobals& app, CToolBar& bar, IUiServices& services, QWidget* parent);

    // Pressed state and button faces from the selection document.
    void Sync();

    // The choice buttons by display mode (1 colour, 2 checkerboard, 3 picture, 4 mask); null for others.
    QToolButton* ModeButton(int mode) const;
    QToolButton* ColourHelper() const { return m_pHelpers[0]; }
    QToolButton* CheckerHelper() const { return m_pHelpers[1]; }
    QToolButton* PictureHelper() const { return m_pHelpers[2]; }
    QToolButton* OriginalButton() const { return m_pOriginal; }

    // The colour question; an invalid colour means cancelled. Tests put a scripted one in place of the dialog.
    std::function<QColor(const QColor& initial, QWidget* parent)> chooseColour;

Q_SIGNALS:
    // The display mode or a background changed: the frame updates its menu.
    void Changed();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void ChooseMode(int mode);
    void ChooseColour();
    void ChoosePicture();
    void ToggleChecker();
    void HoldOriginal(bool down);
    void Redraw();

    CToolBar& m_bar;
    IUiServices& m_services;
    QToolButton* m_pModes[4] = {};
    QToolButton* m_pHelpers[3] = {};
    QToolButton* m_pOriginal = nullptr;
    int m_heldMode = 0; // the mode to go back to while "Original" is held; 0 when it is not
};
