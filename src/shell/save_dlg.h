#pragma once

#include <QDialog>
#include <functional>
#include <string>

#include "interchange/save_choice.h"

class IUiServices;
class QCheckBox;
class QPushButton;

// What a save of one choice came to.
enum class ESaveOutcome {
    kWritten,
    kFailed,    // the failure was shown to the user
    kAbandoned, // the user stepped back (the JPEG quality dialog was cancelled): the save dialog stays up
};

// "Save and export": the project with or without its history; the composed picture as PNG with transparency,
// JPEG (through the quality dialog), BMP, TIFF, TGA or a one-layer PSD; every layer as a layered PSD; the current
// layer as a PNG or a one-layer PSD. Each button asks for a file name (a cancelled file dialog leaves this dialog
// up), then hands the choice to the writer. The dialog closes after every written or failed export, and after a
// failed project save it closes as cancelled, so that the caller can tell.
class CSaveDlg : public QDialog {
    Q_OBJECT
public:
    using Writer = std::function<ESaveOutcome(ESaveChoice choice, const std::string& path, bool withHistory)>;

    // layerOnly: only the two layer exports are offered. The layer exports are offered otherwise only above the
    // background (currentLayerIndex > 0).
    CSaveDlg(QWidget* parent, IUiServices& services, int currentLayerIndex, bool layerOnly, Writer writer);

    bool HasChoice() const { return m_chosen; }
    ESaveChoice Choice() const { return m_choice; }
    const std::string& Path() const { return m_path; }
    ESaveOutcome Outcome() const { return m_outcome; }
    bool WithHistory() const;
    // The button of a choice (for keyboard focus and tests); null for none.
    QPushButton* Button(ESaveChoice choice) const;

private:
    void Choose(ESaveChoice choice);

    IUiServices& m_services;
    Writer m_writer;
    bool m_chosen = false;
    ESaveChoice m_choice = ESaveChoice::kProject;
    ESaveOutcome m_outcome = ESaveOutcome::kAbandoned;
    std::string m_path;
    QCheckBox* m_pHistoryBox = nullptr;
};
