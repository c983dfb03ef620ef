#pragma once

#include <QWidget>
#include <cstdint>
#include <functional>
#include <string>

class CComposeDocument;
class CHistoryLog;
class QComboBox;
class QListWidget;
class QListWidgetItem;
class QSlider;
class QSpinBox;
class QToolButton;

// The layers as a list, top layer first, with a thumbnail, the name and the eye. A double-click on a name renames
// the layer; a row dragged up or down moves the layer (the base stays at the bottom); below the list the blend
// mode and the opacity (0 to 255) of the current layer; buttons for a new layer, a picture as a new layer, merge
// down and delete. Every change goes out as a command text, so the history records it.
class CLayersPanel : public QWidget {
    Q_OBJECT
public:
    explicit CLayersPanel(QWidget* parent);
    void Rebuild(const CComposeDocument& document);
    QListWidget* List() const { return m_pList; }
    QComboBox* BlendBox() const { return m_pBlend; }
    QSpinBox* OpacityBox() const { return m_pOpacity; }
    // Row of the list for a layer index and back (the top layer stands first).
    int RowOfLayer(int index) const;
    int LayerOfRow(int row) const;

    // The blend modes the panel offers, in menu order.
    static const int kBlendModes[6];

Q_SIGNALS:
    // A command text; GBK bytes where it carries a name.
    void Command(const QByteArray& text);
    void NewLayerRequested();
    void OpenLayerRequested();
    // A message box with the text of a string key.
    void MessageRequested(const char* key);

private:
    void OnItemChanged(QListWidgetItem* item);
    void OnCurrentRowChanged(int row);
    void OnRowsMoved(int fromRow, int toRow);
    void Rename(int index, const QString& name);
    void SendProperty(int property, int value);
    void ShowCurrentProperties();

    QListWidget* m_pList;
    QComboBox* m_pBlend;
    QSlider* m_pOpacitySlider;
    QSpinBox* m_pOpacity;
    QToolButton* m_pNew;
    QToolButton* m_pOpen;
    QToolButton* m_pMerge;
    QToolButton* m_pDelete;
    const CComposeDocument* m_pDocument = nullptr;
    int m_layerCount = 0;
    int m_currentIndex = 0;
    bool m_rebuilding = false;
};

// The steps of the log of the mode (the compose history, or the selection history in selection mode); a click
// jumps to a step. Tools add their steps without telling the panels, so the panel also looks at the log of the
// mode five times a second and rebuilds when its steps changed (not while a mouse button is down).
class CHistoryPanel : public QWidget {
    Q_OBJECT
public:
    explicit CHistoryPanel(QWidget* parent);
    void Rebuild(const CHistoryLog* history);
    QListWidget* List() const { return m_pList; }
    // Where the polling finds the log of the mode (null: none).
    void SetLogSource(std::function<const CHistoryLog*()> source) { m_source = std::move(source); }
    // Rebuilds when the log of the mode differs from what the list shows; true when it did.
    bool Poll();

Q_SIGNALS:
    void Command(const QByteArray& text);

private:
    struct Shown {
        const CHistoryLog* log = nullptr;
        int count = -1, current = -1;
        uint32_t written = 0;
        bool operator==(const Shown&) const = default;
    };
    static Shown Look(const CHistoryLog* history);

    QListWidget* m_pList;
    bool m_rebuilding = false;
    std::function<const CHistoryLog*()> m_source;
    Shown m_shown;
};

// Layer names and history labels are GBK in the document; the screen wants Unicode.
QString FromGbk(const char* gbk);
// The text a history list shows for a stored label: the label itself, or the text of the key it names.
QString HistoryLabelText(const char* label);
