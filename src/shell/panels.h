#pragma once

#include <QWidget>
#include <string>

class CComposeDocument;
class CComposeHistory;
class QListWidget;
class QListWidgetItem;
class QToolButton;

// A title strip over a side panel, drawn with the skin's bar picture.
class CPanelTitle : public QWidget {
    Q_OBJECT
public:
    CPanelTitle(const QString& text, QWidget* parent);
    QSize sizeHint() const override { return {160, 20}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
};

// The layers as a list, top layer first, with a thumbnail, the name and the eye; buttons for a new layer, a
// picture as a new layer, merge down and delete. Every change goes out as a command text.
class CLayersPanel : public QWidget {
    Q_OBJECT
public:
    explicit CLayersPanel(QWidget* parent);
    void Rebuild(const CComposeDocument& document);
    QListWidget* List() const { return m_pList; }
    // Row of the list for a layer index and back (the top layer stands first).
    int RowOfLayer(int index) const;
    int LayerOfRow(int row) const;

Q_SIGNALS:
    void Command(const QString& text);
    void OpenLayerRequested();

private:
    void OnItemChanged(QListWidgetItem* item);
    void OnCurrentRowChanged(int row);

    QListWidget* m_pList;
    QToolButton* m_pNew;
    QToolButton* m_pOpen;
    QToolButton* m_pMerge;
    QToolButton* m_pDelete;
    int m_layerCount = 0;
    int m_currentIndex = 0;
    bool m_rebuilding = false;
};

// The steps of the compose history; a click jumps to a step.
class CHistoryPanel : public QWidget {
    Q_OBJECT
public:
    explicit CHistoryPanel(QWidget* parent);
    void Rebuild(const CComposeHistory* history);
    QListWidget* List() const { return m_pList; }

Q_SIGNALS:
    void Command(const QString& text);

private:
    QListWidget* m_pList;
    bool m_rebuilding = false;
};

// Layer names and history labels are GBK in the document; the screen wants Unicode.
QString FromGbk(const char* gbk);
// The text a history list shows for a stored label: the label itself, or the text of the key it names.
QString HistoryLabelText(const char* label);
