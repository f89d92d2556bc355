#include "shared/LevelPicture.h"

#include <QColor>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace {

constexpr QRect kPlot(70, 40, LevelPicture::kPlotWidth, LevelPicture::kPlotHeight);
constexpr QRect kScale(kPlot.right() + 25, kPlot.top(), 18, LevelPicture::kPlotHeight);
constexpr QSize kPicture(kScale.right() + 70, kPlot.bottom() + 60);
constexpr float kRangeDb = 100.0F;
constexpr int kTick = 5;
constexpr QRgb kUnknown = qRgb(225, 225, 225);

float highestLevel(const LevelGrid& grid)
{
    std::optional<float> highest;
    for (const auto& column : grid.columns)
        for (const float level : column)
            highest = std::max(highest.value_or(level), level);
    return highest.value_or(0.0F);
}

/// A step of 1, 2 or 5 times a power of ten that divides `range` into at most `most` parts.
double axisStep(double range, int most)
{
    double step = std::pow(10.0, std::floor(std::log10(std::max(range, 1e-6) / most)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0})
        if (range / (step * factor) <= most)
            return step * factor;
    return step * 10.0;
}

} // namespace

LevelPicture::LevelPicture(const LevelGrid& grid)
    : m_grid(grid), m_top(10.0F * std::ceil(highestLevel(grid) / 10.0F))
{
}

/// Dark blue over violet and red to yellow, in even steps of brightness.
QRgb LevelPicture::colour(float level) const
{
    static constexpr std::array<std::array<float, 3>, 6> kStops{
        {{0, 0, 20}, {45, 10, 100}, {130, 25, 120}, {210, 60, 80}, {250, 145, 40}, {255, 250, 180}}};
    const float place = std::clamp((level - m_top) / kRangeDb + 1.0F, 0.0F, 1.0F) * (kStops.size() - 1);
    const size_t stop = std::min(size_t(place), kStops.size() - 2);
    const float part = place - float(stop);
    const auto mix = [&](size_t c) {
        return int(kStops[stop][c] + part * (kStops[stop + 1][c] - kStops[stop][c]));
    };
    return qRgb(mix(0), mix(1), mix(2));
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
            line[x] = column.empty() ? kUnknown
                                     : colour(*std::max_element(column.begin() + low, column.begin() + high));
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
        const float level = m_top - kRangeDb * float(y) / float(kScale.height() - 1);
        painter.setPen(QColor(colour(level)));
        painter.drawLine(kScale.left(), kScale.top() + y, kScale.right(), kScale.top() + y);
    }
    painter.setPen(Qt::black);
    painter.drawRect(kScale.adjusted(-1, -1, 0, 0));
    for (int db = 0; db <= int(kRangeDb); db += 20) {
        const int y = kScale.top() + int(float(db) / kRangeDb * float(kScale.height() - 1));
        painter.drawLine(kScale.right() + 1, y, kScale.right() + kTick, y);
        painter.drawText(QRect(kScale.right() + kTick + 3, y - 10, 60, 20), Qt::AlignVCenter | Qt::AlignLeft,
                         QString::number(int(m_top) - db));
    }
    painter.drawText(QRect(kScale.left() - 45, 0, 120, kScale.top()), Qt::AlignCenter, m_grid.unit);
}
