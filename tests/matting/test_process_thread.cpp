#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "matting/default_proc_dlg.h"
#include "matting/gaussian.h"
#include "matting/image_process.h"
#include "matting/process_thread.h"
#include "matting/ui_queue.h"
#include "support/test_support.h"

using namespace std::chrono_literals;

namespace {

// Long enough that a thread which should have moved on has done so; a wrong "still waiting" cannot pass by luck,
// only a wrong "moved on" could be missed.
constexpr auto kSettle = 50ms;
constexpr auto kTimeout = 10s;

// An engine that blocks in the middle of its run until the test opens it. With pollCancel it also returns when a
// cancel is requested, as engines that test their flag do.
class GateProcess : public CImageProcess {
public:
    explicit GateProcess(bool pollCancel = false) : m_pollCancel(pollCancel) {}

    long Process(const void* params) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_started;
            m_order.push_back(m_name + "+");
        }
        m_cv.notify_all();
        ReportProgress(0);
        bool cancelled = false;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_cv.wait(lock, [&] {
                if (m_open) return true;
                if (m_pollCancel && TestAndClearCancel()) return cancelled = true;
                return false;
            });
        }
        ReportProgress(50);
        ReportProgress(100);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_finished;
            m_order.push_back(m_name + "-");
        }
        m_cv.notify_all();
        if (cancelled) return kFail;
        return params ? *static_cast<const long*>(params) : kOk;
    }
    void RequestCancel() override
    {
        CImageProcess::RequestCancel();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cv.notify_all();
    }
    void Open()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_open = true;
        }
        m_cv.notify_all();
    }
    bool WaitStarted(int count = 1)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, kTimeout, [&] { return m_started >= count; });
    }
    int Started()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_started;
    }
    int Finished()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_finished;
    }
    void SetName(std::string name, std::vector<std::string>* order)
    {
        m_name = std::move(name);
        m_pOrder = order;
    }
    std::vector<std::string> Order()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_order;
    }

private:
    bool m_pollCancel;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_open = false;
    int m_started = 0;
    int m_finished = 0;
    std::string m_name = "run";
    std::vector<std::string>* m_pOrder = nullptr;
    std::vector<std::string> m_order;
};

// Records what a listener is told, from the worker thread.
class RecordingListener : public IProcessListener {
public:
    void OnProcessEvent(uint32_t event, int32_t value) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back({event, value});
        }
        m_cv.notify_all();
    }
    bool WaitDone(int count = 1)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, kTimeout, [&] { return Count(1) >= count; });
    }
    std::vector<std::pair<uint32_t, int32_t>> Events()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    int Count(uint32_t event) const
    {
        int n = 0;
        for (auto& e : m_events) n += e.first == event;
        return n;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::vector<std::pair<uint32_t, int32_t>> m_events;
};

// A window stand-in: events are posted to a queue that the test thread drains as the user interface would.
class QueueWindow : public IProcessNotify {
public:
    explicit QueueWindow(CUiQueue& ui) : m_ui(ui) {}
    void PostProcessEvent(uint32_t first, int32_t second) override
    {
        m_ui.Post([this, first, second] { events.push_back({first, second}); });
    }
    int Count(uint32_t first) const
    {
        int n = 0;
        for (auto& e : events) n += e.first == first;
        return n;
    }
    std::vector<std::pair<uint32_t, int32_t>> events;   // touched on the draining thread only

private:
    CUiQueue& m_ui;
};

class RecordingStatus : public IStatusProgress {
public:
    void PostStatusProgress(int percent) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        values.push_back(percent);
    }
    std::vector<int> Values()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return values;
    }

private:
    std::mutex m_mutex;
    std::vector<int> values;
};

} // namespace

// ---------------------------------------------------------------------------------------------------------------

TEST(ImageProcess, ProgressMapsIntoTheGivenRange)
{
    struct Log {
        std::vector<std::pair<uint32_t, int32_t>> calls;
        static void Record(void* self, uint32_t code, int32_t value) { static_cast<Log*>(self)->calls.push_back({code, value}); }
    } log;
    CImageProcess p;
    p.ReportProgress(50);   // no callback: nothing happens
    p.SetProgressCallback({&Log::Record, &log});
    p.SetProgressRange(10, 30);
    p.ReportProgress(0);
    p.ReportProgress(100);
    p.ReportProgress(33);   // 10 + 33 * 20 / 100 = 16.6, truncated
    p.SetProgressRange(100, 0);
    p.ReportProgress(33);   // 100 + 33 * -100 / 100 = 67
    ASSERT_EQ(log.calls.size(), 4u);
    EXPECT_EQ(log.calls[0], (std::pair<uint32_t, int32_t>{1, 10}));
    EXPECT_EQ(log.calls[1].second, 30);
    EXPECT_EQ(log.calls[2].second, 16);
    EXPECT_EQ(log.calls[3].second, 67);
    // A sub-process takes the parent's callback over unchanged.
    CImageProcess child;
    child.SetProgressCallback(p.GetProgressCallback());
    child.SetProgressRange(40, 60);
    child.ReportProgress(50);
    EXPECT_EQ(log.calls.back().second, 50);
}

TEST(ImageProcess, CancelFlagIsClearedByItsTest)
{
    CImageProcess p;
    EXPECT_EQ(p.TestAndClearCancel(), 0u);
    p.RequestCancel();
    p.RequestCancel();
    EXPECT_EQ(p.TestAndClearCancel(), 1u);
    EXPECT_EQ(p.TestAndClearCancel(), 0u);
}

TEST(ImageProcess, BaseValidatesEachModeAndCopies)
{
    // A class that implements only image mode keeps the validator for planes.
    class ImageOnly : public CImageProcess {
    public:
        long Process(const void* params) override
        {
            if (CImageProcess::Process(params) != kOk) return kFail;
            return CopySourceToResult() ? kOk : kFail;
        }
    } p;
    COLImage src, dst, empty;
    COLChannel plane, out, none;
    EXPECT_EQ(p.Process(nullptr), kFail);
    EXPECT_EQ(p.ProcessChannel(nullptr), kFail);
    p.SetImages(&empty, &dst);
    EXPECT_EQ(p.Process(nullptr), kFail);
    vmtest::FillNoise(src, 6, 5, 1);
    p.SetImages(&src, &dst);
    EXPECT_EQ(p.Process(nullptr), kOk);
    EXPECT_TRUE(vmtest::SamePixels(src, dst));
    p.SetChannels(&none, &out);
    EXPECT_EQ(p.ProcessChannel(nullptr), kFail);
    vmtest::FillNoise(plane, 4, 4, 2);
    p.SetChannels(&plane, &out);
    EXPECT_EQ(p.ProcessChannel(nullptr), kOk);   // validated, and nothing done
    EXPECT_TRUE(out.IsNull());

    p.AddImage(&src);
    p.AddImage(&dst);
    p.AddChannel(&plane);
    EXPECT_EQ(p.GetExtraImages().size(), 2u);
    p.ClearImages();
    EXPECT_TRUE(p.GetExtraImages().empty());
    EXPECT_EQ(p.GetExtraChannels().size(), 1u);
    p.ClearChannels();
    EXPECT_TRUE(p.GetExtraChannels().empty());
}

// ---------------------------------------------------------------------------------------------------------------

TEST(ProcessThread, CompletionReachesWindowAndListenerOncePerRun)
{
    CUiQueue ui;
    QueueWindow window(ui);
    RecordingListener listener;
    GateProcess process;
    process.Open();
    const long code = 7;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetListener(&listener);
    EXPECT_EQ(thread.StartImageProcess(&window, &process, &code, 42, 20, 40, 1), 1);
    ASSERT_TRUE(listener.WaitDone());
    thread.WaitIdle();
    EXPECT_FALSE(thread.IsBusy());
    EXPECT_EQ(thread.GetLastResult(), 7);
    EXPECT_EQ(thread.GetNotifyWindow(), &window);
    EXPECT_EQ(thread.GetListener(), nullptr);   // a listener serves one run: the start took it

    ASSERT_TRUE(ui.RunUntil([&] { return window.Count(1) == 1; }, kTimeout));
    // Progress in the caller's range, then the user value.
    const std::vector<std::pair<uint32_t, int32_t>> expected = {{0, 20}, {0, 30}, {0, 40}, {1, 42}};
    EXPECT_EQ(listener.Events(), expected);
    EXPECT_EQ(window.events, expected);

    // A second run without a listener: the window hears of it, the old listener does not.
    EXPECT_EQ(thread.StartImageProcess(&window, &process, &code, 43, 0, 100, 1), 1);
    thread.WaitIdle();
    ASSERT_TRUE(ui.RunUntil([&] { return window.Count(1) == 2; }, kTimeout));
    std::this_thread::sleep_for(kSettle);
    ui.RunPending();
    EXPECT_EQ(window.Count(1), 2);
    EXPECT_EQ(window.events.back(), (std::pair<uint32_t, int32_t>{1, 43}));
    EXPECT_EQ(listener.Count(1), 1);
}

TEST(ProcessThread, SecondStartWaitsForTheFirstRun)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess first, second;
    std::vector<std::string> order;
    first.SetName("A", &order);
    second.SetName("B", &order);
    second.Open();
    RecordingListener listener;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetListener(&listener);
    EXPECT_EQ(thread.StartImageProcess(&window, &first, nullptr, 1, 0, 100, 1), 1);
    ASSERT_TRUE(first.WaitStarted());
    EXPECT_TRUE(thread.IsBusy());

    std::atomic<bool> secondReturned{false};
    std::thread caller([&] {
        thread.StartImageProcess(&window, &second, nullptr, 2, 500, 600, 1);
        secondReturned = true;
    });
    std::this_thread::sleep_for(kSettle);
    EXPECT_FALSE(secondReturned.load());
    EXPECT_EQ(second.Started(), 0);

    first.Open();
    caller.join();
    EXPECT_TRUE(secondReturned.load());
    ASSERT_TRUE(second.WaitStarted());
    thread.WaitIdle();
    EXPECT_EQ(first.Finished(), 1);
    EXPECT_EQ(second.Finished(), 1);
    // The first run had finished before the second began, and the second used its own range.
    ASSERT_TRUE(ui.RunUntil([&] { return window.Count(1) == 2; }, kTimeout));
    std::vector<int32_t> doneValues, secondProgress;
    bool firstDone = false;
    for (auto& e : window.events) {
        if (e.first == 1) {
            doneValues.push_back(e.second);
            firstDone = true;
        } else if (firstDone) {
            secondProgress.push_back(e.second);
        }
    }
    EXPECT_EQ(doneValues, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(secondProgress, (std::vector<int32_t>{500, 550, 600}));
    // The listener was taken by the first start only.
    EXPECT_EQ(listener.Count(1), 1);
}

TEST(ProcessThread, StartWithNeitherWindowNorListenerRunsNothing)
{
    GateProcess process;
    process.Open();
    RecordingListener listener;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetListener(&listener);
    const long code = 5;
    thread.StartImageProcess(nullptr, &process, &code, 0, 0, 100, 1);
    ASSERT_TRUE(listener.WaitDone());
    ASSERT_EQ(thread.GetLastResult(), 5);

    const long other = 9;
    thread.StartImageProcess(nullptr, &process, &other, 0, 0, 100, 1);
    thread.WaitIdle();
    EXPECT_EQ(thread.GetLastResult(), 5);
    EXPECT_EQ(process.Started(), 1);
    // With the wait dialog the caller is not left waiting for a run that never comes.
    EXPECT_EQ(thread.StartImageProcess(nullptr, &process, &other, 0, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    EXPECT_EQ(process.Started(), 1);
    EXPECT_FALSE(thread.IsBusy());
}

TEST(ProcessThread, WaitDialogEndsWithTheRun)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess process;
    CProcessThread thread;   // declared after what it is given, so it ends first
    std::thread opener([&] {
        process.WaitStarted();
        process.Open();
    });
    EXPECT_EQ(thread.StartImageProcess(&window, &process, nullptr, 0, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    opener.join();
    EXPECT_EQ(process.Finished(), 1);
    EXPECT_FALSE(thread.IsBusy());
    EXPECT_FALSE(thread.GetWaitDialog().IsOpen());
    // A run that ends before the dialog would come up does not leave it standing.
    EXPECT_EQ(thread.StartImageProcess(&window, &process, nullptr, 0, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
}

TEST(ProcessThread, EscapeWaitsForAnEngineThatDoesNotLook)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess process(false);
    std::atomic<int> dialogResult{0};
    CProcessThread thread;   // declared after what it is given, so it ends first
    std::thread caller([&] { dialogResult = int(thread.StartImageProcess(&window, &process, nullptr, 0, 0, 100, 0)); });
    ASSERT_TRUE(process.WaitStarted());
    std::atomic<bool> escapeReturned{false};
    std::thread escape([&] {
        thread.GetWaitDialog().OnEscape();
        escapeReturned = true;
    });
    std::this_thread::sleep_for(kSettle);
    // The run goes on: the dialog stays, and so does the key handler.
    EXPECT_EQ(dialogResult.load(), 0);
    EXPECT_FALSE(escapeReturned.load());
    EXPECT_TRUE(thread.GetWaitDialog().IsOpen());
    process.Open();
    escape.join();
    caller.join();
    EXPECT_EQ(dialogResult.load(), CProcessWaitDlg::kEndedByEscape);
    EXPECT_EQ(process.Finished(), 1);
    EXPECT_FALSE(thread.IsBusy());
    // The request is still on the process, unread; the next start clears it so that the next run is not stopped.
    GateProcess* p = &process;
    EXPECT_EQ(p->TestAndClearCancel(), 1u);
}

TEST(ProcessThread, EscapeStopsAnEngineThatLooks)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess process(true);
    std::atomic<int> dialogResult{0};
    CProcessThread thread;   // declared after what it is given, so it ends first
    std::thread caller([&] { dialogResult = int(thread.StartImageProcess(&window, &process, nullptr, 0, 0, 100, 0)); });
    ASSERT_TRUE(process.WaitStarted());
    thread.GetWaitDialog().OnEscape();
    caller.join();
    EXPECT_EQ(dialogResult.load(), CProcessWaitDlg::kEndedByEscape);
    EXPECT_EQ(thread.GetLastResult(), kFail);
    // Escape when the worker is idle just closes.
    thread.GetWaitDialog().Arm(1000);
    EXPECT_TRUE(thread.GetWaitDialog().IsOpen());
    thread.GetWaitDialog().OnEscape();
    EXPECT_EQ(thread.GetWaitDialog().DoModal(1000), CProcessWaitDlg::kEndedByEscape);
}

TEST(ProcessThread, LeftoverCancelDoesNotStopTheNextRun)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess process(true);
    process.RequestCancel();
    RecordingListener listener;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetListener(&listener);
    const long code = 3;
    thread.StartImageProcess(&window, &process, &code, 0, 0, 100, 1);
    ASSERT_TRUE(process.WaitStarted());
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(process.Finished(), 0);   // still waiting at its gate, not cancelled
    process.Open();
    ASSERT_TRUE(listener.WaitDone());
    EXPECT_EQ(thread.GetLastResult(), 3);
}

TEST(ProcessThread, CancelReachesTheImageAndTheChannelProcess)
{
    CUiQueue ui;
    QueueWindow window(ui);
    GateProcess image, channel;
    image.Open();
    channel.Open();
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.StartImageProcess(&window, &image, nullptr, 0, 0, 100, 1);
    thread.StartChannelProcess(&window, &channel, nullptr, 0, 0, 100, 1);
    thread.WaitIdle();
    thread.CancelRunning();
    EXPECT_EQ(image.TestAndClearCancel(), 1u);
    EXPECT_EQ(channel.TestAndClearCancel(), 1u);
}

TEST(ProcessThread, StatusBarShowsOutOfRangeValuesAsFull)
{
    CUiQueue ui;
    QueueWindow window(ui);
    RecordingStatus status;
    GateProcess process;
    process.Open();
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetStatusProgress(&status);
    // Range -2..102: the engine's 0, 50 and 100 become -2, 50 and 102.
    thread.StartImageProcess(&window, &process, nullptr, 0, -2, 102, 1);
    thread.WaitIdle();
    EXPECT_EQ(status.Values(), (std::vector<int>{100, 50, 100}));
}

TEST(ProcessThread, ShuttingDownStopsARunThatLooks)
{
    GateProcess process(true);
    CUiQueue ui;
    QueueWindow window(ui);
    {
        CProcessThread thread;
        thread.StartImageProcess(&window, &process, nullptr, 0, 0, 100, 1);
        ASSERT_TRUE(process.WaitStarted());
    }
    EXPECT_EQ(process.Finished(), 1);
}

TEST(ProcessThread, GaussianOnTheWorkerMatchesADirectCall)
{
    COLImage src, direct, threaded;
    vmtest::FillNoise(src, 120, 90, 8);
    const double sigma = 3.5;
    CGaussianProcess a, b;
    a.SetImages(&src, &direct);
    ASSERT_EQ(a.Process(&sigma), kOk);
    RecordingListener listener;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetListener(&listener);
    b.SetImages(&src, &threaded);
    EXPECT_EQ(thread.StartImageProcess(nullptr, &b, &sigma, 11, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    EXPECT_EQ(thread.GetLastResult(), kOk);
    EXPECT_TRUE(vmtest::SamePixels(direct, threaded));
    ASSERT_TRUE(listener.WaitDone());
    const auto events = listener.Events();
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front(), (std::pair<uint32_t, int32_t>{0, 0}));
    EXPECT_EQ(events[events.size() - 2], (std::pair<uint32_t, int32_t>{0, 100}));
    EXPECT_EQ(events.back(), (std::pair<uint32_t, int32_t>{1, 11}));
}

// ---------------------------------------------------------------------------------------------------------------

namespace {

// A live-preview dialog whose process waits at a gate; it counts the runs it starts and what it is shown.
class GateDialog : public DefaultProcDlg {
public:
    GateDialog(CProcessThread& thread, IUiPoster& ui, GateProcess& process)
        : DefaultProcDlg(thread, ui), m_process(process)
    {
    }
    void StartProcess() override
    {
        ++starts;
        m_thread.StartImageProcess(this, &m_process, nullptr, uint32_t(starts), 0, 100, 1);
    }
    void OnProcessFinished(uint32_t userValue, long result) override
    {
        finished.push_back({userValue, result});
        DefaultProcDlg::OnProcessFinished(userValue, result);
    }
    void OnProcessProgress(int percent) override { progress.push_back(percent); }
    void UpdateData() override { ++updates; }
    void OnClosed() override { ++closed; }

    int starts = 0;
    int updates = 0;
    int closed = 0;
    std::vector<std::pair<uint32_t, long>> finished;
    std::vector<int> progress;

private:
    GateProcess& m_process;
};

} // namespace

TEST(DefaultProcDlg, ChangesDuringARunEndInExactlyOneMoreRun)
{
    CUiQueue ui;
    GateProcess process(false);   // does not look at its flag: it stays busy through all the changes
    CProcessThread thread;   // declared after what it is given, so it ends first
    GateDialog dlg(thread, ui, process);
    EXPECT_STREQ(DefaultProcDlg::kName, "DefaultProcDlg");
    dlg.Restart();
    ASSERT_TRUE(process.WaitStarted());
    for (int i = 0; i < 5; ++i) dlg.Restart();   // five changes while the first run works
    EXPECT_EQ(dlg.starts, 1);
    EXPECT_EQ(dlg.IsRestartPending(), 1u);
    EXPECT_EQ(dlg.updates, 6);
    // The first run's end starts the second.
    process.Open();
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.finished.size() == 2; }, kTimeout));
    thread.WaitIdle();
    std::this_thread::sleep_for(kSettle);
    ui.RunPending();
    EXPECT_EQ(dlg.starts, 2);
    ASSERT_EQ(dlg.finished.size(), 2u);
    EXPECT_EQ(dlg.finished[0], (std::pair<uint32_t, long>{1, kOk}));
    EXPECT_EQ(dlg.finished[1], (std::pair<uint32_t, long>{2, kOk}));
    EXPECT_EQ(dlg.IsRestartPending(), 0u);
    // A reported 100 reads as 0; the other values pass.
    EXPECT_EQ(dlg.progress, (std::vector<int>{0, 50, 0, 0, 50, 0}));
}

TEST(DefaultProcDlg, ARunCancelledByAChangeEndsInOneRunWithTheLatestValues)
{
    CUiQueue ui;
    GateProcess process(true);   // returns as soon as it is cancelled
    CProcessThread thread;   // declared after what it is given, so it ends first
    GateDialog dlg(thread, ui, process);
    dlg.Restart();
    ASSERT_TRUE(process.WaitStarted());
    dlg.Restart();   // cancels the first run
    EXPECT_EQ(dlg.IsRestartPending(), 1u);
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.starts == 2; }, kTimeout));
    process.Open();
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.finished.size() == 2; }, kTimeout));
    thread.WaitIdle();
    std::this_thread::sleep_for(kSettle);
    ui.RunPending();
    EXPECT_EQ(dlg.starts, 2);
    EXPECT_EQ(dlg.finished[0].second, kFail);
    EXPECT_EQ(dlg.finished[1].second, kOk);
    EXPECT_EQ(dlg.updates, 3);
}

TEST(DefaultProcDlg, CloseWaitsAndPutsBackWhatWasSaved)
{
    CUiQueue ui;
    GateProcess process;
    process.Open();
    CProcessThread thread;   // declared after what it is given, so it ends first
    GateDialog dlg(thread, ui, process);
    COLImage layer, original;
    COLChannel plane, originalPlane;
    vmtest::FillNoise(layer, 8, 6, 1);
    vmtest::FillNoise(plane, 8, 6, 2);
    original.DuplicateFrom(&layer);
    originalPlane.DuplicateFrom(&plane);
    dlg.SaveImage(&layer);
    dlg.SaveChannel(&plane);
    dlg.Restart();
    layer.PutPixel(0, 0, CPixel::FromWord(0x12345678));
    plane.SetValue(1, 1, uint8_t(plane.GetValue(1, 1) + 1));
    dlg.Close(false);
    EXPECT_FALSE(thread.IsBusy());
    EXPECT_TRUE(vmtest::SamePixels(layer, original));
    EXPECT_NE(plane.GetValue(1, 1), originalPlane.GetValue(1, 1));
    dlg.Close(true);
    EXPECT_EQ(plane.GetValue(1, 1), originalPlane.GetValue(1, 1));
    EXPECT_EQ(dlg.closed, 2);
}
