#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <Qt>

class QSettings;
class QString;

/// How charts are drawn. A plain value; this library keeps it and draws nothing.
class NVXQTCOMMON_EXPORT CChartsSettings
{
public:
    /// Side of the chart on which the legend stands.
    Qt::AlignmentFlag lgndAlignment() const { return static_cast<Qt::AlignmentFlag>(m_lgndAlignment); }
    void setLgndAlignment(Qt::AlignmentFlag alignment) { m_lgndAlignment = alignment; }
    bool isChartMarkers() const { return m_chartMarkers; }
    void setIsChartMarkers(bool markers) { m_chartMarkers = markers; }
    /// Pixels.
    int markerSize() const { return m_markerSize; }
    void setMarkerSize(int size) { m_markerSize = size; }

    void save(QSettings* store, const QString& group) const;
    /// A value that is missing loads as 0 or false, and so does an alignment with bits that none has.
    void load(QSettings* store, const QString& group);

    bool operator==(const CChartsSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    int m_lgndAlignment = Qt::AlignLeft;
    bool m_chartMarkers = true;
    int m_markerSize = 7;
};
