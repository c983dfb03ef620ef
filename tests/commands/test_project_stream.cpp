#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "commands/stream_io.h"
#include "doc_state.h"
#include "document/layer.h"
#include "document/layer_stack.h"
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

TEST_F(ProjectTest, AOneLayerDocumentHasTheDocumentedLayout)
{
    CLayerStack doc;
    MakeBase(doc, 5, 3);
    std::strcpy(doc.GetLayer(0)->m_name, "base");
    const std::string path = Path("one.vmpd");
    ASSERT_EQ(SaveProject(doc, nullptr, path.c_str(), 0), 1);
    const auto b = vmtest::ReadAll(path);
    const size_t pixels = 5 * 3 * 4;
    ASSERT_EQ(b.size(), 24 + 20 + 8 + 56 + 4 + pixels + 8 + 2);

    EXPECT_EQ(std::memcmp(b.data(), "VMPD\x01\0\0\0", 8), 0);
    for (size_t i = 8; i < 24; ++i) EXPECT_EQ(b[i], 0) << i;   // no history, reserved
    const uint8_t* s = b.data() + 24;
    EXPECT_EQ(vmio::GetU32(s), 20u);
    EXPECT_EQ(s[4], 10);
    EXPECT_EQ(s[5], 1);   // layers
    EXPECT_EQ(s[6], 0);   // channels
    EXPECT_EQ(s[7], 0);   // current
    EXPECT_EQ(s[8], 0);   // no mask
    EXPECT_EQ(vmio::GetU32(s + 12), 5u);
    EXPECT_EQ(vmio::GetU32(s + 16), 3u);
    const uint8_t* c = s + 20;
    EXPECT_EQ(c[0], 1);
    EXPECT_EQ(vmio::GetU32(c + 4), 56 + 4 + pixels);
    const uint8_t* l = c + 8;
    EXPECT_EQ(vmio::GetI32(l), 0);
    EXPECT_EQ(l[8], 1);   // visible
    EXPECT_STREQ(reinterpret_cast<const char*>(l + 9), "base");
    EXPECT_EQ(l[41], 255);
    EXPECT_EQ(l[42], 0);
    EXPECT_EQ(vmio::GetU32(l + 44), 5u);
    EXPECT_EQ(vmio::GetU32(l + 48), 3u);
    EXPECT_EQ(vmio::GetU32(l + 52), 4u);
    EXPECT_EQ(vmio::GetU32(l + 56), 0u);   // raster kind
    EXPECT_EQ(std::memcmp(l + 60, doc.GetLayer(0)->m_image.GetBuffer(), pixels), 0);
    const uint8_t* links = l + 60 + pixels;
    EXPECT_EQ(links[0], 4);
    EXPECT_EQ(vmio::GetU32(links + 4), 2u);
    EXPECT_EQ(vmio::GetI16(links + 8), -1);
}

TEST_F(ProjectTest, SaveLoadSaveIsByteExactAndRestoresEverything)
{
    CLayerStack doc;
    MakeRichDocument(doc);
    const std::string first = Path("a.vmpd"), second = Path("b.vmpd");
    ASSERT_EQ(SaveProject(doc, nullptr, first.c_str(), 0), 1);

    CLayerStack loaded;
    ASSERT_EQ(OpenProject(loaded, nullptr, first.c_str()), 1);
    EXPECT_EQ(Capture(loaded), Capture(doc));
    EXPECT_EQ(loaded.GetLayer(2)->m_kind, kLayerKindText);
    const auto* text = dynamic_cast<const CTextLayer*>(loaded.GetLayer(2));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::strlen(text->m_text), 1023u);
    EXPECT_EQ(text->m_textColour, 0x80FF0010u);
    EXPECT_EQ(text->m_fontSize, 37);
    EXPECT_EQ(text->m_style[3], 9);

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
    size_t files = 0;
    for (const auto& e : fs::directory_iterator(m_tmp.Dir().Path())) files += e.path().extension() != ".vmh";
    EXPECT_EQ(files, 1u);

    EXPECT_EQ(SaveProject(doc, nullptr, Path("no/such/folder/x.vmpd").c_str(), 0), 0);
}

// Builds a document stream by hand: n raster layers of 1 x 1 pixels, then chunk 4.
std::vector<uint8_t> HandMadeStream(int layers, int declaredLayers)
{
    std::vector<uint8_t> s(20, 0);
    vmio::PutU32(s.data(), 20);
    s[4] = 10;
    s[5] = static_cast<uint8_t>(declaredLayers);
    vmio::PutU32(s.data() + 12, 1);
    vmio::PutU32(s.data() + 16, 1);
    for (int i = 0; i < layers; ++i) {
        std::vector<uint8_t> c(8 + 56 + 4 + 4, 0);
        c[0] = 1;
        vmio::PutU32(c.data() + 4, 56 + 4 + 4);
        c[8 + 8] = 1;
        c[8 + 41] = 255;
        vmio::PutU32(c.data() + 8 + 44, 1);
        vmio::PutU32(c.data() + 8 + 48, 1);
        vmio::PutU32(c.data() + 8 + 52, 4);
        s.insert(s.end(), c.begin(), c.end());
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
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(3, 3))), 1);
    EXPECT_EQ(m_doc.GetLayerCount(), 3);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(32, 32))), 1);
    EXPECT_EQ(m_doc.GetLayerCount(), 32);
    m_before = vmtest::Capture(m_doc);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(33, 32))), 0);
    EXPECT_EQ(Open(WithFileHeader(HandMadeStream(2, 33))), 0);
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
