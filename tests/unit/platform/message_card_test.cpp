#include "platform/message_card.h"

#include "tests/fakes/offscreen_application.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

class MessageCardTest : public testing::Test {
protected:
    MessageCardTest() { startOffscreenApplication(); }
    [[nodiscard]] static bool isFramed(const QRect& text, const QSize& card)
    {
        return text.left() > 0 && text.top() > 0 && text.right() < card.width() - 1 &&
               text.bottom() < card.height() - 1;
    }
    /// Around all that is as light as text.
    [[nodiscard]] static QRect textOf(const QImage& image)
    {
        QRect found;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (qGray(image.pixel(x, y)) > 128)
                    found |= QRect(x, y, 1, 1);
            }
        }
        return found;
    }
    [[nodiscard]] static QImage drawn(const MessageCard& card)
    {
        QImage image(card.size(), QImage::Format_RGB32);
        image.fill(Qt::black);
        QPainter painter(&image);
        card.draw(painter, {0, 0});
        return image;
    }
};

TEST_F(MessageCardTest, FitsIntoItsAreaWithItsText)
{
    for (const QSize area : {QSize(3840, 2160), QSize(800, 600), QSize(300, 900), QSize(2000, 200)}) {
        const MessageCard card("Nothing to see\nat the moment", area.width(), area.height());
        ASSERT_FALSE(card.size().isEmpty()) << area.width();
        EXPECT_LT(card.size().width(), area.width());
        EXPECT_LT(card.size().height(), area.height());
        const QRect text = textOf(drawn(card));
        EXPECT_FALSE(text.isEmpty());
        EXPECT_TRUE(isFramed(text, card.size())) << area.width();
    }
}

TEST_F(MessageCardTest, EachLineHasARowOfItsOwn)
{
    const MessageCard one("Nothing to see", 800, 600);
    const MessageCard two("Nothing to see\nat all", 800, 600);
    EXPECT_EQ(two.size().width(), one.size().width());
    EXPECT_GT(textOf(drawn(two)).height(), 1.8 * textOf(drawn(one)).height());
}

TEST_F(MessageCardTest, IsEmptyWhereTheTextCouldNotBeRead)
{
    EXPECT_TRUE(MessageCard("Nothing to see", 100, 600).size().isEmpty());
    EXPECT_TRUE(MessageCard("Nothing to see", 800, 100).size().isEmpty());
    EXPECT_TRUE(MessageCard("Nothing to see", 0, 0).size().isEmpty());
}

} // namespace
} // namespace nimbrale
