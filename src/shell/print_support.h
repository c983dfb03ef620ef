#pragma once

#include <QDialog>
#include <QString>

#include "imaging/image.h"
#include "shell/print_layout.h"

class QComboBox;
class QDoubleSpinBox;
class QPrinter;
class QWidget;

// The printable area and resolution of a printer, for the placement arithmetic.
PrintPage PrintPageOf(const QPrinter& printer);

// Prints the picture on one page of the printer at the placement: scaled with the bicubic scaler to the target in
// device pixels (at most 300 dpi; the device stretches it the rest of the way). The document is named
// "Ombra Lens Image File". False when the picture cannot be scaled or the printer refuses the page.
bool PrintPicture(QPrinter& printer, const COLImage& picture, const PrintPlacement& placement);

// "Print picture": the size on paper in inches (0..100, linked through the picture's proportions), the horizontal
// and vertical alignment, and a preview of the page with its printable area. Starts at the largest size that
// fits the printable area, centred.
class CPrintDlg : public QDialog {
    Q_OBJECT
public:
    CPrintDlg(QWidget* parent, const COLImage& picture, const PrintPage& page);

    PrintPlacement Placement() const { return m_placement; }
    QDoubleSpinBox* WidthBox() const { return m_pWidth; }
    QDoubleSpinBox* HeightBox() const { return m_pHeight; }

private:
    void OnWidth(double width);
    void OnHeight(double height);
    void OnAlign();

    const COLImage& m_picture;
    PrintPage m_page;
    PrintPlacement m_placement;
    QDoubleSpinBox* m_pWidth = nullptr;
    QDoubleSpinBox* m_pHeight = nullptr;
    QComboBox* m_pHorizontal = nullptr;
    QComboBox* m_pVertical = nullptr;
    QWidget* m_pPreview = nullptr;
    bool m_linking = false;
};

// The print command: the system's print dialog, then the placement dialog, then one page. The caller shows
// errorText on failure ("Error occurs!"). Returns false only when printing failed (not when cancelled).
bool RunPrint(QWidget* parent, const COLImage& picture, QString& errorText);
