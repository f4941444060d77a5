#include "ui/recorder/PreviewMappedBox.h"

std::optional<QRectF> previewMappedBox(const QRectF& rect, QSizeF sourceSize, QPointF sourceOrigin, QSizeF box)
{
    if (!(sourceSize.width() > 0) || !(sourceSize.height() > 0) || !(box.width() > 0) || !(box.height() > 0))
        return std::nullopt;
    const QRectF local = rect.translated(-sourceOrigin);
    const double aspect = sourceSize.width() / sourceSize.height();
    const QSizeF fitted = box.width() / box.height() < aspect ? QSizeF(box.width(), box.width() / aspect)
                                                              : QSizeF(box.height() * aspect, box.height());
    const double sx = fitted.width() / sourceSize.width();
    const double sy = fitted.height() / sourceSize.height();
    const QPointF offset((box.width() - fitted.width()) / 2, (box.height() - fitted.height()) / 2);
    return QRectF(local.x() * sx + offset.x(), local.y() * sy + offset.y(), local.width() * sx, local.height() * sy);
}
