#include "shell/AvatarCrop.h"

#include <QBuffer>
#include <QImageReader>
#include <QPainter>
#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

QImage filled(int width, int height, QColor colour = Qt::gray) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// Every pixel its own colour: as detailed as a picture gets.
QImage noise(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    QRandomGenerator random(17);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            line[x] = 0xff000000u | (random.generate() & 0xffffffu);
        }
    }
    return image;
}

QImage decoded(const QByteArray& jpeg) {
    QBuffer buffer;
    buffer.setData(jpeg);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "jpeg");
    return reader.read();
}

} // namespace

TEST(AvatarCrop, TheShorterSideCoversTheFrameAtScaleOne) {
    AvatarCrop tall(filled(300, 600), QUrl());
    tall.setSide(200);
    EXPECT_DOUBLE_EQ(tall.displayWidth(), 200);
    EXPECT_DOUBLE_EQ(tall.displayHeight(), 400);
    AvatarCrop wide(filled(900, 300), QUrl());
    wide.setSide(150);
    EXPECT_DOUBLE_EQ(wide.displayWidth(), 450);
    EXPECT_DOUBLE_EQ(wide.displayHeight(), 150);
}

TEST(AvatarCrop, ASquarePictureAtScaleOneCannotBeMovedAtAll) {
    AvatarCrop crop(filled(400, 400), QUrl());
    crop.setSide(100);
    crop.drag(60, -35);
    EXPECT_EQ(crop.offset(), QPointF(0, 0));
    crop.endDrag();
    crop.drag(-1000, 1000);
    EXPECT_EQ(crop.offset(), QPointF(0, 0));
}

TEST(AvatarCrop, ATallPictureAtScaleOneMovesOnlyUpAndDown) {
    AvatarCrop crop(filled(100, 200), QUrl());
    crop.setSide(100);
    EXPECT_DOUBLE_EQ(crop.maxX(), 0);
    EXPECT_DOUBLE_EQ(crop.maxY(), 50);
    crop.drag(30, 20);
    EXPECT_EQ(crop.offset(), QPointF(0, 20));
    crop.drag(30, 80);
    EXPECT_EQ(crop.offset(), QPointF(0, 50));
    crop.drag(-30, -80);
    EXPECT_EQ(crop.offset(), QPointF(0, -50));
}

TEST(AvatarCrop, ADragAddsToWhereTheLastOneEnded) {
    AvatarCrop crop(filled(100, 100), QUrl());
    crop.setSide(100);
    crop.zoomTo(3);
    crop.drag(10, 4);
    crop.endDrag();
    crop.drag(5, -6);
    EXPECT_EQ(crop.offset(), QPointF(15, -2));
}

TEST(AvatarCrop, TheScaleStaysBetweenOneAndSix) {
    AvatarCrop crop(filled(100, 100), QUrl());
    crop.setSide(100);
    crop.magnify(10);
    EXPECT_DOUBLE_EQ(crop.scale(), 6);
    crop.endMagnify();
    crop.magnify(0.01);
    EXPECT_DOUBLE_EQ(crop.scale(), 1);
    crop.endMagnify();
    crop.magnify(2.5);
    EXPECT_DOUBLE_EQ(crop.scale(), 2.5);
    crop.endMagnify();
    // A second pinch multiplies what the first left.
    crop.magnify(2);
    EXPECT_DOUBLE_EQ(crop.scale(), 5);
    crop.zoomTo(0.5);
    EXPECT_DOUBLE_EQ(crop.scale(), 1);
    crop.zoomTo(7);
    EXPECT_DOUBLE_EQ(crop.scale(), 6);
}

TEST(AvatarCrop, ShrinkingFromThreeToOneAfterACornerCentresTheAxisWhoseLimitIsZero) {
    AvatarCrop crop(filled(200, 100), QUrl());
    crop.setSide(100);
    crop.magnify(3);
    crop.endMagnify();
    crop.drag(10000, 10000);
    crop.endDrag();
    EXPECT_EQ(crop.offset(), QPointF(250, 100));
    crop.magnify(1.0 / 3.0);
    EXPECT_DOUBLE_EQ(crop.scale(), 1);
    // Across there is still room for 50 either way; up and down there is none.
    EXPECT_EQ(crop.offset(), QPointF(50, 0));
}

TEST(AvatarCrop, TheCropRectangleIsTheFramedPartInPicturePixels) {
    AvatarCrop crop(filled(1000, 1000), QUrl());
    crop.setSide(250);
    EXPECT_EQ(crop.cropRect(), QRectF(0, 0, 1000, 1000));
    crop.zoomTo(2);
    EXPECT_EQ(crop.cropRect(), QRectF(250, 250, 500, 500));
    // Moving the picture right shows more of its left.
    crop.drag(50, 0);
    EXPECT_EQ(crop.cropRect(), QRectF(150, 250, 500, 500));
}

TEST(AvatarCrop, TheResultIsAlways512By512) {
    for (const QSize size : {QSize(1, 1), QSize(64, 48), QSize(300, 3000), QSize(4000, 1200)}) {
        AvatarCrop crop(filled(size.width(), size.height()), QUrl());
        crop.setSide(173);
        crop.zoomTo(4.3);
        crop.drag(-37, 91);
        const QByteArray jpeg = crop.jpeg();
        ASSERT_FALSE(jpeg.isEmpty());
        const QImage image = decoded(jpeg);
        EXPECT_EQ(image.size(), QSize(512, 512)) << size.width() << "x" << size.height();
    }
}

TEST(AvatarCrop, TheRenderShowsTheFramedPart) {
    // Left half red, right half blue; zoomed in and moved right, the frame
    // holds only red.
    QImage image = filled(400, 400, Qt::blue);
    QPainter(&image).fillRect(0, 0, 200, 400, Qt::red);
    AvatarCrop crop(image, QUrl());
    crop.setSide(100);
    crop.zoomTo(2);
    crop.drag(1000, 0);
    const QImage out = crop.render();
    ASSERT_EQ(out.size(), QSize(512, 512));
    for (const QPoint at : {QPoint(2, 2), QPoint(256, 256), QPoint(509, 509)}) {
        EXPECT_EQ(out.pixelColor(at), QColor(Qt::red)) << at.x() << "," << at.y();
    }
    crop.drag(-2000, 0);
    EXPECT_EQ(crop.render().pixelColor(256, 256), QColor(Qt::blue));
}

TEST(AvatarCrop, AQuietPictureIsEncodedOnceAtQuality85) {
    AvatarCrop crop(filled(800, 600), QUrl());
    crop.setSide(100);
    const QByteArray jpeg = crop.jpeg();
    EXPECT_EQ(crop.lastQuality(), 85);
    EXPECT_EQ(jpeg, AvatarCrop::encode(crop.render(), 85));
    EXPECT_LE(jpeg.size(), AvatarCrop::byteBudget);
}

TEST(AvatarCrop, OverTheBudgetTheQualityStepsDownBy15) {
    AvatarCrop crop(noise(512, 512), QUrl());
    crop.setSide(100);
    const QImage rendered = crop.render();
    const qsizetype at85 = AvatarCrop::encode(rendered, 85).size();
    const qsizetype at70 = AvatarCrop::encode(rendered, 70).size();
    ASSERT_GT(at85, at70);
    // A budget that 85 misses and 70 meets stops at 70.
    const QByteArray jpeg = crop.jpeg(at70);
    EXPECT_EQ(crop.lastQuality(), 70);
    EXPECT_EQ(jpeg.size(), at70);
}

TEST(AvatarCrop, AVeryDetailedPictureEndsAtTheLowestQualityEvenIfStillOverBudget) {
    AvatarCrop crop(noise(512, 512), QUrl());
    crop.setSide(100);
    const qsizetype budget = 1000;
    const QByteArray jpeg = crop.jpeg(budget);
    EXPECT_EQ(crop.lastQuality(), 40);
    EXPECT_GT(jpeg.size(), budget);
    EXPECT_EQ(jpeg, AvatarCrop::encode(crop.render(), 40));
}
