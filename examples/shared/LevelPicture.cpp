#include "shared/LevelPicture.h"

#include "shared/AxisStep.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

constexpr QRect kPlot(70, 40, LevelPicture::kPlotWidth, LevelPicture::kPlotHeight);
constexpr QRect kScale(kPlot.right() + 25, kPlot.top(), 18, LevelPicture::kPlotHeight);
constexpr QSize kPicture(kScale.right() + 70, kPlot.bottom() + 60);
constexpr int kTick = 5;

float highestLevel(const LevelGrid& grid)
{
    std::optional<float> highest;
    for (const auto& column : grid.columns)
        for (const float level : column)
            highest = std::max(highest.value_or(level), level);
    return highest.value_or(0.0F);
}

} // namespace

LevelPicture::LevelPicture(const LevelGrid& grid)
    : m_grid(grid), m_colours(10.0F * std::ceil(highestLevel(grid) / 10.0F))
{
}

QImage LevelPicture::draw(const QString& title) const
{
    QImage picture(kPicture, QImage::Format_RGB32);
    picture.fill(Qt::white);
    QPainter painter(&picture);
    QFont font = painter.font();
    font.setPixelSize(14);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(QRect(kPlot.left(), 0, kPlot.width(), kPlot.top()), Qt::AlignVCenter | Qt::AlignLeft,
                     title);
    drawLevels(painter);
    drawTimeAxis(painter);
    drawFrequencyAxis(painter);
    drawScale(painter);
    return picture;
}

void LevelPicture::drawLevels(QPainter& painter) const
{
    QImage levels(kPlot.size(), QImage::Format_RGB32);
    for (int y = 0; y < levels.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(levels.scanLine(y));
        // Rows that hold several bins show the loudest of them, so that a thin line isn't lost.
        const int rows = levels.height();
        const int low = (rows - 1 - y) * m_grid.bins / rows;
        const int high = std::max(low + 1, (rows - y) * m_grid.bins / rows);
        for (int x = 0; x < levels.width(); ++x) {
            const size_t place = size_t(x) * m_grid.columns.size() / size_t(levels.width());
            const std::vector<float>& column = m_grid.columns[place];
            line[x] = column.empty()
                          ? LevelColours::kUnknown
                          : m_colours.at(*std::max_element(column.begin() + low, column.begin() + high));
        }
    }
    painter.drawImage(kPlot.topLeft(), levels);
    painter.drawRect(kPlot.adjusted(-1, -1, 0, 0));
}

void LevelPicture::drawTimeAxis(QPainter& painter) const
{
    const double step = axisStep(m_grid.seconds, 10);
    for (int i = 0; i * step <= m_grid.seconds * 1.0001; ++i) {
        const int x = kPlot.left() + int(i * step / m_grid.seconds * (kPlot.width() - 1));
        painter.drawLine(x, kPlot.bottom() + 1, x, kPlot.bottom() + kTick);
        painter.drawText(QRect(x - 40, kPlot.bottom() + kTick, 80, 20), Qt::AlignCenter,
                         QString::number(i * step, 'g', 6));
    }
    painter.drawText(QRect(kPlot.left(), kPlot.bottom() + 28, kPlot.width(), 22), Qt::AlignCenter,
                     QStringLiteral("time in s"));
}

void LevelPicture::drawFrequencyAxis(QPainter& painter) const
{
    const double step = axisStep(m_grid.kilohertz, 8);
    for (int i = 0; i * step <= m_grid.kilohertz * 1.0001; ++i) {
        const int y = kPlot.bottom() - int(i * step / m_grid.kilohertz * (kPlot.height() - 1));
        painter.drawLine(kPlot.left() - kTick, y, kPlot.left() - 1, y);
        painter.drawText(QRect(20, y - 10, kPlot.left() - 20 - kTick - 2, 20),
                         Qt::AlignVCenter | Qt::AlignRight, QString::number(i * step, 'g', 6));
    }
    painter.save();
    painter.translate(12, kPlot.center().y());
    painter.rotate(-90);
    painter.drawText(QRect(-kPlot.height() / 2, -10, kPlot.height(), 20), Qt::AlignCenter,
                     QStringLiteral("frequency in kHz"));
    painter.restore();
}

void LevelPicture::drawScale(QPainter& painter) const
{
    for (int y = 0; y < kScale.height(); ++y) {
        const float level = m_colours.top() - m_colours.range() * float(y) / float(kScale.height() - 1);
        painter.setPen(QColor(m_colours.at(level)));
        painter.drawLine(kScale.left(), kScale.top() + y, kScale.right(), kScale.top() + y);
    }
    painter.setPen(Qt::black);
    painter.drawRect(kScale.adjusted(-1, -1, 0, 0));
    for (int db = 0; db <= int(m_colours.range()); db += 20) {
        const int y = kScale.top() + int(float(db) / m_colours.range() * float(kScale.height() - 1));
        painter.drawLine(kScale.right() + 1, y, kScale.right() + kTick, y);
        painter.drawText(QRect(kScale.right() + kTick + 3, y - 10, 60, 20), Qt::AlignVCenter | Qt::AlignLeft,
                         QString::number(int(m_colours.top()) - db));
    }
    painter.drawText(QRect(kScale.left() - 45, 0, 120, kScale.top()), Qt::AlignCenter, m_grid.unit);
}
