#pragma once

#include <QDialog>
#include <QWidget>
#include <functional>

#include "tools/geometry_tools.h"

class QCheckBox;
class QComboBox;
class QSpinBox;

// The small dialog of a custom crop ratio: width and height, whose quotient is the ratio.
class CCropRatioDlg : public QDialog {
    Q_OBJECT
public:
    CCropRatioDlg(int width, int height, QWidget* parent = nullptr);
    int RatioWidth() const;
    int RatioHeight() const;

private:
    QSpinBox* m_pWidth;
    QSpinBox* m_pHeight;
};

// The option panel of the crop and transform tools, below the tool buttons: the free-shape check box and the
// ratio list ("no lock", the picture's own, 4:3, 3:4, 3:2, 2:3, custom). The check box disables the list and a
// locked ratio disables the check box; "custom" asks for width and height. It shows the settings of the current
// tool and follows their changes.
class CCropOptionsPanel : public QWidget {
    Q_OBJECT
public:
    explicit CCropOptionsPanel(QWidget* parent = nullptr);
    // Null (or settings of another kind) hides the panel.
    void Show(CToolOptions* options);
    CPropCrop* Current() const { return m_pOptions; }
    QCheckBox* FreeShapeBox() const { return m_pFree; }
    QComboBox* RatioList() const { return m_pRatio; }
    // What "custom" asks; the editor's tests answer it without a dialog.
    std::function<bool(int& width, int& height)> askCustom;

private:
    void Sync();
    void OnRatioChosen(int index);
    CPropCrop* m_pOptions = nullptr;
    QCheckBox* m_pFree = nullptr;
    QComboBox* m_pRatio = nullptr;
    bool m_syncing = false;
};
