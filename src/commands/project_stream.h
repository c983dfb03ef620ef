#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

class CComposeHistory;
class CLayerStack;

// Project files (".vmpd"): a 24-byte file header, the document stream of CLayerStack::Serialize, and optionally
// the compose history behind it. The document stream without the file header also serves history snapshots.
inline constexpr size_t kProjectHeaderBytes = 24;
inline constexpr size_t kStreamHeaderBytes = 20;
inline constexpr size_t kChunkHeaderBytes = 8;
inline constexpr uint8_t kStreamVersion = 10;
inline constexpr uint8_t kProjectVersion = 1;

// Chunk kinds of the document stream.
enum : uint8_t {
    kChunkLayer = 1,
    kChunkChannel = 2,
    kChunkSelectionMask = 3,
    kChunkChannelLinks = 4,
};

// Writes the project; with withHistory (and a history) the undo log goes along. The file is written to a
// temporary in the same folder and renamed over the target only when complete, so a failure never damages an
// existing file. 1 on success; 1 without writing anything when the document has no layers; 0 on failure.
int SaveProject(CLayerStack& document, CComposeHistory* history, const char* path, int withHistory);

// Reads a project into the document. The whole file is checked before the document is touched, so a damaged
// file (wrong magic, truncated or oversized chunks, more than 32 layers) gives 0 and leaves the open document
// as it was. With a history: a saved log is taken over and undo continues where it was; otherwise the log
// starts afresh with a whole-document step labelled "His_open". 1 on success.
int OpenProject(CLayerStack& document, CComposeHistory* history, const char* path);

// The fields of a project's file header, for tools that list a file without loading it.
struct CProjectHeader {
    char magic[4];
    uint8_t version;
    uint32_t historyOffset;
    uint32_t historyLength;
};
bool ReadProjectHeader(FILE* stream, CProjectHeader& header);
