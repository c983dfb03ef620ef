#pragma once

#include <QDialog>
#include <QImage>
#include <QWidget>

#include "tools/paint_tool.h"

class QLabel;
class QLineEdit;
class QListWidget;
class QSlider;
class QToolButton;

// The 30x30 picture of a brush: its stamp darkening the face colour, scaled down to fit, and its size in digits
// multiplied into the lower right corner.
QImage BrushPreview(const COLChannel& stamp, int size, const QColor& face);

// The brush dialog: size, hardness and opacity, each as a number and a slider, and a list of 42 ready brushes
// (a click copies size and hardness). Hardness is 100 - softness.
class CBrushDlg : public QDialog {
    Q_OBJECT
public:
    CBrushDlg(int size, int soft, int alphaPercent, QWidget* parent = nullptr);
    int Size() const { return m_size; }
    int Soft() const { return 100 - m_hardness; }
    int AlphaPercent() const { return m_alpha; }
    // A brush of the list, as a click on it.
    void ChoosePreset(int index);

private:
    void Sync();
    int m_size, m_hardness, m_alpha;
    QLineEdit* m_pEdits[3] = {};
    QSlider* m_pSliders[3] = {};
    QListWidget* m_pList = nullptr;
    bool m_syncing = false;
};

// The option panel of the brush tools, below the tool buttons: the brush's picture (a click opens the brush
// dialog) and sliders for size, hardness and opacity. It shows the settings of the current tool and follows
// their changes.
class CBrushOptionsPanel : public QWidget {
    Q_OBJECT
public:
    explicit CBrushOptionsPanel(QWidget* parent = nullptr);
    // Null hides the panel.
    void Show(CToolOptions* options);
    CNullProperty* Current() const { return m_pBrush; }
    // Opens the brush dialog and takes its values on OK.
    void OpenDialog();
    QSlider* SizeSlider() const { return m_pSliders[0]; }

private:
    void Sync();
    void Apply();
    CNullProperty* m_pBrush = nullptr;
    QToolButton* m_pButton = nullptr;
    QSlider* m_pSliders[3] = {};
    QLabel* m_pValues[3] = {};
    bool m_syncing = false;
};
