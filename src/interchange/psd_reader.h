#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

class CLayerStack;

// Error codes of CPsdReader. A caller sees 101 or 102; an unsupported colour mode is reported as 102 too, with
// the reason in GetReason().
inline constexpr int kPsdCannotOpen = 101;
inline constexpr int kPsdBadFile = 102;
inline constexpr int kPsdUnsupportedMode = 103;

// Reads a Photoshop document (version 1) into a layer stack: up to 32 layers bottom to top with position, name
// (the Unicode name where the file has one), opacity, blend mode, visibility, transparency and user mask;
// RGB and grayscale, 8 or 16 bits, raw, PackBits and ZIP channels. The bottom layer is brought to the document's size
// at (0, 0). A file without layers opens as its merged picture, one opaque layer named "BackGround ".
// Refused with a reason: other colour modes and depths, a side above 20000, and every
// damaged structure (lengths beyond the file, impossible sizes and counts, PackBits data that falls short).
class CPsdReader {
public:
    CPsdReader() = default;
    CPsdReader(const CPsdReader&) = delete;
    CPsdReader& operator=(const CPsdReader&) = delete;
    virtual ~CPsdReader();

    // Fills the stack from the file; 1 on success, 0 on failure with GetError() 101 (cannot open) or 102. On
    // failure the stack keeps the layers read so far.
    int LoadFile(const char* path, CLayerStack& stack);
    // The same from an open stream positioned at the signature (the caller keeps it and closes it).
    int LoadStream(FILE* stream, CLayerStack& stack);

    int GetError() const { return m_error; }
    // What was wrong, in English, for a message ("truncated layer records", "CMYK colour mode", ...).
    const std::string& GetReason() const { return m_reason; }
    // The layer count of the file was negative: its merged image carries transparency.
    bool HasMergedAlpha() const { return m_mergedAlpha != 0; }

    virtual int ReadHeader(CLayerStack& stack);
    virtual int ReadColourModeData() { return SkipSection(); }
    virtual int ReadImageResources() { return SkipSection(); }
    virtual int ReadLayers(CLayerStack& stack);
    virtual int ReadMergedImage(CLayerStack& stack);

private:
    struct CChannelInfo {
        int16_t id;
        uint32_t length;
    };
    struct CRecord;

    int SkipSection();
    int Run(CLayerStack& stack);
    bool Read(void* buffer, size_t bytes);
    bool Skip(uint64_t bytes);
    bool SeekTo(uint64_t position);
    bool ReadU16(uint16_t& v);
    bool ReadU32(uint32_t& v);
    bool Fail(const char* reason);
    uint64_t Remaining() const { return m_position < m_fileSize ? m_fileSize - m_position : 0; }
    bool ReadRecord(CRecord& record);
    bool ReadChannel(const CChannelInfo& info, uint32_t width, uint32_t height, std::vector<uint8_t>& plane,
                     bool& empty);

    FILE* m_pFile = nullptr;
    bool m_ownsFile = false;
    uint64_t m_position = 0; // bytes consumed from the start of the document
    uint64_t m_fileSize = 0;
    uint16_t m_colourMode = 0;
    uint16_t m_depth = 0;
    uint16_t m_channels = 0;
    int m_mergedAlpha = 0;
    int m_error = 0;
    std::string m_reason;
};
