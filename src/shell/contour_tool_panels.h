#pragma once

#include <QWidget>

class CPropBkPicker;
class CPropZoom;
class CToolOptions;
class QCheckBox;
class QSlider;
class QToolButton;

// The backdrop picker's option panel: how much a gray, white or black backdrop takes away (the luma key's
// strength), the feather box and Apply, which keys again with the slider's value.
class CBkPickerOptionsPanel : public QWidget {
    Q_OBJECT
public:
    explicit CBkPickerOptionsPanel(QWidget* parent = nullptr);
    // Shows the panel for the picker's settings; anything else hides it.
    void Show(CToolOptions* options);
    QSlider* Slider() const { return m_pSlider; }

private:
    CPropBkPicker* m_pOptions = nullptr;
    QSlider* m_pSlider;
    QCheckBox* m_pFeather;
};

// The zoom tool's option panel: zoom in, zoom out and pan as three toggle buttons.
class CZoomOptionsPanel : public QWidget {
    Q_OBJECT
public:
    explicit CZoomOptionsPanel(QWidget* parent = nullptr);
    void Show(CToolOptions* options);

private:
    void Sync();
    CPropZoom* m_pOptions = nullptr;
    QToolButton* m_pModes[3] = {};
};
