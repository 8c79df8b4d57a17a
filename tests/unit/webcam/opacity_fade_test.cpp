#include "webcam/opacity_fade.h"

#include "tests/fakes/fake_main_queue.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

class OpacityFadeTest : public testing::Test {
protected:
    FakeMainQueue queue;
    Layer layer;
    OpacityFade fade{layer, queue};
};

TEST_F(OpacityFadeTest, EndsExactlyAtItsAimAfterItsTime)
{
    fade.fadeTo(0.2);
    EXPECT_EQ(layer.opacity(), 1) << "nothing jumps";
    queue.advance(75ms);
    EXPECT_LT(layer.opacity(), 0.75);
    EXPECT_GT(layer.opacity(), 0.45);
    queue.advance(75ms);
    EXPECT_EQ(layer.opacity(), 0.2);
    queue.advance(1s);
    EXPECT_EQ(layer.opacity(), 0.2);
}

TEST_F(OpacityFadeTest, TurnsRoundWhereItIs)
{
    fade.fadeTo(0.2);
    queue.advance(75ms);
    const double half = layer.opacity();
    fade.fadeTo(1);
    EXPECT_EQ(layer.opacity(), half);
    queue.advance(20ms);
    EXPECT_GT(layer.opacity(), half);
    queue.advance(130ms);
    EXPECT_EQ(layer.opacity(), 1);
}

TEST_F(OpacityFadeTest, ToWhereItGoesAlreadyChangesNothing)
{
    fade.fadeTo(1);
    queue.advance(1s);
    EXPECT_EQ(layer.opacity(), 1);
    fade.fadeTo(0.2);
    queue.advance(75ms);
    fade.fadeTo(0.2);
    queue.advance(75ms);
    EXPECT_EQ(layer.opacity(), 0.2);
}

} // namespace
} // namespace nimbrale
