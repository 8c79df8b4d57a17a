#include "webcam/effects_on_demand.h"

#include "tests/fakes/fake_person_segmentation.h"

#include <QLoggingCategory>

#include <algorithm>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using Background = WebcamCamera::Background;

int loggedErrors = 0;

std::shared_ptr<const BufferSurface> somePicture()
{
    const auto pixels = std::make_shared<PixelBuffer>(32, 18);
    std::fill_n(pixels->row(0), pixels->stride() * 18, std::byte{0x40});
    return std::make_shared<BufferSurface>(pixels, SurfaceAlpha::opaque);
}

TEST(EffectsOnDemandTest, MakesTheSegmentationOnceAndForTheFirstPictureOnly)
{
    int made = 0;
    const auto effects = effectsOnDemand([&]() -> Result<std::unique_ptr<PersonSegmentation>> {
        ++made;
        auto state = std::make_shared<FakePersonSegmentation::State>();
        state->setMask(16, 9, [](int, int) { return 255; });
        return std::make_unique<FakePersonSegmentation>(std::move(state));
    });
    EXPECT_EQ(made, 0);
    EXPECT_TRUE(effects(somePicture(), Background::blurred, 0));
    EXPECT_TRUE(effects(somePicture(), Background::transparent, 0));
    EXPECT_EQ(made, 1);
}

TEST(EffectsOnDemandTest, WithoutSegmentationThereAreNoEffectsAndOneLineSaysSo)
{
    loggedErrors = 0;
    const QtMessageHandler before =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
            loggedErrors += type == QtCriticalMsg && QByteArray(context.category) == "Nimbrale.webcam" &&
                            text == "Finding the person failed: no model";
        });
    int made = 0;
    const auto effects = effectsOnDemand([&]() -> Result<std::unique_ptr<PersonSegmentation>> {
        ++made;
        return fail(ErrorCode::permanent, "no model");
    });
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(effects(somePicture(), Background::blurred, 0));
    qInstallMessageHandler(before);
    EXPECT_EQ(made, 1);
    EXPECT_EQ(loggedErrors, 1);
}

} // namespace
} // namespace nimbrale
