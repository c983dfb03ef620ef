#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "commands/stream_io.h"
#include "doc_state.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "support/full_disk.h"
#include "support/temp_folder.h"
#include "support/test_support.h"

namespace fs = std::filesystem;
using vmtest::Capture;

namespace {

// A base of noise.
void MakeBase(CLayerStack& doc, int w, int h, uint32_t seed = 1)
{
    ASSERT_EQ(doc.NewDocument(w, h, 0xFF000000), 1);
    vmtest::FillNoise(doc.GetLayer(0)->m_image, uint32_t(w), uint32_t(h), seed);
}

// Three layers (one of text), two channels (one linked), a selection mask and every field set to something
// other than its default.
void MakeRichDocument(CLayerStack& doc)
{
    MakeBase(doc, 21, 13);
    CLayer* upper = doc.AddLayer(0, kLayerKindRaster);
    ASSERT_NE(upper, nullptr);
    vmtest::FillNoise(upper->m_image, 7, 5, 2);
    upper->m_x = -3;
    upper->m_y = 40;
    upper->m_visible = 0;
    upper->m_opacity = 128;
    upper->m_blendMode = 5;
    std::memset(upper->m_name, 'n', sizeof upper->m_name);
    upper->m_name[31] = 0;   // 31 bytes of name
    auto* text = static_cast<CTextLayer*>(doc.AddLayer(1, kLayerKindText));
    ASSERT_NE(text, nullptr);
    vmtest::FillNoise(text->m_image, 4, 9, 3);
    std::memset(text->m_text, 'x', 1023);   // the longest text
    text->m_textColour = 0x80FF0010;
    text->m_fontSize = 37;
    text->m_style[3] = 9;
    std::strcpy(text->m_name, "t");
    text->m_name[5] = 'z';   // bytes after the NUL are kept too
    COLChannel* c0 = doc.AddChannel();
    vmtest::FillNoise(*c0, 21, 13, 4);
    COLChannel* c1 = doc.AddChannel();
    vmtest::FillNoise(*c1, 5, 6, 5);
    upper->m_pChannel = c1;
    vmtest::FillNoise(doc.GetSelectionMask(), 21, 13, 6);
    doc.SetCurrentIndex(2);
}

class ProjectTest : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_tmp.File(name); }
    vmtest::ScopedTempFolder m_tmp;
};

TEST_F(ProjectTest, SaveLoadSaveIsByteExactAndRestoresEverything)
{
    CLayerStack doc;
    MakeRichDocument(doc);
    const std::string first = Path("a.vmpd"), second = Path("b.vmpd");
    ASSERT_EQ(SaveProject(doc, nullptr, first.c_str(), 0), 1);

    CLayerStack loaded;
    ASSERT_EQ(OpenProject(loaded, nullptr, first.c_str()), 1);
    EXPECT_EQ(Capture(loaded), Capture(doc)) << "kinds, names, pixels, links and the longest text included";
    const auto* text = dynamic_cast<const CTextLayer*>(loaded.GetLayer(2));
    ASSERT_NE(text, nullptr);
    // The text layer's colour, size and style, which the captured state leaves out.
    EXPECT_EQ(std::make_tuple(text->m_textColour, int(text->m_fontSize), int(text->m_style[3])),
              std::make_tuple(0x80FF0010u, 37, 9));

    ASSERT_EQ(SaveProject(loaded, nullptr, second.c_str(), 0), 1);
    EXPECT_EQ(vmtest::ReadAll(first), vmtest::ReadAll(second));
    // The text layer's extra data is 1,100 bytes, with a zero where the text pointer stood.
    const auto b = vmtest::ReadAll(first);
    size_t at = 24 + 20;
    for (int i = 0; i < 2; ++i) at += 8 + vmio::GetU32(b.data() + at + 4);
    EXPECT_EQ(vmio::GetU32(b.data() + at + 8 + 52), 1100u);
    EXPECT_EQ(vmio::GetU32(b.data() + at + 8 + 56), 1u);
    EXPECT_EQ(vmio::GetU32(b.data() + at + 8 + 56 + 72), 0u);
}

TEST_F(ProjectTest, TheCurrentLayerByteSelectsTheLayerOrLeavesTheFirst)
{
    CLayerStack doc;
    MakeRichDocument(doc);
    const std::string path = Path("c.vmpd");
    doc.SetCurrentIndex(0);
    ASSERT_EQ(SaveProject(doc, nullptr, path.c_str(), 0), 1);
    CLayerStack loaded;
    ASSERT_EQ(OpenProject(loaded, nullptr, path.c_str()), 1);
    EXPECT_EQ(loaded.GetCurrentIndex(), 0);

    auto bytes = vmtest::ReadAll(path);
    bytes[24 + 7] = 3;   // the count of layers: no such layer
    vmtest::WriteAll(path, bytes);
    loaded.SetCurrentIndex(2);
    ASSERT_EQ(OpenProject(loaded, nullptr, path.c_str()), 1);
    EXPECT_EQ(loaded.GetCurrentIndex(), 0);
}

TEST_F(ProjectTest, AnEmptyDocumentWritesNothing)
{
    CLayerStack doc;
    const std::string path = Path("empty.vmpd");
    EXPECT_EQ(SaveProject(doc, nullptr, path.c_str(), 1), 1);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ProjectTest, AFailedSaveLeavesTheOldFileAndNoLeftovers)
{
    CLayerStack doc;
    MakeBase(doc, 8, 8);
    const std::string path = Path("keep.vmpd");
    ASSERT_EQ(SaveProject(doc, nullptr, path.c_str(), 0), 1);
    const auto good = vmtest::ReadAll(path);

    // A layer whose pixels are gone cannot be written: the save fails part way.
    CLayer* upper = doc.AddLayer(0, kLayerKindRaster);
    ASSERT_NE(upper, nullptr);
    upper->m_image.Free();
    EXPECT_EQ(SaveProject(doc, nullptr, path.c_str(), 0), 0);
    EXPECT_EQ(vmtest::ReadAll(path), good);
    EXPECT_EQ(vmtest::EntryCount(m_tmp.Dir().Path()), 1u) << "no temporary file is left beside it";

    EXPECT_EQ(SaveProject(doc, nullptr, Path("no/such/folder/x.vmpd").c_str(), 0), 0);
}

// A document stream written out by hand: the header, `layers` raster layers of the picture (visible, opacity 255,
// named `name`), no channels, no mask, and the links chunk that ties no layer to a channel. The header declares
// `declaredLayers`.
std::vector<uint8_t> HandMadeStream(const COLImage& picture, int layers, int declaredLayers, const char* name = "")
{
    const std::vector<uint8_t> pixels = vmtest::Bytes(picture);
    std::vector<uint8_t> s(20, 0);
    vmio::PutU32(s.data(), 20);
    s[4] = 10;
    s[5] = static_cast<uint8_t>(declaredLayers);
    vmio::PutU32(s.data() + 12, picture.GetWidth());
    vmio::PutU32(s.data() + 16, picture.GetHeight());
    for (int i = 0; i < layers; ++i) {
        std::vector<uint8_t> c(8 + 56 + 4, 0);   // chunk 1 and its size, the record, the kind word (0: raster)
        c[0] = 1;
        vmio::PutU32(c.data() + 4, uint32_t(56 + 4 + pixels.size()));
        c[8 + 8] = 1;
        std::strncpy(reinterpret_cast<char*>(c.data()) + 8 + 9, name, 31);
        c[8 + 41] = 255;
        vmio::PutU32(c.data() + 8 + 44, picture.GetWidth());
        vmio::PutU32(c.data() + 8 + 48, picture.GetHeight());
        vmio::PutU32(c.data() + 8 + 52, 4);
        s.insert(s.end(), c.begin(), c.end());
        s.insert(s.end(), pixels.begin(), pixels.end());
    }
    std::vector<uint8_t> links(8 + 2 * size_t(layers), 0xFF);
    links[0] = 4;
    links[1] = links[2] = links[3] = 0;
    vmio::PutU32(links.data() + 4, uint32_t(2 * layers));
    s.insert(s.end(), links.begin(), links.end());
    return s;
}

std::vector<uint8_t> WithFileHeader(const std::vector<uint8_t>& stream)
{
    std::vector<uint8_t> f = {'V', 'M', 'P', 'D', 1, 0, 0, 0};
    f.resize(24, 0);
    f.insert(f.end(), stream.begin(), stream.end());
    return f;
}

TEST_F(ProjectTest, AOneLayerDocumentHasTheDocumentedLayout)
{
    CLayerStack doc;
    MakeBase(doc, 5, 3);
    std::strcpy(doc.GetLayer(0)->m_name, "base");
    const std::string path = Path("one.vmpd");
    ASSERT_EQ(SaveProject(doc, nullptr, path.c_str(), 0), 1);
    // The magic and version, no history (the reserved bytes 0), then the stream, byte for byte.
    EXPECT_EQ(vmtest::ReadAll(path), WithFileHeader(HandMadeStream(doc.GetLayer(0)->m_image, 1, 1, "base")));
}

class DamagedProjectTest : public ProjectTest {
protected:
    void SetUp() override
    {
        MakeRichDocument(m_doc);
        m_before = Capture(m_doc);
        ASSERT_EQ(SaveProject(m_doc, nullptr, Path("good.vmpd").c_str(), 0), 1);
        m_good = vmtest::ReadAll(Path("good.vmpd"));
    }
    // Opens the bytes into the rich document; a failure must leave it exactly as it was.
    int Open(const std::vector<uint8_t>& bytes)
    {
        vmtest::WriteAll(Path("bad.vmpd"), bytes);
        const int r = OpenProject(m_doc, nullptr, Path("bad.vmpd").c_str());
        if (r == 0) {
            EXPECT_EQ(Capture(m_doc), m_before);
        }
        return r;
    }
    CLayerStack m_doc;
    vmtest::DocState m_before;
    std::vector<uint8_t> m_good;
};

TEST_F(DamagedProjectTest, HandMadeStreamsUpTo32LayersAreReadAndOthersRefused)
{
    const COLImage dot = vmtest::Solid(1, 1, CPixel{});
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(dot, 3, 3))), 1);
    EXPECT_EQ(m_doc.GetLayerCount(), 3);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(dot, 32, 32))), 1);
    EXPECT_EQ(m_doc.GetLayerCount(), 32);
    m_before = vmtest::Capture(m_doc);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(dot, 33, 32))), 0);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(dot, 2, 33))), 0);
    auto bytes = m_good;
    bytes[3] = 'X';   // wrong magic
    EXPECT_EQ(Open(bytes), 0);
    EXPECT_EQ(Open({}), 0);
    bytes = m_good;
    bytes.resize(bytes.size() - (8 + 2 * 3));   // no channel links: incomplete
    EXPECT_EQ(Open(bytes), 0);
}

TEST_F(DamagedProjectTest, EveryTruncationIsRefused)
{
    for (size_t n = 0; n < m_good.size(); n += (n < 200 ? 1 : 97)) {
        std::vector<uint8_t> cut(m_good.begin(), m_good.begin() + long(n));
        EXPECT_EQ(Open(cut), 0) << "cut at " << n;
    }
}

TEST_F(DamagedProjectTest, AbsurdSizesAreRefusedBeforeAllocating)
{
    const size_t layer = 24 + 20;   // first chunk header
    auto patch = [&](size_t at, uint32_t v) {
        auto b = m_good;
        vmio::PutU32(b.data() + at, v);
        return b;
    };
    EXPECT_EQ(Open(patch(layer + 4, 0xFFFFFFF0u)), 0);           // payload larger than the file
    EXPECT_EQ(Open(patch(layer + 8 + 44, 20001)), 0);            // side above the limit
    EXPECT_EQ(Open(patch(layer + 8 + 44, 20000)), 0);            // legal side, pixels beyond the payload
    EXPECT_EQ(Open(patch(layer + 8 + 52, 0x7FFFFFFF)), 0);       // extra data beyond the payload
    EXPECT_EQ(Open(patch(layer + 8 + 52, 0)), 0);                // no room for the kind word
    EXPECT_EQ(Open(patch(24, 0xFFFFFFFFu)), 0);                  // stream header size
    EXPECT_EQ(Open(patch(24, 12)), 0);
    EXPECT_EQ(Open(patch(24 + 12, 0)), 0);                       // document width 0
    EXPECT_EQ(Open(patch(24 + 16, 20001)), 0);                   // document height above the limit
}

} // namespace
