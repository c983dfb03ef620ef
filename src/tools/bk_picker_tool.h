#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "imaging/image.h"
#include "matting/backdrop_key_run.h"
#include "matting/blue_matting_logic.h"
#include "tools/tool_base.h"

// What the backdrop picker needs from the chroma-key page of the side panel. The editor's page implements it;
// without one (a script) the picker keys with the panel's defaults, directly on the calling thread.
class IBkPickerPage {
public:
    // The page's controls, its record and first-pick rule, its list of colours (a batch) and its hue strip.
    virtual CBlueMattingLogic& Logic() = 0;
    // The "Refined key" check box.
    virtual bool IsRefined() const = 0;
    virtual void ShowPage(bool show) = 0;
    // A colour was picked (the strip shows it) and a run is about to start.
    virtual void OnPicked() = 0;
    // A key's result now stands in the selection document (the cleaning page's histogram follows it).
    virtual void OnResult() = 0;
    // The result was taken away (a second click, a reset).
    virtual void OnReset() = 0;
    // Runs the key on the worker with the wait dialog and its progress; answers the process's result, and
    // cancelled when the user stopped waiting with Esc.
    virtual long RunKey(CImageProcess& process, const void* params, bool& cancelled) = 0;
    // Before the picker changes its pictures: the page's own run (a live preview) must be done with them.
    virtual void WaitIdle() {}

protected:
    ~IBkPickerPage() = default;
};

// The picker's option panel: a slider between "takes less" and "takes more" for gray, white and black backdrops
// (the luma key), 0 to 100 from 0, a feather check box that nothing reads, and Apply.
class CPropBkPicker : public CToolOptions {
public:
    int GetSlider() const { return m_slider; }
    void SetSlider(int value)
    {
        m_slider = value < 0 ? 0 : value > 100 ? 100 : value;
        Changed();
    }
    uint32_t GetFeather() const { return m_feather; }
    void ToggleFeather()
    {
        m_feather ^= 1u;
        Changed();
    }
    // Apply: the tool takes the slider as its luma strength and keys again.
    void Apply()
    {
        if (onApply) onApply();
    }
    std::function<void()> onApply;

private:
    int m_slider = 0;
    uint32_t m_feather = 0;
};

// Picks the backdrop colour with a click and keys it out of the working image of selection mode. The result
// replaces the working image (colours with the backdrop's tint taken out) and becomes the result mask (its
// alpha squared), with one selection step "His_bkpicker". A click while a result stands takes it away.
class CBkPickerTool : public CToolBase {
public:
    explicit CBkPickerTool(CToolContext* context);
    int IsSelectionModeTool() override { return 1; }
    int OnActivate() override;
    int OnDeactivate() override;
    int OnLButtonDown(uint32_t flags, int x, int y) override;
    int OnSetCursor(int, int, int, int, int, int) override;

    void SetPage(IBkPickerPage* page) { m_pPage = page; }
    IBkPickerPage* GetPage() const { return m_pPage; }
    CPropBkPicker& GetPanel() { return m_panel; }

    // The colour a click at image point (x, y) picks: the mean per channel, truncated, of the pixels (x, y),
    // (x-1, y-1), (x+1, y+1) and (x-1, y+1), each clamped into the picture; alpha that of (x, y).
    static CPixel PickColour(const COLImage& image, int x, int y);

    // Keys the working image with the picked colour and the page's settings; false when nothing changed (no
    // colour, cancelled, failed: the last says "except").
    bool Start();
    // Takes the result away: the working image is the layer's picture again and the mask goes.
    void Reset();
    // On entering the chroma method: any result goes, no colour is picked, the page's strength is back at 50.
    void ResetForEntry();
    // On leaving selection mode: the colour and the copy of the picture go.
    void Forget();
    // The option panel's Apply: the slider becomes the luma key's strength and the key runs again.
    void ApplyPanel();
    // Keys the picture before the key again with the current settings (the page's Apply); false as Start.
    bool Rerun();

    const std::vector<uint32_t>& GetPicked() const { return m_picked; }
    bool HasResult() const;
    int GetLumaStrength() const { return m_lumaStrength; }
    // The settings of the next run: the page's record with the picked colour, the luma strength, the refine box.
    ChromaKeySettings CurrentSettings();
    // The working image as it was before the key: the source of every run since the pick.
    const COLImage& GetBeforeKey() const { return m_beforeKey; }
    // The same, as a process's source (a run only reads it).
    COLImage* BeforeKeySource() { return &m_beforeKey; }
    // Puts a finished key's picture into the selection document: the mask from its alpha, squared, and the working
    // image from its pixels; records "His_bkpicker" when record is set. False without memory (nothing changed).
    bool TakeResult(const COLImage& result, bool record);

private:
    CBlueMattingLogic& Logic() { return m_pPage ? m_pPage->Logic() : m_ownLogic; }

    CPropBkPicker m_panel;
    COLImage m_result;
    std::vector<uint32_t> m_picked;
    IBkPickerPage* m_pPage = nullptr;
    CBackdropKeyRun m_process;
    int m_lumaStrength = 32;
    COLImage m_beforeKey;
    CBlueMattingLogic m_ownLogic;
};
