#include "array-spectra/ChannelsPicture.h"

#include "shared/AxisStep.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kLeft = 90;
constexpr int kTop = 40;
constexpr int kRight = 120;
constexpr int kBottom = 50;
constexpr int kAllStrips = 768;
constexpr int kLowestStrip = 13;
constexpr int kHighestStrip = 160;
constexpr int kTimeTicks = 10;
constexpr float kStripRangeDb = 60.0F;

float loudest(const std::vector<ChannelStrip>& strips)
{
    float highest = -1000.0F;
    for (const ChannelStrip& strip : strips)
        for (const auto& column : strip.grid.columns)
            for (const float level : column)
                highest = std::max(highest, level);
    return highest;
}

} // namespace

ChannelsPicture::ChannelsPicture(const std::vector<ChannelStrip>& strips)
    : m_strips(strips), m_colours(10.0F * std::ceil(loudest(strips) / 10.0F), kStripRangeDb),
      m_stripHeight(std::clamp(kAllStrips / int(strips.size()), kLowestStrip, kHighestStrip))
{
    for (const ChannelStrip& strip : strips)
        m_seconds = std::max(m_seconds, strip.grid.seconds);
}

QImage ChannelsPicture::draw(const QString& title) const
{
    const int height = m_stripHeight * int(m_strips.size());
    QImage picture(kLeft + kStripWidth + kRight, kTop + height + kBottom, QImage::Format_RGB32);
    picture.fill(Qt::white);
    QPainter painter(&picture);
    QFont font = painter.font();
    font.setPixelSize(std::min(14, m_stripHeight - 2));
    painter.setFont(font);
    painter.drawText(QRect(kLeft, 0, kStripWidth, kTop), Qt::AlignVCenter | Qt::AlignLeft, title);
    int top = kTop;
    for (const ChannelStrip& strip : m_strips) {
        drawStrip(painter, strip, top);
        top += m_stripHeight;
    }
    drawTimeAxis(painter, top);
    drawScale(painter);
    return picture;
}

void ChannelsPicture::drawStrip(QPainter& painter, const ChannelStrip& strip, int top) const
{
    const LevelGrid& grid = strip.grid;
    const int rows = m_stripHeight - 1;
    QImage levels(kStripWidth, rows, QImage::Format_RGB32);
    levels.fill(QColor(LevelColours::kUnknown));
    const int width = std::max(1, int(kStripWidth * grid.seconds / std::max(m_seconds, 1e-9)));
    for (int y = 0; y < rows; ++y) {
        auto* line = reinterpret_cast<QRgb*>(levels.scanLine(y));
        // A row shows the loudest of its bins, so that a thin line isn't lost.
        const int low = (rows - 1 - y) * grid.bins / rows;
        const int high = std::max(low + 1, (rows - y) * grid.bins / rows);
        for (int x = 0; x < std::min(width, kStripWidth); ++x) {
            const std::vector<float>& column = grid.columns[size_t(x) * grid.columns.size() / size_t(width)];
            if (!column.empty())
                line[x] = m_colours.at(*std::max_element(column.begin() + low, column.begin() + high));
        }
    }
    painter.drawImage(kLeft, top, levels);
    painter.drawText(QRect(0, top, kLeft - 6, rows), Qt::AlignVCenter | Qt::AlignRight, strip.name);
}

void ChannelsPicture::drawTimeAxis(QPainter& painter, int top) const
{
    const double step = axisStep(m_seconds, kTimeTicks);
    for (int i = 0; i * step <= m_seconds * 1.0001; ++i) {
        const int x = kLeft + int(i * step / std::max(m_seconds, 1e-9) * (kStripWidth - 1));
        painter.drawLine(x, top, x, top + 4);
        painter.drawText(QRect(x - 40, top + 5, 80, 16), Qt::AlignCenter, QString::number(i * step, 'g', 6));
    }
    painter.drawText(QRect(kLeft, top + 24, kStripWidth, 20), Qt::AlignCenter, QStringLiteral("time in s"));
}

void ChannelsPicture::drawScale(QPainter& painter) const
{
    constexpr int kSteps = 6;
    const int height = std::min(m_stripHeight * int(m_strips.size()) - 1, 400);
    const int left = kLeft + kStripWidth + 20;
    for (int y = 0; y < height; ++y) {
        painter.setPen(QColor(m_colours.at(m_colours.top() - m_colours.range() * float(y) / float(height))));
        painter.drawLine(left, kTop + y, left + 16, kTop + y);
    }
    painter.setPen(Qt::black);
    for (int i = 0; i <= kSteps; ++i)
        painter.drawText(QRect(left + 22, kTop + i * height / kSteps - 8, 60, 16),
                         Qt::AlignVCenter | Qt::AlignLeft,
                         QString::number(int(m_colours.top() - m_colours.range() * float(i) / kSteps)));
    painter.drawText(QRect(left - 20, 0, 110, kTop), Qt::AlignCenter, m_strips.front().grid.unit);
}
