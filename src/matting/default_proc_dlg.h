#pragma once

#include <cstdint>

#include "imaging/channel.h"
#include "imaging/image.h"
#include "matting/process_thread.h"
#include "matting/ui_queue.h"

// The logic of a dialog that shows a live result while its parameters change (expand and shrink, smart inpaint).
// A change during a run cancels it and starts exactly one new run once it has returned, however many changes came
// meanwhile. The window around it (sliders, buttons) belongs to the shell; it calls Restart on every change.
class DefaultProcDlg : public IProcessNotify {
public:
    // The dialog's name as kept with its settings.
    static constexpr const char* kName = "DefaultProcDlg";

    DefaultProcDlg(CProcessThread& thread, IUiPoster& ui) : m_thread(thread), m_ui(ui) {}
    ~DefaultProcDlg() override = default;

    // From the worker: hands the event to the user-interface thread.
    void PostProcessEvent(uint32_t first, int32_t second) override;

    // On the user-interface thread: first 0 is progress (100 or more shows as 0), 1 the end of a run.
    virtual void OnProcessEvent(uint32_t first, int32_t second);
    // Starts the dialog's process on the worker, typically StartImageProcess(this, ..., noWaitDialog 1).
    virtual void StartProcess() = 0;
    // A run ended with the caller's value and the process's result. Derived dialogs show the result and then call
    // OnFinishedRestart.
    virtual void OnProcessFinished(uint32_t userValue, long result);
    virtual void OnProcessProgress(int percent);

    // Copies of what the dialog changes, put back by Close when the user cancels.
    void SaveImage(COLImage* layerImage);
    void SaveChannel(COLChannel* selectionPlane);
    // Takes the dialog's values and runs the process now, or cancels the running one and runs once more after it.
    void Restart();
    void OnFinishedRestart();
    // Waits for the worker to be idle, puts back the saved plane (restoreChannel) or image, and closes.
    void Close(bool restoreChannel);

    uint32_t IsRestartPending() const { return m_restartPending; }

protected:
    // Reads the controls into the dialog's parameters (the window's business).
    virtual void UpdateData() {}
    // Redraws and closes the window by its cancel path (the window's business).
    virtual void OnClosed() {}

    CProcessThread& m_thread;
    IUiPoster& m_ui;
    COLImage m_savedImage;
    COLChannel m_savedChannel;
    COLImage* m_pImageTarget = nullptr;
    COLChannel* m_pChannelTarget = nullptr;
    uint32_t m_restartPending = 0;
};
