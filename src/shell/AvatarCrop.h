#pragma once

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QUrl>

// A chosen picture moved and scaled inside a square frame before it becomes
// the user's picture. The view shows the picture at displayWidth × scale by
// displayHeight × scale, shifted by the offset from the centre, and reports
// the user's drags and zooms; this keeps them inside the frame and renders
// the framed part as a JPEG.
class AvatarCrop : public QObject {
    Q_OBJECT
    Q_PROPERTY(QUrl source READ source CONSTANT)
    Q_PROPERTY(qreal side READ side WRITE setSide NOTIFY geometryChanged)
    Q_PROPERTY(qreal displayWidth READ displayWidth NOTIFY geometryChanged)
    Q_PROPERTY(qreal displayHeight READ displayHeight NOTIFY geometryChanged)
    Q_PROPERTY(qreal scale READ scale NOTIFY geometryChanged)
    Q_PROPERTY(qreal offsetX READ offsetX NOTIFY geometryChanged)
    Q_PROPERTY(qreal offsetY READ offsetY NOTIFY geometryChanged)
public:
    static constexpr int outputEdge = 512;
    static constexpr qreal minScale = 1;
    static constexpr qreal maxScale = 6;
    // Qualities in hundredths: the first try, the step down, the floor.
    static constexpr int firstQuality = 85;
    static constexpr int qualityStep = 15;
    static constexpr int lowestQuality = 40;
    static constexpr qsizetype byteBudget = 1'000'000;

    // `source` is where the view loads the same picture from.
    AvatarCrop(QImage image, QUrl source, QObject* parent = nullptr);

    const QImage& image() const { return m_image; }
    QUrl source() const { return m_source; }

    // The frame's edge in the view's units; the picture covers it at scale 1.
    qreal side() const { return m_side; }
    void setSide(qreal side);
    qreal displayWidth() const;
    qreal displayHeight() const;
    qreal scale() const { return m_scale; }
    QPointF offset() const { return m_offset; }
    qreal offsetX() const { return m_offset.x(); }
    qreal offsetY() const { return m_offset.y(); }
    // How far the picture may move each way from the centre at this scale.
    qreal maxX() const;
    qreal maxY() const;

    // A drag in progress, by its whole translation since it began.
    Q_INVOKABLE void drag(qreal dx, qreal dy);
    Q_INVOKABLE void endDrag();
    // A zoom in progress, by its whole factor since it began.
    Q_INVOKABLE void magnify(qreal factor);
    Q_INVOKABLE void endMagnify();
    // A zoom to a scale at once, as the slider or the wheel asks.
    Q_INVOKABLE void zoomTo(qreal scale);

    // The framed part in the picture's pixels.
    QRectF cropRect() const;
    // The framed part at outputEdge × outputEdge, smoothly scaled.
    QImage render() const;
    // The JPEG of render(): quality 0.85, lowered by 0.15 while over the
    // budget and above 0.4. Empty when encoding failed.
    QByteArray jpeg(qsizetype budget = byteBudget) const;
    // The quality of the last jpeg(), in hundredths.
    int lastQuality() const { return m_lastQuality; }

    static QByteArray encode(const QImage& image, int quality);

signals:
    void geometryChanged();

private:
    void clampOffset();

    QImage m_image;
    QUrl m_source;
    qreal m_side = 1;
    qreal m_scale = 1;
    qreal m_lastScale = 1;
    QPointF m_offset;
    QPointF m_lastOffset;
    mutable int m_lastQuality = 0;
};
