#pragma once

#include "document/canvas_source.h"
#include "document/layer_stack.h"
#include "document/merge_thread.h"
#include "imaging/image.h"

// The live document: the layer stack, its composite picture and the thread that keeps the composite current.
// Only a threaded document runs the merge thread and takes its lock; private documents cost nothing.
class CComposeDocument : public ICanvasSource, public CLayerStack {
public:
    explicit CComposeDocument(int threaded = 0);
    ~CComposeDocument() override;

    // Stores the view; on a threaded document a view hands the document to the merge thread and wakes it.
    // A view detaches (SetView(nullptr)) before it goes away; after that call it is never called again.
    int SetView(ICanvasView* view) override;
    // Scales the part of the composite that the view shows to the whole target (see ScaleForScreen: exact
    // colours at every zoom), with a checkerboard where the picture is see-through. White before any merge.
    int Render(COLImage* target) override;
    void GetSize(int& width, int& height) override;
    int RenderWhole(COLImage* target, int width, int height) override;

    // On a threaded document with a view, wakes the merge thread. Always counts the modification.
    int Refresh() override;
    void Lock(int enter) override;

    // Merges now on the calling thread, under the lock: for a document without thread or view.
    int MergeNow();

    // Quick coarse update of a rectangle of the composite while the user drags; a Refresh at the end restores
    // exact pixels. The composite's alpha (the selection) stays.
    int MergeRect(int left, int top, int right, int bottom, int step);
    int MergeFast(COLImage* destination, CRect rect, int step) const;

    // The last merged picture; its alpha bytes carry the selection. Read it under the lock on a threaded document.
    COLImage* GetComposite() { return &m_composite; }
    bool IsThreaded() const { return m_threaded != 0; }
    CMergeThread& GetMergeThread() { return m_mergeThread; }

private:
    // Lays the target's colours over a checkerboard by how opaque the layers are at the point each target pixel
    // shows (target pixel (dx, dy) shows the document point (x0 + (dx + 0.5) * stepX, y0 + (dy + 0.5) * stepY)).
    void ShowTransparency(COLImage* target, double x0, double y0, double stepX, double stepY) const;

    int m_threaded;
    ICanvasView* m_pView = nullptr;
    COLImage m_composite;
    CMergeThread m_mergeThread;
};
