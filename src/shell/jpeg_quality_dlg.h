#pragma once

#include <QDialog>
#include <QImage>
#include <atomic>
#include <memory>

#include "imaging/image.h"
#include "interchange/compress_test.h"
#include "matting/process_thread.h"

class QCheckBox;
class QLabel;
class QScrollArea;
class QSlider;
class QSpinBox;

// "JPEG quality": a quality slider and box (1..100, 80 at first), "high-quality colour" (no chroma subsampling,
// on at first), the size the file will have, and the picture as the JPEG will show it, at its own size in a
// scrolled view.
//
// Each change of quality (slider released, box edited, box ticked) encodes the whole picture again on the worker
// thread, so that the size is that of the real file and the interface never waits: the size is shown as soon as
// the encoding ends, the preview once it is decoded. A change during a run cancels it; only the newest quality
// counts. Without a worker the run happens at once on the calling thread.
class CJpegDlg : public QDialog, public IProcessNotify {
    Q_OBJECT
public:
    CJpegDlg(QWidget* parent, const COLImage& picture, CProcessThread* worker);
    ~CJpegDlg() override;

    int Quality() const; // 1..100 (0 counts as 1)
    bool HighColour() const;
    int WriterQuality() const; // what the JPEG writer takes: Quality(), plus 100 with high-quality colour
    // The last measured size in bytes, 0 until the first run ends; and whether a run is under way.
    size_t CompressedSize() const { return m_shownSize; }
    bool IsMeasuring() const { return m_running || m_pending; }
    QString SizeText() const;
    const COLImage& Preview() const { return m_shown; }
    QSlider* Slider() const { return m_pSlider; }
    QCheckBox* HighColourBox() const { return m_pHighColour; }

    // IProcessNotify: completion from the worker thread.
    void PostProcessEvent(uint32_t first, int32_t second) override;

protected:
    void done(int result) override;

private:
    void RequestUpdate();
    void StartRun();
    void OnRunDone(long result);
    void ShowSize(size_t bytes);
    void StopWorker();

    const COLImage& m_picture;
    CProcessThread* m_pWorker;
    QSlider* m_pSlider = nullptr;
    QSpinBox* m_pSpin = nullptr;
    QLabel* m_pPercent = nullptr;
    QCheckBox* m_pHighColour = nullptr;
    QLabel* m_pSize = nullptr;
    QLabel* m_pPreview = nullptr;
    QScrollArea* m_pScroll = nullptr;

    // One run at a time; its process, record and result picture live here until it has ended.
    std::unique_ptr<CCompressTestProcess> m_pProcess;
    CompressTestParams m_params;
    COLImage m_result;
    COLImage m_shown;
    bool m_running = false;
    bool m_pending = false; // a newer quality waits for the running run to end
    size_t m_shownSize = 0;
    std::atomic<uint64_t> m_runId{0};
};
