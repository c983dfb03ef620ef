#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "imaging/channel.h"
#include "imaging/rect.h"

class CLayer;
class COLImage;

// The design limits: the project file stores counts in a byte and the history follows 32 of each.
inline constexpr int kMaxLayers = 32;
inline constexpr int kMaxChannels = 32;

// GBK bytes of the default layer names: "背景" for the first layer, "图层%d" with the layer count after it.
inline constexpr char kBackgroundLayerName[] = "\xB1\xB3\xBE\xB0";
inline constexpr char kLayerNameFormat[] = "\xCD\xBC\xB2\xE3%d";

// An ordered stack of layers over a base layer (index 0) that fixes the document's size, plus saved selections
// (channels) and the selection mask. Changes of the layer list, channel list, size and mask buffer happen
// between Lock(1) and Lock(0); pixel changes do not need the lock.
class CLayerStack {
public:
    CLayerStack() = default;
    CLayerStack(const CLayerStack&) = delete;
    CLayerStack& operator=(const CLayerStack&) = delete;

    // Asks for a new composite; here only the modification counter moves. Returns the new count.
    virtual int Refresh();
    // Load flag 1 reads a document stream, 0 writes one. A null stream returns 0.
    virtual int Serialize(FILE* stream, int load);
    // 1 enters, 0 leaves the document's re-entrant lock; a stack without a merge thread has none.
    virtual void Lock(int enter);
    virtual ~CLayerStack();

    int GetLayerCount() const { return static_cast<int>(m_layers.size()); }
    CLayer* GetLayer(int index) const;
    CLayer** GetLayerArray() { return m_layers.data(); }
    int GetCurrentIndex() const { return m_currentLayer; }
    void SetCurrentIndex(int index) { m_currentLayer = index; }
    // The current layer, or null when the list is empty or the index lies outside it.
    CLayer* GetCurrentLayer() const;
    int IndexOfLayer(const CLayer* layer) const;
    int IndexOfImage(const COLImage* image) const;
    // (x, y, x + width, y + height); an image without buffer gives an empty rectangle at (x, y).
    CRect GetLayerRect(const CLayer* layer) const;
    // "背景" on an empty stack, else "图层N" with N the layer count; GBK into a 32-byte field.
    void MakeDefaultName(char* name) const;
    // Other default names, GBK, for an interface in another language: the base's name and a layer's name in
    // which "%d" stands for the number. Empty texts bring back the defaults above.
    void SetDefaultNames(const std::string& background, const std::string& layerPattern);

    // New transparent layer of the document's size behind afterIndex (-1 on an empty stack). Kind 0 raster,
    // 1 text. Null on a bad index or kind, at the layer limit, or when memory runs out.
    CLayer* AddLayer(int afterIndex, int kind);
    // Takes ownership and inserts behind afterIndex. False (and the layer destroyed) at the limit or a bad index.
    bool InsertLayer(CLayer* layer, int afterIndex);
    // A raster copy of the layer with a new default name, inserted above it. 1, or 0 when the copy fails.
    int DuplicateLayer(int index);
    // Destroys the layer; the current index moves down when it was at or above it. Bad indices do nothing.
    void RemoveLayer(int index);
    void RemoveLayerPtr(CLayer* layer);
    // Moves the layer at from to position to, shifting the ones between; the current index stays.
    bool MoveLayer(int from, int to);
    // Merges layer index into the one below it, replacing both by one layer. 1 when done or when the index is
    // not above the base (nothing happens), 0 when memory runs out.
    int MergeDown(int index);
    // Replaces every layer by one holding the merged picture. 0 without layers or memory.
    int FlattenAll();
    int TrimAllLayers();
    // New canvas size with the base placed by anchors (0 left/top, 1 centre, 2 right/bottom).
    int ResizeCanvas(int width, int height, uint32_t fill, int hAnchor, int vAnchor);
    // New canvas size with the base moved by (dx, dy); uncovered pixels take fill; upper layers move along.
    int ChangeCanvas(int width, int height, int dx, int dy, uint32_t fill);
    // Adds a layer of width x height filled with the word and takes its size as the document size.
    int NewDocument(int width, int height, uint32_t fill);
    // Replaces the document by a picture file. The stack is cleared first, so a failure leaves it empty; a
    // Photoshop document is read aside instead, so a damaged one leaves the stack as it was.
    int OpenFile(const char* path);
    // Loads a picture as a new layer above index, or into the layer at index when that is a wholly transparent
    // upper layer. Sets *loadedIndex (when given) to the layer that received the picture.
    int LoadLayerFile(const char* path, int index, int* loadedIndex = nullptr);

    int GetChannelCount() const { return static_cast<int>(m_channels.size()); }
    COLChannel* GetChannel(int index) const;
    COLChannel* AddChannel();
    void RemoveChannel(COLChannel* channel);

    // Destroys all layers and channels and frees the mask; the size and counter stay.
    void Clear();
    // Reads a document stream from a file under the lock; 0 when it cannot be opened or read.
    int LoadFromPath(const char* path);
    // Takes the document size from the base layer's image, as after a history step replaced it.
    void SyncSizeToBase();

    int GetWidth() const { return m_width; }
    int GetHeight() const { return m_height; }
    void SetSize(int width, int height);
    COLChannel& GetSelectionMask() { return m_selectionMask; }
    const COLChannel& GetSelectionMask() const { return m_selectionMask; }
    uint32_t GetModificationCount() const { return m_modificationCount; }

    // Bit (index mod 32) for each visible layer whose rectangle holds the document point.
    uint32_t HitTest(int x, int y) const;

protected:
    std::vector<CLayer*> m_layers;       // owned; index 0 is the base
    COLChannel m_selectionMask;          // document-sized when it has a buffer; no buffer means no selection
    std::vector<COLChannel*> m_channels; // owned
    int m_width = 0;
    int m_height = 0;
    int m_currentLayer = 0;
    uint32_t m_modificationCount = 0;
    std::string m_backgroundName;   // empty: kBackgroundLayerName
    std::string m_layerPattern;     // empty: kLayerNameFormat
};

// Holds a stack's lock for a scope.
class CStackLock {
public:
    explicit CStackLock(CLayerStack& stack) : m_stack(stack) { m_stack.Lock(1); }
    ~CStackLock() { m_stack.Lock(0); }
    CStackLock(const CStackLock&) = delete;
    CStackLock& operator=(const CStackLock&) = delete;

private:
    CLayerStack& m_stack;
};
