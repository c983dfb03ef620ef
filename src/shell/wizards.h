#pragma once

#include <QDialog>
#include <cstdint>
#include <functional>

class QCheckBox;
class QToolButton;

// The two questions that lead a user through a cut-out: which method to use before selection mode starts, and
// what becomes of the finished cut-out when it ends. Both are plain dialogs of large picture buttons with a tip.

// "A new document is open": asked once a picture has been opened as the first layer, while the "AfterOpenWizard"
// switch is on. The foreground answer leads on to the cut-out; the background answer opens the foreground picture
// as a new layer (openForeground; false keeps the dialog up, as a cancelled file dialog does); the third closes.
class CAfterOpenDlg : public QDialog {
    Q_OBJECT
public:
    enum EAnswer { kNone, kForeground, kBackground };
    CAfterOpenDlg(QWidget* parent, std::function<bool()> openForeground);
    EAnswer Answer() const { return m_answer; }
    QToolButton* ForegroundButton() const { return m_pForeground; }
    QToolButton* BackgroundButton() const { return m_pBackground; }
    QCheckBox* DontAskBox() const { return m_pDontAsk; }
    // Each click on the box: true when the question is not to come again.
    std::function<void(bool dontAsk)> onDontAsk;

private:
    std::function<bool()> m_openForeground;
    EAnswer m_answer = kNone;
    QToolButton* m_pForeground = nullptr;
    QToolButton* m_pBackground = nullptr;
    QCheckBox* m_pDontAsk = nullptr;
};

// Tests drive the after-open question through a hook that takes the place of exec (null: the dialog runs).
void SetAfterOpenHook(std::function<void(CAfterOpenDlg&)> hook);
void RunAfterOpenDialog(CAfterOpenDlg& dialog);

// "Choose how to cut out": the answer is a selection method (1 chroma key, 2 inner and outer contours,
// 4 segmentation help) or 3 for a batch of photos on one backdrop. Cancel leaves Method() at 0.
class CMethodDlg : public QDialog {
    Q_OBJECT
public:
    static constexpr uint32_t kBatch = 3;
    explicit CMethodDlg(QWidget* parent);
    uint32_t Method() const { return m_method; }
    // The button of a method (1, 2, 3 or 4); null for another value.
    QToolButton* Button(uint32_t method) const;

private:
    uint32_t m_method = 0;
    QToolButton* m_pButtons[5] = {};
};

// What the result wizard offers for a finished cut-out.
enum class EBringBack {
    kCancel,          // the dialog was closed: selection mode and everything in it stay
    kDiscard,         // "Discard the cut-out": back to composing without it
    kApply,           // the layer's alpha becomes the cut-out (a copy on the base, which keeps its pixels)
    kSeparate,        // the cut-out on a new layer above, the layer keeps the rest (a copy on the base)
    kCopy,            // the cut-out copied onto a new layer, 10 pixels aside
    kKeep,            // "Keep only the selection": the cut-out becomes the document's selection
    kChangeBackground,// the cut-out on a new layer over a picture the user opens; the transform tool follows
    kBlurBackground,  // the cut-out on a copy above, and the lens blur dialog blurs the layer under it
};

struct BringBackChoice {
    BringBackChoice(EBringBack a = EBringBack::kCancel, bool keep = false) : action(a), keepSelection(keep) {}
    EBringBack action;
    bool keepSelection; // the check box "Keep the selection": the document's selection also takes the cut-out
};

// "What to do with the cut-out". Each button hands its choice to `act`, which carries it out; true closes the
// dialog as accepted, false keeps it up (a cancelled file dialog, a picture that did not read).
class CResultWizard : public QDialog {
    Q_OBJECT
public:
    CResultWizard(QWidget* parent, std::function<bool(const BringBackChoice&)> act);
    const BringBackChoice& Choice() const { return m_choice; }
    QToolButton* Button(EBringBack action) const;
    QCheckBox* KeepBox() const { return m_pKeep; }

private:
    void Choose(EBringBack action);

    std::function<bool(const BringBackChoice&)> m_act;
    BringBackChoice m_choice;
    QCheckBox* m_pKeep = nullptr;
    QToolButton* m_pButtons[8] = {};
};
