#pragma once

#include <string>
#include <vector>

class CLayerStack;

// Step kinds of the compose history.
enum : int {
    kStepCurrentLayer = 1,      // arg unused
    kStepLayerHeader = 2,       // arg: layer (low 16 bits)
    kStepLayerRegion = 3,       // arg: layer
    kStepLayerHeaderRegion = 4, // arg: layer (low 16 bits)
    kStepChannel = 5,           // arg: channel, -1 for the selection mask
    kStepRemoveLayer = 6,       // arg: layer
    kStepNewLayer = 8,          // arg: layer after which it was added; high 16 bits: kind
    kStepAddChannel = 9,
    kStepRemoveChannel = 10,        // arg: channel
    kStepNewLayerWithContent = 104, // arg: new layer (low 16 bits), kind (high 16 bits)
    kStepMoveLayer = 105,           // arg: from (low 16 bits), to (high 16 bits)
    kStepWholeDocument = 255,
};

// Moving through a history: what the undo, redo and jump commands need. Results are 1 on success, 0 when the
// move is not possible or its replay failed.
class IHistoryNavigator {
public:
    virtual int Forward() = 0;
    virtual int Backward() = 0;
    virtual int JumpTo(int step) = 0;

protected:
    ~IHistoryNavigator() = default;
};

// Where commands record their undo steps. The disk-backed compose history implements it; commands call AddStep
// after they changed the document. label is the string key of the step's text (for example "His_select"); the
// history turns it into the user's language when it stores the record. AddStep returns the current step after
// the call, or -1 when the log could not be written.
class IHistorySink : public IHistoryNavigator {
public:
    virtual int AddStep(CLayerStack* document, int kind, int arg, const char* label) = 0;
    // Empties the log, as when a new document is opened.
    virtual int Reset() = 0;

protected:
    ~IHistorySink() = default;
};

// Keeps the steps in memory without any pixels: for tests and for runs that need no undo. Moves only count
// steps (the first one cannot be undone), they do not replay anything.
class CRecordingHistory final : public IHistorySink {
public:
    struct Step {
        int kind;
        int arg;
        std::string label;
        int layerCount; // of the document when the step was added
    };

    int AddStep(CLayerStack* document, int kind, int arg, const char* label) override;
    int Reset() override;
    int Forward() override;
    int Backward() override;
    int JumpTo(int step) override;

    const std::vector<Step>& Steps() const { return m_steps; }
    int CurrentStep() const { return m_current; }
    int ResetCount() const { return m_resets; }
    void Clear()
    {
        m_steps.clear();
        m_current = 0;
    }

private:
    std::vector<Step> m_steps;
    int m_current = 0;
    int m_resets = 0;
};
