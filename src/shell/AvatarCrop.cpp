#include "shell/AvatarCrop.h"

#include <QBuffer>
#include <QImageWriter>
#include <QPainter>

#include <algorithm>

AvatarCrop::AvatarCrop(QImage image, QUrl source, QObject* parent)
    : QObject(parent), m_image(std::move(image)), m_source(std::move(source)) {}

void AvatarCrop::setSide(qreal side) {
    side = std::max<qreal>(side, 1);
    if (qFuzzyCompare(side, m_side)) {
        return;
    }
    m_side = side;
    clampOffset();
    m_lastOffset = m_offset;
    emit geometryChanged();
}

// At scale 1 the picture's shorter side equals the frame's edge.
qreal AvatarCrop::displayWidth() const {
    const int shorter = std::min(m_image.width(), m_image.height());
    return shorter > 0 ? m_image.width() * m_side / shorter : m_side;
}

qreal AvatarCrop::displayHeight() const {
    const int shorter = std::min(m_image.width(), m_image.height());
    return shorter > 0 ? m_image.height() * m_side / shorter : m_side;
}

qreal AvatarCrop::maxX() const {
    return std::max<qreal>(0, (displayWidth() * m_scale - m_side) / 2);
}

qreal AvatarCrop::maxY() const {
    return std::max<qreal>(0, (displayHeight() * m_scale - m_side) / 2);
}

void AvatarCrop::clampOffset() {
    m_offset = QPointF(std::clamp(m_offset.x(), -maxX(), maxX()),
                       std::clamp(m_offset.y(), -maxY(), maxY()));
}

void AvatarCrop::drag(qreal dx, qreal dy) {
    m_offset = m_lastOffset + QPointF(dx, dy);
    clampOffset();
    emit geometryChanged();
}

void AvatarCrop::endDrag() {
    m_lastOffset = m_offset;
}

void AvatarCrop::magnify(qreal factor) {
    m_scale = std::clamp(m_lastScale * factor, minScale, maxScale);
    // Shrinking pulls the picture back inside the frame.
    clampOffset();
    emit geometryChanged();
}

void AvatarCrop::endMagnify() {
    m_lastScale = m_scale;
    m_lastOffset = m_offset;
}

void AvatarCrop::zoomTo(qreal scale) {
    m_lastScale = 1;
    magnify(scale);
    endMagnify();
}

QRectF AvatarCrop::cropRect() const {
    const qreal shownWidth = displayWidth() * m_scale;
    const qreal shownHeight = displayHeight() * m_scale;
    const qreal k = m_image.width() / shownWidth;
    return QRectF(k * ((shownWidth - m_side) / 2 - m_offset.x()),
                  k * ((shownHeight - m_side) / 2 - m_offset.y()), k * m_side, k * m_side);
}

QImage AvatarCrop::render() const {
    QImage out(outputEdge, outputEdge, QImage::Format_RGB32);
    // A picture with transparency lands on white rather than black.
    out.fill(Qt::white);
    QPainter painter(&out);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::Antialiasing);
    // The whole picture, scaled and shifted so that the frame fills the output.
    const QRectF crop = cropRect();
    const qreal factor = outputEdge / crop.width();
    painter.drawImage(QRectF(-crop.x() * factor, -crop.y() * factor, m_image.width() * factor,
                             m_image.height() * factor),
                      m_image);
    painter.end();
    return out;
}

QByteArray AvatarCrop::encode(const QImage& image, int quality) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(quality);
    if (!writer.write(image)) {
        return {};
    }
    return bytes;
}

QByteArray AvatarCrop::jpeg(qsizetype budget) const {
    const QImage rendered = render();
    int quality = firstQuality;
    QByteArray bytes = encode(rendered, quality);
    while (!bytes.isEmpty() && bytes.size() > budget && quality > lowestQuality) {
        quality -= qualityStep;
        bytes = encode(rendered, quality);
    }
    m_lastQuality = quality;
    return bytes;
}
