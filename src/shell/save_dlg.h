#pragma once

#include <QDialog>
#include <string>

class IUiServices;
class QCheckBox;

// "Save and export": the project, the composed picture as JPEG, BMP, TIFF or TGA, or the current layer as a PNG
// with its transparency. Each button asks for a file name; a cancelled file dialog leaves this dialog up. The
// dialog only chooses: the caller writes the file and reports failures.
class CSaveDlg : public QDialog {
    Q_OBJECT
public:
    enum class EWhat { kNothing, kProject, kComposite, kLayer };

    // layerExport: the layer's group is offered (the layer export is meant for the layers above the background).
    CSaveDlg(QWidget* parent, IUiServices& services, bool layerExport);

    EWhat What() const { return m_what; }
    const std::string& Path() const { return m_path; }
    // The extension of the button's format without the dot ("jpg"), for a name the user gave none.
    const char* Extension() const { return m_extension; }
    bool WithHistory() const { return m_withHistory; }

private:
    void Choose(EWhat what, const std::string& filter, const char* extension);

    IUiServices& m_services;
    EWhat m_what = EWhat::kNothing;
    std::string m_path;
    const char* m_extension = "";
    bool m_withHistory = false;
    QCheckBox* m_pHistoryBox = nullptr;
};
