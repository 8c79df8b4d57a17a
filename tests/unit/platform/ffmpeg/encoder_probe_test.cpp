// What is taken for an encoder that works. Encoders by the processor stand for those on graphics cards.

#include "platform/ffmpeg/encoder_probe.h"

#include "platform/ffmpeg/probe_pictures.h"
#include "tests/unit/platform/ffmpeg/stand_in_encoders.h"

#include <QTemporaryDir>
#include <gmock/gmock.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/log.h>
}

namespace nimbrale::ffmpeg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EncoderProbeTest : public testing::Test {
protected:
    ProbeQuestion question{.video = {.width = 320, .height = 240, .averageBitRate = 800000},
                           .encoder = workingEncoder()};

    EncoderProbeTest() { av_log_set_level(AV_LOG_QUIET); }

    /// Why the encoder is refused; empty when it is not.
    [[nodiscard]] std::string refusal() const
    {
        const Result<void> probed = probeEncoder(question);
        return probed ? std::string() : probed.error().message;
    }
    void setOption(const std::string& from, const std::string& to)
    {
        std::string& options = question.encoder.options;
        const std::size_t place = options.find(from);
        ASSERT_NE(place, std::string::npos);
        options.replace(place, from.size(), to);
    }
};

TEST_F(EncoderProbeTest, EncoderThatWorksIsTaken)
{
    EXPECT_EQ(refusal(), "");
}

TEST_F(EncoderProbeTest, EncoderThatWorksIsTakenAtTheSizesOfScreens)
{
    for (const auto& [width, height] : {std::pair{1366, 768}, std::pair{1920, 1080}, std::pair{642, 358}}) {
        question.video.width = width;
        question.video.height = height;
        question.video.averageBitRate = std::int64_t{width} * height * 3;
        EXPECT_EQ(refusal(), "") << width << " x " << height;
    }
}

TEST_F(EncoderProbeTest, EncoderThatKeepsPicturesBackIsRefused)
{
    setOption("tune=zerolatency:", "");
    EXPECT_EQ(refusal(), "The picture couldn't be encoded: Resource temporarily unavailable.");
}

TEST_F(EncoderProbeTest, EncoderThatMakesKeyPicturesByItselfIsRefused)
{
    setOption("8x8dct=1", "8x8dct=1\\:keyint=7");
    EXPECT_EQ(refusal(), "It makes key pictures where none was asked for, or none where one was.");
}

TEST_F(EncoderProbeTest, EncoderOfAnotherProfileIsRefused)
{
    setOption("profile=high:forced-idr=1:x264-params=8x8dct=1", "profile=baseline:forced-idr=1");
    EXPECT_EQ(refusal(), "It is not the High profile.");
}

TEST_F(EncoderProbeTest, EncoderOfOtherColorsIsRefused)
{
    setOption("8x8dct=1", "8x8dct=1\\:colormatrix=smpte170m");
    EXPECT_EQ(refusal(), "The header tells wrong colors.");
}

TEST_F(EncoderProbeTest, EncoderWhosePicturesCannotBeRecognizedIsRefused)
{
    question.encoder.options += "\\:qpmin=51\\:qpmax=51\\:no-deblock=1";
    EXPECT_EQ(refusal(), "A picture does not look as it should.");
}

TEST_F(EncoderProbeTest, EncoderOfAnotherKindOfMovieIsRefused)
{
    question.encoder = {"mpeg4", "", ""};
    EXPECT_EQ(refusal(), "This system has no encoder for movies of that name.");
}

TEST_F(EncoderProbeTest, EncoderThatIsNotThereIsRefused)
{
    question.encoder = {"h264_none", "", ""};
    EXPECT_EQ(refusal(), "This system has no encoder for movies of that name.");
}

TEST_F(EncoderProbeTest, CardThatIsNotThereIsRefused)
{
    question.encoder = {"h264_vaapi", "/dev/null", "async_depth=1"};
    EXPECT_THAT(refusal(), testing::StartsWith("The graphics card cannot be opened"));
}

TEST_F(EncoderProbeTest, OptionThatTheEncoderDoesNotKnowIsRefused)
{
    question.encoder.options += ":fastest=1";
    EXPECT_EQ(refusal(), "The encoder lacks an option.");
}

TEST_F(EncoderProbeTest, ProgramIsAskedWhatWasMeant)
{
    const std::vector<std::string> arguments = question.arguments();
    std::vector<const char*> read;
    for (const std::string& argument : arguments)
        read.push_back(argument.c_str());
    EXPECT_EQ(ProbeQuestion::read(read), question);
    read.back() = "60 or so";
    EXPECT_EQ(ProbeQuestion::read(read), std::nullopt);
    read.pop_back();
    EXPECT_EQ(ProbeQuestion::read(read), std::nullopt);
}

TEST(ProbePicturesTest, PictureLooksLikeItselfAlone)
{
    const FrameHandle picture = probePicture(320, 240, 5);
    EXPECT_TRUE(looksLike(*picture, 5));
    EXPECT_FALSE(looksLike(*picture, 4));
    EXPECT_FALSE(looksLike(*picture, 6));
}

TEST(ProbePicturesTest, OnePixelOfAnEdgeCounts)
{
    const FrameHandle picture = probePicture(320, 240, 0);
    ASSERT_EQ(picture->data[0][3 * picture->linesize[0] + 7], 220);
    picture->data[0][3 * picture->linesize[0] + 6] = 220;
    EXPECT_FALSE(looksLike(*picture, 0));
}

TEST(ProbePicturesTest, ColorsInEachOthersPlaceCount)
{
    const FrameHandle picture = probePicture(320, 240, 0);
    std::swap(picture->data[1], picture->data[2]);
    EXPECT_FALSE(looksLike(*picture, 0));
}

TEST(HardwareCandidatesTest, AreThoseOfTheDeviceFiles)
{
    const QTemporaryDir temporary;
    const std::filesystem::path devices = temporary.path().toStdString();
    EXPECT_THAT(hardwareCandidates(devices), IsEmpty());
    std::filesystem::create_directory(devices / "dri");
    for (const char* name : {"dri/card0", "dri/renderD129", "dri/renderD128", "nvidiactl"})
        std::ofstream(devices / name).put('\n');
    const std::string prefix = devices.string() + "/";
    std::vector<std::string> names;
    for (const HardwareEncoder& candidate : hardwareCandidates(devices)) {
        EXPECT_TRUE(candidate.device.empty() || candidate.device.starts_with(prefix));
        names.push_back(candidate.codec + " " + candidate.device.substr(candidate.device.empty() ? 0 : prefix.size()));
    }
    EXPECT_THAT(names, ElementsAre("h264_nvenc ", "h264_vaapi dri/renderD128", "h264_vaapi dri/renderD128",
                                   "h264_vaapi dri/renderD129", "h264_vaapi dri/renderD129"));
}

} // namespace
} // namespace nimbrale::ffmpeg
