#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include "matting/default_proc_dlg.h"
#include "matting/gaussian.h"
#include "matting/process_thread.h"
#include "matting/ui_queue.h"
#include "support/test_support.h"

using namespace std::chrono_literals;
using Event = std::pair<uint32_t, int32_t>;

namespace {

// Long enough that a thread which should have moved on has done so: a wrong "still waiting" cannot pass by luck.
constexpr auto kSettle = 50ms;
constexpr auto kTimeout = 10s;

// An engine that stops at a gate in the middle of its run (reporting 0 before, 50 and 100 after) until the test
// opens it. With pollCancel it also returns, failed, when a cancel is requested, as engines that test their flag do.
class GateProcess : public CImageProcess {
public:
    explicit GateProcess(bool pollCancel = false, bool open = false) : m_pollCancel(pollCancel), m_open(open) {}

    long Process(const void* params) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_started;
        m_cv.notify_all();
        lock.unlock();
        ReportProgress(0);
        lock.lock();
        bool cancelled = false;
        m_cv.wait(lock, [&] { return (m_pollCancel && (cancelled = TestAndClearCancel() != 0)) || m_open; });
        lock.unlock();
        ReportProgress(50);
        ReportProgress(100);
        lock.lock();
        ++m_finished;
        if (cancelled) return kFail;
        return params ? *static_cast<const long*>(params) : kOk;
    }
    long ProcessChannel(const void* params) override { return Process(params); }
    void RequestCancel() override
    {
        CImageProcess::RequestCancel();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cv.notify_all();
    }
    void Open()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_cv.notify_all();
    }
    bool WaitStarted()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, kTimeout, [&] { return m_started > 0; });
    }
    int Started() { return Read(m_started); }
    int Finished() { return Read(m_finished); }

private:
    int Read(const int& count)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return count;
    }
    bool m_pollCancel;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_open;
    int m_started = 0;
    int m_finished = 0;
};

// Listener, window stand-in and status bar in one: records what it is told, from whichever thread.
class Recorder : public IProcessListener, public IProcessNotify, public IStatusProgress {
public:
    void OnProcessEvent(uint32_t event, int32_t value) override { Add(m_listener, {event, value}); }
    void PostProcessEvent(uint32_t first, int32_t second) override { Add(m_window, {first, second}); }
    void PostStatusProgress(int percent) override { Add(m_status, {0, percent}); }

    std::vector<Event> Listener() { return Get(m_listener); }
    std::vector<Event> Window() { return Get(m_window); }
    std::vector<Event> Status() { return Get(m_status); }
    bool WaitListenerDone(int runs)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, kTimeout, [&] {
            return std::count_if(m_listener.begin(), m_listener.end(), [](const Event& e) { return e.first == 1; }) >= runs;
        });
    }

private:
    void Add(std::vector<Event>& to, Event e)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        to.push_back(e);
        m_cv.notify_all();
    }
    std::vector<Event> Get(const std::vector<Event>& from)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return from;
    }
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::vector<Event> m_listener, m_window, m_status;
};

} // namespace

TEST(ImageProcess, ProgressRangeCancelFlagAndValidation)
{
    struct Log {
        std::vector<Event> calls;
        static void Record(void* self, uint32_t code, int32_t value) { static_cast<Log*>(self)->calls.push_back({code, value}); }
    } log;
    CImageProcess p;
    p.ReportProgress(50);   // no callback: nothing happens
    p.SetProgressCallback({&Log::Record, &log});
    p.SetProgressRange(10, 30);
    p.ReportProgress(0);
    p.ReportProgress(100);
    p.ReportProgress(33);   // 10 + 33 * 20 / 100, truncated
    CImageProcess child;    // a sub-process reports through its parent's callback, in its own part of the range
    child.SetProgressCallback(p.GetProgressCallback());
    child.SetProgressRange(100, 0);
    child.ReportProgress(33);
    EXPECT_EQ(log.calls, (std::vector<Event>{{1, 10}, {1, 30}, {1, 16}, {1, 67}}));

    EXPECT_EQ(p.TestAndClearCancel(), 0u);
    p.RequestCancel();
    p.RequestCancel();
    EXPECT_EQ(p.TestAndClearCancel(), 1u);
    EXPECT_EQ(p.TestAndClearCancel(), 0u);

    // The base validates: a class that implements neither mode does nothing once the inputs are right.
    COLImage src, dst, empty;
    COLChannel plane, out;
    EXPECT_EQ(p.Process(nullptr), kFail);
    EXPECT_EQ(p.ProcessChannel(nullptr), kFail);
    p.SetImages(&empty, &dst);
    EXPECT_EQ(p.Process(nullptr), kFail);
    vmtest::FillNoise(src, 6, 5, 1);
    vmtest::FillNoise(plane, 4, 4, 2);
    p.SetImages(&src, &dst);
    p.SetChannels(&plane, &out);
    EXPECT_EQ(p.Process(nullptr), kOk);
    EXPECT_EQ(p.ProcessChannel(nullptr), kOk);
    EXPECT_TRUE(dst.IsNull());
    EXPECT_TRUE(out.IsNull());
    EXPECT_EQ(p.CopySourceToResult(), 1);
    EXPECT_TRUE(vmtest::SamePixels(src, dst));
    p.AddImage(&src);
    p.AddChannel(&plane);
    p.ClearImages();
    EXPECT_TRUE(p.GetExtraImages().empty());
    EXPECT_EQ(p.GetExtraChannels().size(), 1u);
}

TEST(ProcessThread, CompletionReachesWindowAndListenerOncePerRun)
{
    Recorder rec;
    GateProcess process(false, true);
    const long code = 7;
    CProcessThread thread;   // declared after what it is given, so it ends first
    thread.SetStatusProgress(&rec);
    thread.SetListener(&rec);
    EXPECT_EQ(thread.StartImageProcess(&rec, &process, &code, 42, 20, 40, 1), 1);
    EXPECT_EQ(thread.GetListener(), nullptr);   // the start took it: a listener serves one run
    ASSERT_TRUE(rec.WaitListenerDone(1));
    // A second run, without a listener, in a range that goes beyond 0..100 on both sides.
    EXPECT_EQ(thread.StartImageProcess(&rec, &process, &code, 43, -2, 102, 1), 1);
    thread.WaitDone();
    EXPECT_FALSE(thread.IsBusy());
    EXPECT_EQ(thread.GetLastResult(), 7);
    EXPECT_EQ(thread.GetNotifyWindow(), &rec);
    EXPECT_EQ(rec.Listener(), (std::vector<Event>{{0, 20}, {0, 30}, {0, 40}, {1, 42}}));
    EXPECT_EQ(rec.Window(), (std::vector<Event>{{0, 20}, {0, 30}, {0, 40}, {1, 42}, {0, -2}, {0, 50}, {0, 102}, {1, 43}}));
    // The status bar shows values outside 0..100 as 100.
    EXPECT_EQ(rec.Status(), (std::vector<Event>{{0, 20}, {0, 30}, {0, 40}, {0, 100}, {0, 50}, {0, 100}}));
}

TEST(ProcessThread, SecondStartWaitsForTheFirstRun)
{
    Recorder rec;
    GateProcess first, second(false, true);
    CProcessThread thread;
    EXPECT_EQ(thread.StartImageProcess(&rec, &first, nullptr, 1, 0, 100, 1), 1);
    ASSERT_TRUE(first.WaitStarted());
    EXPECT_TRUE(thread.IsBusy());
    std::atomic<bool> secondReturned{false};
    std::thread caller([&] {
        thread.StartImageProcess(&rec, &second, nullptr, 2, 500, 600, 1);
        secondReturned = true;
    });
    std::this_thread::sleep_for(kSettle);
    EXPECT_FALSE(secondReturned.load());
    EXPECT_EQ(second.Started(), 0);
    first.Open();
    caller.join();
    thread.WaitDone();
    // The first run ended before the second began, and the second reported in its own range.
    EXPECT_EQ(rec.Window(), (std::vector<Event>{{0, 0}, {0, 50}, {0, 100}, {1, 1}, {0, 500}, {0, 550}, {0, 600}, {1, 2}}));
}

TEST(ProcessThread, StartWithNeitherWindowNorListenerRunsNothing)
{
    Recorder rec;
    GateProcess process(false, true);
    const long code = 5, other = 9;
    CProcessThread thread;
    thread.SetListener(&rec);
    thread.StartImageProcess(nullptr, &process, &code, 0, 0, 100, 1);
    thread.WaitDone();
    ASSERT_EQ(thread.GetLastResult(), 5);
    thread.StartImageProcess(nullptr, &process, &other, 0, 0, 100, 1);
    thread.WaitDone();
    EXPECT_EQ(thread.GetLastResult(), 5);
    // With the wait dialog the caller is not left waiting for a run that never comes.
    EXPECT_EQ(thread.StartImageProcess(nullptr, &process, &other, 0, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    EXPECT_EQ(process.Started(), 1);
}

TEST(ProcessThread, WaitDialogEndsWithTheRunOrAfterEscape)
{
    Recorder rec;
    GateProcess quick(false, true), deaf(false), listening(true);
    CProcessThread thread;
    CProcessWaitDlg& dlg = thread.GetWaitDialog();
    // A run that ends before the dialog would come up does not leave it standing.
    EXPECT_EQ(thread.StartImageProcess(&rec, &quick, nullptr, 0, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    EXPECT_FALSE(dlg.IsOpen());

    // ESC during an engine that never looks at its flag: the dialog and the key handler wait for its end.
    std::atomic<int> result{0};
    std::thread caller([&] { result = int(thread.StartImageProcess(&rec, &deaf, nullptr, 0, 0, 100, 0)); });
    ASSERT_TRUE(deaf.WaitStarted());
    std::atomic<bool> escaped{false};
    std::thread escape([&] {
        dlg.OnEscape();
        escaped = true;
    });
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(result.load(), 0);
    EXPECT_FALSE(escaped.load());
    EXPECT_TRUE(dlg.IsOpen());
    deaf.Open();
    escape.join();
    caller.join();
    EXPECT_EQ(result.load(), CProcessWaitDlg::kEndedByEscape);
    EXPECT_EQ(deaf.Finished(), 1);

    // ESC during an engine that looks: it stops early.
    std::thread caller2([&] { result = int(thread.StartImageProcess(&rec, &listening, nullptr, 0, 0, 100, 0)); });
    ASSERT_TRUE(listening.WaitStarted());
    dlg.OnEscape();
    caller2.join();
    EXPECT_EQ(result.load(), CProcessWaitDlg::kEndedByEscape);
    EXPECT_EQ(thread.GetLastResult(), kFail);

    // ESC when the worker is idle just closes.
    dlg.Arm(1000);
    EXPECT_TRUE(dlg.IsOpen());
    dlg.OnEscape();
    EXPECT_EQ(dlg.DoModal(1000), CProcessWaitDlg::kEndedByEscape);
}

TEST(ProcessThread, CancelServesBothProcessesAndALeftoverDoesNotStopTheNextRun)
{
    Recorder rec;
    GateProcess image(true, true), channel(true);
    const long code = 3;
    CProcessThread thread;
    thread.StartImageProcess(&rec, &image, nullptr, 0, 0, 100, 1);
    thread.WaitIdle();
    // Both the last image-mode and the last channel-mode process get the request, running or not.
    thread.StartChannelProcess(&rec, &channel, &code, 0, 0, 100, 1);
    ASSERT_TRUE(channel.WaitStarted());
    thread.CancelRunning();
    thread.WaitIdle();
    EXPECT_EQ(thread.GetLastResult(), kFail);
    EXPECT_EQ(image.TestAndClearCancel(), 1u);
    // A request nobody read (the run ended first) is cleared by the next start.
    channel.RequestCancel();
    channel.Open();
    thread.StartChannelProcess(&rec, &channel, &code, 0, 0, 100, 1);
    thread.WaitIdle();
    EXPECT_EQ(thread.GetLastResult(), 3);
}

TEST(ProcessThread, ShuttingDownStopsARunThatLooks)
{
    Recorder rec;
    GateProcess process(true);
    {
        CProcessThread thread;
        thread.StartImageProcess(&rec, &process, nullptr, 0, 0, 100, 1);
        ASSERT_TRUE(process.WaitStarted());
    }
    EXPECT_EQ(process.Finished(), 1);
}

TEST(ProcessThread, GaussianOnTheWorkerMatchesADirectCall)
{
    COLImage src = vmtest::Noise(120, 90, 8), direct, threaded;
    const double sigma = 3.5;
    CGaussianProcess a, b;
    a.SetImages(&src, &direct);
    ASSERT_EQ(a.Process(&sigma), kOk);
    Recorder rec;
    CProcessThread thread;
    thread.SetListener(&rec);
    b.SetImages(&src, &threaded);
    EXPECT_EQ(thread.StartImageProcess(nullptr, &b, &sigma, 11, 0, 100, 0), CProcessWaitDlg::kEndedByRun);
    EXPECT_EQ(thread.GetLastResult(), kOk);
    EXPECT_TRUE(vmtest::SamePixels(direct, threaded));
    thread.WaitDone();
    const auto events = rec.Listener();
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front(), (Event{0, 0}));
    EXPECT_EQ(events[events.size() - 2], (Event{0, 100}));
    EXPECT_EQ(events.back(), (Event{1, 11}));
}

namespace {

// A live-preview dialog around a gated process; it counts the runs it starts and what it is shown.
class GateDialog : public DefaultProcDlg {
public:
    GateDialog(CProcessThread& thread, IUiPoster& ui, GateProcess& process) : DefaultProcDlg(thread, ui), m_process(process) {}
    void StartProcess() override { m_thread.StartImageProcess(this, &m_process, nullptr, uint32_t(++starts), 0, 100, 1); }
    void OnProcessFinished(uint32_t userValue, long result) override
    {
        finished.push_back({userValue, result});
        DefaultProcDlg::OnProcessFinished(userValue, result);
    }
    void OnProcessProgress(int percent) override { progress.push_back(percent); }
    void UpdateData() override { ++updates; }
    void OnClosed() override { ++closed; }

    int starts = 0, updates = 0, closed = 0;
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
    CProcessThread thread;
    GateDialog dlg(thread, ui, process);
    dlg.Restart();
    ASSERT_TRUE(process.WaitStarted());
    for (int i = 0; i < 5; ++i) dlg.Restart();
    EXPECT_EQ(dlg.starts, 1);
    EXPECT_EQ(dlg.IsRestartPending(), 1u);
    process.Open();
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.finished.size() == 2; }, kTimeout));
    thread.WaitDone();
    ui.RunPending();
    EXPECT_EQ(dlg.starts, 2);
    EXPECT_EQ(dlg.updates, 7);
    EXPECT_EQ(dlg.finished, (std::vector<std::pair<uint32_t, long>>{{1, kOk}, {2, kOk}}));
    EXPECT_EQ(dlg.IsRestartPending(), 0u);
    EXPECT_EQ(dlg.progress, (std::vector<int>{0, 50, 0, 0, 50, 0}));   // a reported 100 reads as 0
}

TEST(DefaultProcDlg, ARunCancelledByAChangeEndsInOneRunWithTheLatestValues)
{
    CUiQueue ui;
    GateProcess process(true);   // returns as soon as it is cancelled
    CProcessThread thread;
    GateDialog dlg(thread, ui, process);
    dlg.Restart();
    ASSERT_TRUE(process.WaitStarted());
    dlg.Restart();
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.starts == 2; }, kTimeout));
    process.Open();
    ASSERT_TRUE(ui.RunUntil([&] { return dlg.finished.size() == 2; }, kTimeout));
    thread.WaitDone();
    ui.RunPending();
    EXPECT_EQ(dlg.starts, 2);
    EXPECT_EQ(dlg.updates, 3);
    EXPECT_EQ(dlg.finished, (std::vector<std::pair<uint32_t, long>>{{1, kFail}, {2, kOk}}));
}

TEST(DefaultProcDlg, CloseWaitsAndPutsBackWhatWasSaved)
{
    CUiQueue ui;
    GateProcess process(false, true);
    CProcessThread thread;
    GateDialog dlg(thread, ui, process);
    COLImage layer = vmtest::Noise(8, 6, 1), original = vmtest::Copy(layer);
    COLChannel plane = vmtest::NoisePlane(8, 6, 2), originalPlane = vmtest::Copy(plane);
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

// An engine that runs out of memory (or throws anything else) fails its run; the worker carries on.
TEST(ProcessThread, AThrowingEngineFailsItsRunAndTheWorkerCarriesOn)
{
    struct Throwing : CImageProcess {
        bool badAlloc = true;
        long Process(const void*) override
        {
            if (badAlloc) throw std::bad_alloc();
            throw std::runtime_error("engine fault");
        }
    };
    Recorder rec;
    Throwing thrower;
    GateProcess fine(false, true);
    const long code = 4;
    CProcessThread thread;
    const uint64_t exhausted = vmrt::ExhaustionCount();
    for (bool badAlloc : {true, false}) {
        thrower.badAlloc = badAlloc;
        thread.StartImageProcess(&rec, &thrower, nullptr, 0, 0, 100, 1);
        thread.WaitDone();
        EXPECT_EQ(thread.GetLastResult(), kFail) << badAlloc;
        thread.StartImageProcess(&rec, &fine, &code, 0, 0, 100, 1);
        thread.WaitDone();
        EXPECT_EQ(thread.GetLastResult(), 4) << badAlloc;
    }
    EXPECT_EQ(vmrt::ExhaustionCount(), exhausted + 1);   // only the bad_alloc counts as running out of memory
}
