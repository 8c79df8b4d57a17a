// The movie's size, its encoding and its name.

#include "recording/movie_format.h"

#include <QDateTime>

#include <gtest/gtest.h>
#include <limits>

namespace nimbrale {
namespace {

using Quality = AppSettings::RecordingQuality;

TEST(MovieSizeTest, ADisplayAtScale2IsMadeSmallerToTheStandardBoundsAndKeptInHigh)
{
    EXPECT_EQ(movieSize(1920, 1080, 2, Quality::standard), (MovieSize{2560, 1440}));
    EXPECT_EQ(movieSize(1920, 1080, 2, Quality::high), (MovieSize{3840, 2160}));
}

TEST(MovieSizeTest, ASmallDisplayIsRecordedAsItIs)
{
    EXPECT_EQ(movieSize(1920, 1080, 1, Quality::standard), (MovieSize{1920, 1080}));
    EXPECT_EQ(movieSize(1920, 1080, 1, Quality::high), (MovieSize{1920, 1080}));
}

TEST(MovieSizeTest, OddSidesAreRoundedDown)
{
    EXPECT_EQ(movieSize(1367, 769, 1, Quality::standard), (MovieSize{1366, 768}));
}

TEST(MovieSizeTest, TheSideThatIsTooLongDecides)
{
    EXPECT_EQ(movieSize(5120, 1440, 1, Quality::standard), (MovieSize{2560, 720}));
    EXPECT_EQ(movieSize(1000, 2880, 1, Quality::standard), (MovieSize{500, 1440}));
}

TEST(MovieSizeTest, AFractionalScaleGivesWholePixels)
{
    EXPECT_EQ(movieSize(533.33, 300, 1.5, Quality::standard), (MovieSize{798, 450}));
}

TEST(MovieSizeTest, NothingIsSmallerThanAMovieCanBe)
{
    EXPECT_EQ(movieSize(1, 5000, 1, Quality::standard), (MovieSize{2, 1440}));
}

TEST(MovieVideoTest, BitRateAndKeyFramesFollowFromSizeAndRate)
{
    const MovieVideo standard = movieVideo({2560, 1440}, 30, Quality::standard);
    EXPECT_EQ(standard.averageBitRate, 11'059'200);
    EXPECT_EQ(standard.expectedFrameRate, 30);
    EXPECT_EQ(standard.maximumKeyFrameInterval, 60);
    EXPECT_EQ(movieVideo({2560, 1440}, 30, Quality::high).averageBitRate, 16'588'800);
}

TEST(MovieVideoTest, AnyRateInTheSettingsGivesAMovie)
{
    EXPECT_EQ(movieVideo({100, 100}, 0, Quality::standard).expectedFrameRate, 1);
    EXPECT_EQ(movieVideo({100, 100}, -30, Quality::standard).maximumKeyFrameInterval, 2);
    EXPECT_EQ(movieVideo({100, 100}, std::numeric_limits<std::int64_t>::max(), Quality::standard).expectedFrameRate,
              240);
}

TEST(MovieFileNameTest, TellsDateAndTimeTheSameInEveryLanguage)
{
    QLocale::setDefault(QLocale(QLocale::Arabic));
    const QDateTime date(QDate(2026, 3, 1), QTime(9, 5, 0));
    EXPECT_EQ(movieFileName(date), "Nimbrale Recording 2026-03-01 at 09.05.00.mov");
    QLocale::setDefault(QLocale::c());
}

} // namespace
} // namespace nimbrale
