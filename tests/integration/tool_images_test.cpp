// The images that zr-u3v saves, compared with what the same camera of this process makes.

#include <algorithm>
#include <csignal>

#include "tool_run.h"

#if ZR_TOOL_HAVE_TIFF
#include <tiffio.h>
#endif

namespace {

// ---- images -----------------------------------------------------------------------------------

// Ten images a second where frames are told apart: an image is there long enough for a busy
// machine.

TEST_F(ToolTest, Grab_Mono8AsPng_EveryByte)
{
    const std::string options = "width=64,height=48,fps=10";
    const Result result = RunOn(options, {"grab", "-n", "3", "-o", "{id}.png", "--strict"});
    ASSERT_EQ(result.code, 0) << result.errors;
    for (uint64_t frame = 0; frame < 3; frame++) {
        const Pixels pixels = ReadPng(File(std::to_string(frame) + ".png"));
        EXPECT_EQ(pixels.width, 64u);
        EXPECT_EQ(pixels.height, 48u);
        EXPECT_EQ(pixels.channels, 1u);
        const auto sent = Sent(options, frame);
        EXPECT_TRUE(
            std::equal(sent.begin(), sent.end(), pixels.samples.begin(), pixels.samples.end()))
            << frame;
    }
}

TEST_F(ToolTest, Grab_Mono12p_KeepsEveryBitInPng)
{
    const std::string options = "width=64,height=48,fps=10,format=Mono12p";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.png"}).code, 0);
    const Pixels pixels = ReadPng(File("a.png"));
    const auto sent = Sent(options, 0);
    ASSERT_EQ(pixels.bits, 16u);
    EXPECT_EQ(pixels.significant, 12u);
    for (size_t i = 0; i < pixels.samples.size(); i++) {
        const size_t at = i / 2 * 3;
        const unsigned expected = i % 2 == 0
                                      ? sent[at] | (sent[at + 1] & 15U) << 8U
                                      : unsigned{sent[at + 1]} >> 4U | unsigned{sent[at + 2]} << 4U;
        ASSERT_EQ(pixels.samples[i] >> 4U, expected) << i;
    }
}

TEST_F(ToolTest, Grab_Mono16AsPgm_HasTheHighByteFirst)
{
    const std::string options = "width=16,height=8,fps=10,format=Mono16";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.pgm"}).code, 0);
    const std::string file = Contents(File("a.pgm"));
    const std::string head = "P5\n16 8\n65535\n";
    const auto sent = Sent(options, 0);
    ASSERT_EQ(file.size(), head.size() + sent.size());
    EXPECT_EQ(file.substr(0, head.size()), head);
    for (size_t i = 0; i < sent.size(); i++) {
        ASSERT_EQ(static_cast<unsigned char>(file[head.size() + (i ^ 1U)]), sent[i]) << i;
    }
}

TEST_F(ToolTest, Grab_RawAndStandardOutput_AreThePayload)
{
    const std::string options = "width=16,height=8,fps=10";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.raw"}).code, 0);
    const auto sent = Sent(options, 0);
    EXPECT_EQ(Contents(File("a.raw")), std::string(sent.begin(), sent.end()));
    const Result piped = RunOn(options, {"grab", "-n", "2", "-o", "-"});
    const auto second = Sent(options, 1);
    EXPECT_EQ(piped.output,
              std::string(sent.begin(), sent.end()) + std::string(second.begin(), second.end()));
    EXPECT_NE(piped.errors.find("images       2 in"), std::string::npos);
}

TEST_F(ToolTest, Grab_BayerIsColourUnlessAsked)
{
    const std::string options = "width=64,height=48,fps=10,pattern=scene,format=BayerRG8";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.png"}).code, 0);
    EXPECT_EQ(ReadPng(File("a.png")).channels, 3u);
    ASSERT_EQ(RunOn(options, {"grab", "-o", "b.png", "--no-demosaic"}).code, 0);
    const Pixels mosaic = ReadPng(File("b.png"));
    const auto sent = Sent(options, 0);
    EXPECT_EQ(mosaic.channels, 1u);
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), mosaic.samples.begin(), mosaic.samples.end()));
}

// The same scene in colour and behind filters: what demosaicing finds is near to the truth.
TEST_F(ToolTest, Grab_EveryColourFormatShowsTheSameScene)
{
    const std::string scene = "width=160,height=120,fps=10,pattern=scene,format=";
    ASSERT_EQ(RunOn(scene + "RGB8", {"grab", "-o", "truth.png"}).code, 0);
    const Pixels truth = ReadPng(File("truth.png"));
    for (const char* const format :
         {"BGR8", "YUV422_8", "BayerRG8", "BayerGR8", "BayerGB8", "BayerBG8"}) {
        ASSERT_EQ(RunOn(scene + format, {"grab", "-o", "a.png"}).code, 0) << format;
        const Pixels pixels = ReadPng(File("a.png"));
        ASSERT_EQ(pixels.samples.size(), truth.samples.size()) << format;
        double difference = 0;
        for (size_t i = 0; i < truth.samples.size(); i++) {
            difference += std::abs(int{truth.samples[i]} - int{pixels.samples[i]});
        }
        EXPECT_LT(difference / static_cast<double>(truth.samples.size()), 6) << format;
    }
}

TEST_F(ToolTest, Grab_EightBitsOnly)
{
    ASSERT_EQ(
        RunOn("width=16,height=8,fps=10,format=Mono12", {"grab", "-o", "a.png", "--8bit"}).code, 0);
    EXPECT_EQ(ReadPng(File("a.png")).bits, 8u);
}

// ---- every pixel format into every kind of file -------------------------------------------------

// What a picture file has to hold: grey or red, green, blue, each sample with `bits` bits.
struct Truth
{
    unsigned channels = 1;
    unsigned bits = 8;
    std::vector<uint16_t> samples;
};

using Bytes = std::vector<unsigned char>;

std::vector<uint16_t> Words(const Bytes& sent)
{
    std::vector<uint16_t> words;
    for (size_t i = 0; i + 1 < sent.size(); i += 2) {
        words.push_back(static_cast<uint16_t>(sent[i] | sent[i + 1] << 8));
    }
    return words;
}

// 12 bits each, a byte filled from its lowest bit.
std::vector<uint16_t> Packed12(const Bytes& sent)
{
    std::vector<uint16_t> samples;
    for (size_t i = 0; i + 2 < sent.size(); i += 3) {
        samples.push_back(static_cast<uint16_t>(sent[i] | (sent[i + 1] & 15) << 8));
        samples.push_back(static_cast<uint16_t>(sent[i + 1] >> 4 | sent[i + 2] << 4));
    }
    return samples;
}

// Y U Y V, full range, as the standard's own formula has it.
std::vector<uint16_t> FromYuv(const Bytes& sent)
{
    std::vector<uint16_t> samples;
    for (size_t i = 0; i < sent.size() / 2; i++) {
        const double y = sent[2 * i];
        const double u = sent[i / 2 * 4 + 1] - 128.0;
        const double v = sent[i / 2 * 4 + 3] - 128.0;
        for (const double value : {y + 1.402 * v, y - 0.344136 * u - 0.714136 * v, y + 1.772 * u}) {
            samples.push_back(static_cast<uint16_t>(std::clamp(value + 0.5, 0.0, 255.0)));
        }
    }
    return samples;
}

// Each colour a pixel lacks is the mean of that colour among the up to eight around it.
std::vector<uint16_t> FromBayer(const Bytes& sent, size_t width, size_t height,
                                const std::string& cell)
{
    std::vector<uint16_t> samples;
    const auto filter = [&cell](size_t x, size_t y) { return cell[y % 2 * 2 + x % 2]; };
    for (size_t i = 0; i < width * height * 3; i++) {
        const size_t x = i / 3 % width;
        const size_t y = i / 3 / width;
        unsigned sum = 0;
        unsigned count = 0;
        for (size_t row = y == 0 ? 0 : y - 1; row <= std::min(y + 1, height - 1); row++) {
            for (size_t column = x == 0 ? 0 : x - 1; column <= std::min(x + 1, width - 1);
                 column++) {
                if (filter(column, row) == "RGB"[i % 3]) {
                    sum += sent[row * width + column];
                    count++;
                }
            }
        }
        const bool isOwn = filter(x, y) == "RGB"[i % 3];
        samples.push_back(static_cast<uint16_t>(isOwn ? sent[y * width + x] : sum / count));
    }
    return samples;
}

Truth TruthOf(const std::string& format, const Bytes& sent, size_t width, size_t height)
{
    const std::vector<uint16_t> bytes(sent.begin(), sent.end());
    if (format == "Mono8") {
        return {1, 8, bytes};
    }
    if (format == "Mono12p") {
        return {1, 12, Packed12(sent)};
    }
    if (format.starts_with("Mono")) {
        return {1, static_cast<unsigned>(std::stoul(format.substr(4))), Words(sent)};
    }
    if (format == "YUV422_8") {
        return {3, 8, FromYuv(sent)};
    }
    if (format.starts_with("Bayer")) {
        const std::string first = format.substr(5, 2); // of the cell; the second row is the rest
        const std::string second = first == "RG"   ? "GB"
                                   : first == "GB" ? "RG"
                                   : first == "GR" ? "BG"
                                                   : "GR";
        return {3, 8, FromBayer(sent, width, height, first + second)};
    }
    Truth truth{3, 8, bytes};
    for (size_t i = 0; format == "BGR8" && i < truth.samples.size(); i += 3) {
        std::swap(truth.samples[i], truth.samples[i + 2]);
    }
    return truth;
}

// Deep samples stand in the upper bits of 16, filled up so that white is white.
uint16_t Stretched(uint16_t sample, unsigned bits)
{
    return static_cast<uint16_t>(bits == 8 ? sample
                                           : sample << (16 - bits) | sample >> (2 * bits - 16));
}

class PixelFormats : public ToolTest, public ::testing::WithParamInterface<const char*>
{
protected:
    static constexpr size_t kWidth = 24;
    static constexpr size_t kHeight = 10;

    void SetUp() override
    {
        m_options = std::string("width=24,height=10,fps=20,seed=7,format=") + GetParam();
        m_sent = Sent(m_options, 0);
        m_truth = TruthOf(GetParam(), m_sent, kWidth, kHeight);
        ASSERT_EQ(m_truth.samples.size(), kWidth * kHeight * m_truth.channels);
    }
    // Takes the first image into that file.
    void Grab(const std::string& file)
    {
        const Result result = RunOn(m_options, {"grab", "-o", file});
        ASSERT_EQ(result.code, 0) << result.errors;
    }
    // Rounding in a formula may differ by one step, everything else is exact.
    void ExpectSamples(const std::vector<uint16_t>& found, bool stretched) const
    {
        const int tolerance = std::string(GetParam()) == "YUV422_8" ? 1 : 0;
        ASSERT_EQ(found.size(), m_truth.samples.size());
        for (size_t i = 0; i < found.size(); i++) {
            const int expected =
                stretched ? Stretched(m_truth.samples[i], m_truth.bits) : m_truth.samples[i];
            ASSERT_NEAR(found[i], expected, tolerance) << "sample " << i;
        }
    }

    std::string m_options;
    Bytes m_sent;
    Truth m_truth;
};

TEST_P(PixelFormats, ArriveInEveryFile)
{
    ASSERT_NO_FATAL_FAILURE(Grab("a.png"));
    const Pixels png = ReadPng(File("a.png"));
    EXPECT_EQ(png.channels, m_truth.channels);
    ExpectSamples(png.samples, true);

    ASSERT_NO_FATAL_FAILURE(Grab("a.raw"));
    EXPECT_EQ(Contents(File("a.raw")), std::string(m_sent.begin(), m_sent.end()));

    ASSERT_NO_FATAL_FAILURE(Grab("a.pnm"));
    const std::string pnm = Contents(File("a.pnm"));
    const std::string head = std::string(m_truth.channels == 3 ? "P6" : "P5") + "\n24 10\n" +
                             std::to_string((1U << m_truth.bits) - 1) + "\n";
    ASSERT_EQ(pnm.substr(0, head.size()), head);
    std::vector<uint16_t> samples;
    for (size_t i = head.size(); i<pnm.size(); i += m_truth.bits> 8 ? 2 : 1) {
        const auto high = static_cast<unsigned char>(pnm[i]);
        const auto low = static_cast<unsigned char>(m_truth.bits > 8 ? pnm[i + 1] : 0);
        samples.push_back(static_cast<uint16_t>(m_truth.bits > 8 ? high << 8 | low : high));
    }
    ExpectSamples(samples, false);
}

#if ZR_TOOL_HAVE_TIFF
TEST_P(PixelFormats, ArriveInATiffFile)
{
    ASSERT_NO_FATAL_FAILURE(Grab("a.tiff"));
    TIFF* const tiff = TIFFOpen(File("a.tiff").c_str(), "r");
    ASSERT_NE(tiff, nullptr);
    Bytes row(static_cast<size_t>(TIFFScanlineSize(tiff)));
    std::vector<uint16_t> samples;
    for (uint32_t y = 0; y < kHeight; y++) {
        EXPECT_EQ(TIFFReadScanline(tiff, row.data(), y, 0), 1);
        const std::vector<uint16_t> words =
            m_truth.bits > 8 ? Words(row) : std::vector<uint16_t>(row.begin(), row.end());
        samples.insert(samples.end(), words.begin(), words.end());
    }
    TIFFClose(tiff);
    ExpectSamples(samples, true);
}
#endif

INSTANTIATE_TEST_SUITE_P(Every, PixelFormats,
                         ::testing::Values("Mono8", "Mono10", "Mono12", "Mono12p", "Mono16",
                                           "BayerRG8", "BayerGR8", "BayerGB8", "BayerBG8", "RGB8",
                                           "BGR8", "YUV422_8"),
                         [](const auto& one) { return std::string(one.param); });

TEST_F(ToolTest, Grab_IntoAFolder_NumbersItsFiles)
{
    ASSERT_EQ(RunOn("width=16,height=8,fps=10", {"grab", "-n", "2", "-o", "images/"}).code, 0);
    EXPECT_TRUE(fs::exists(File("images/image-00001.png")));
    EXPECT_TRUE(fs::exists(File("images/image-00002.png")));
}

TEST_F(ToolTest, Grab_StatisticsAsJson)
{
    const Json json =
        RunJson("width=16,height=8,fps=10,faults=leader-lost@2", {"grab", "-n", "5", "-f", "raw"});
    EXPECT_EQ(json["images"], 5);
    EXPECT_GE(json["lost_ids"], 1); // the receiver needs a moment to find the next leader
    EXPECT_EQ(json["incomplete"], 0);
    EXPECT_EQ(json["bytes"], 5 * 128);
    EXPECT_GT(json["images_per_second"].get<double>(), 1.0);
    EXPECT_EQ(json["latency_ms"]["since"], "camera time stamp");
    EXPECT_GE(json["latency_ms"]["max"], json["latency_ms"]["min"]);
}

TEST_F(ToolTest, Grab_StrictlyALostImageIsAFailure)
{
    const Result result = RunOn("width=16,height=8,fps=10,faults=leader-lost@2",
                                {"grab", "-n", "5", "--strict", "-f", "raw"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.errors.find("0 images incomplete, "), std::string::npos);
}

TEST_F(ToolTest, Grab_CameraFallsSilent_KeepsWhatCameAndFails)
{
    const Result result = RunOn("width=16,height=8,fps=10,faults=stream-silent@3",
                                {"grab", "-n", "5", "--timeout", "3000", "-o", "a.raw"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.errors.find("3 of 5 images arrived"), std::string::npos) << result.errors;
    EXPECT_TRUE(fs::exists(File("a-00003.raw")));
}

TEST_F(ToolTest, Grab_UnpluggedWhileStreaming_Ends)
{
    const Result result = RunOn("width=16,height=8,fps=5,unplug-after=3",
                                {"grab", "-n", "50", "--timeout", "3000", "-o", "a.raw"});
    EXPECT_EQ(result.code, 5) << result.errors;
    EXPECT_NE(result.errors.find(" of 50 images arrived, then the camera was gone"),
              std::string::npos)
        << result.errors;
}

class Interrupted : public ToolTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(Interrupted, Grab_StopsInGoodOrder)
{
    const pid_t child = Start({"--virtual-camera", "width=16,height=8,fps=50", "grab", "-n",
                               "100000", "-o", "a-{n}.raw"});
    EXPECT_TRUE(zr_test::WaitUntil([this] { return fs::exists(File("a-00003.raw")); }));
    kill(child, GetParam());
    const Result result = Finish(child);
    EXPECT_EQ(result.code, 130) << result.errors;
    EXPECT_NE(result.output.find("lost ids"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(BySignal, Interrupted, ::testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(ToolTest, Grab_FolderThatIsNone_FailsAndSaysSo)
{
    const Result result = RunOn("width=16,height=8,fps=50", {"grab", "-o", "no/such/a.png"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.errors.find("cannot write no/such/a.png: No such file"), std::string::npos);
}

TEST_F(ToolTest, Grab_FormatThatIsNone_IsAUsageError)
{
    EXPECT_EQ(RunOn("", {"grab", "-o", "a.gif"}).code, 2);
    EXPECT_EQ(RunOn("", {"grab", "-o", "-", "-f", "png"}).code, 2);
}

} // namespace
