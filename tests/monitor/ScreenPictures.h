#pragma once

#include <QFont>
#include <QImage>
#include <QPainter>
#include <QRandomGenerator>

// Pictures of the kind an area monitor watches, for the signature's tests and benchmark: a trading
// screen (thin grid lines, a price line, candles, antialiased numbers and labels), text alone, and
// noise that no screen shows but that is the hardest case for anything that reduces a picture.
namespace ScreenPictures {

// A chart with its price axis and a small order book beside it. `tick` moves the market on.
inline QImage tradingScreen(QSize size, int tick = 0)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(18, 22, 30));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const int chartWidth = size.width() * 7 / 10;
    p.setPen(QPen(QColor(40, 46, 58), 1));
    for (int x = 0; x < chartWidth; x += 37)
        p.drawLine(x, 0, x, size.height());
    for (int y = 0; y < size.height(); y += 29)
        p.drawLine(0, y, chartWidth, y);
    QRandomGenerator market(uint32_t(11 + tick));
    double price = size.height() / 2.0;
    QPolygonF line;
    for (int x = 4; x < chartWidth - 60; x += 9) {
        const double open = price;
        price += market.bounded(21) - 10;
        const double high = std::min(open, price) - market.bounded(8);
        const double low = std::max(open, price) + market.bounded(8);
        const QColor colour = price < open ? QColor(38, 166, 154) : QColor(239, 83, 80);
        p.setPen(QPen(colour, 1));
        p.drawLine(QPointF(x + 3.5, high), QPointF(x + 3.5, low));
        p.fillRect(QRectF(x, std::min(open, price), 7, std::max(1.0, std::abs(price - open))), colour);
        line << QPointF(x + 3.5, (open + price) / 2 - 40);
    }
    p.setPen(QPen(QColor(255, 193, 7), 1.3));
    p.drawPolyline(line);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(11);
    p.setFont(font);
    p.setPen(QColor(180, 186, 198));
    for (int y = 14; y < size.height(); y += 29)
        p.drawText(chartWidth - 52, y, QString::number(4200.25 - y * 0.25, 'f', 2));
    // The order book: rows of prices and sizes, bid green and ask red.
    for (int row = 0; row * 16 + 16 < size.height(); ++row) {
        const int y = row * 16 + 13;
        p.setPen(row % 2 ? QColor(38, 166, 154) : QColor(239, 83, 80));
        p.drawText(chartWidth + 10, y, QString::number(4200.00 + (row - 18) * 0.25, 'f', 2));
        p.setPen(QColor(200, 200, 200));
        p.drawText(chartWidth + 90, y, QString::number(market.bounded(1, 900)));
    }
    return image;
}

// Dark text on white, as in a terminal or a table of figures.
inline QImage text(QSize size, int pixelSize)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter p(&image);
    QFont font(QStringLiteral("DejaVu Sans Mono"));
    font.setPixelSize(pixelSize);
    p.setFont(font);
    p.setPen(QColor(20, 20, 20));
    for (int y = pixelSize, n = 0; y < size.height(); y += pixelSize + 3, ++n)
        p.drawText(2, y,
            QStringLiteral("%1 | fill 4213.75 x %2 @ 09:31:%3.%4 PnL +1,250.00 | MES Z5")
                .arg(n, 4)
                .arg(n * 7 % 23 + 1)
                .arg(n % 60, 2, 10, QLatin1Char('0'))
                .arg(n * 37 % 1000, 3, 10, QLatin1Char('0')));
    return image;
}

// Every pixel a random colour; with `blackAndWhite` every pixel black or white.
inline QImage noise(QSize size, uint32_t seed, bool blackAndWhite = false)
{
    QImage image(size, QImage::Format_RGB32);
    QRandomGenerator random(seed);
    for (int y = 0; y < size.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            const quint32 value = random.generate();
            line[x] = 0xff000000u | (blackAndWhite ? ((value & 1) ? 0xffffffu : 0u) : value);
        }
    }
    return image;
}

} // namespace ScreenPictures
