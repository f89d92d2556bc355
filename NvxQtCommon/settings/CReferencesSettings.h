#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>

class QSettings;
class QString;

/// References and layout of the plots. A plain value; this library keeps it and draws nothing.
class NVXQTCOMMON_EXPORT CReferencesSettings
{
public:
    /// Which curves share a plot. Other numbers out of a store are kept.
    enum PlotGrouping : int32_t {
        GroupNone = 0,
        GroupByDevice = 1,
        GroupByKind = 2,
    };
    /// How high the plots are. Other numbers out of a store are kept.
    enum PlotSizeMode : int32_t {
        SizeFitsWindow = 0,
        SizeFixed = 1,
    };

    /// dB.
    int dBReference() const { return m_dBReference; }
    void setDBReference(int reference) { m_dBReference = reference; }
    /// dB.
    int referenceStep() const { return m_referenceStep; }
    void setReferenceStep(int step) { m_referenceStep = step; }
    PlotGrouping plotGroupMode() const { return m_plotGroupMode; }
    void setPlotGroupMode(PlotGrouping mode) { m_plotGroupMode = mode; }
    PlotSizeMode plotSizeMode() const { return m_plotSizeMode; }
    void setPlotSizeMode(PlotSizeMode mode) { m_plotSizeMode = mode; }
    /// dB.
    double gain() const { return m_gain; }
    void setGain(double gain) { m_gain = gain; }
    /// Seconds.
    int waveTimeLength() const { return m_waveTimeLength; }
    void setWaveTimeLength(int seconds) { m_waveTimeLength = seconds; }

    void save(QSettings* store, const QString& group) const;
    /// A value that is missing loads as 0.
    void load(QSettings* store, const QString& group);

    bool operator==(const CReferencesSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    int m_dBReference = 0;
    int m_referenceStep = 0;
    PlotGrouping m_plotGroupMode = GroupNone;
    PlotSizeMode m_plotSizeMode = SizeFitsWindow;
    double m_gain = 0.0;
    int m_waveTimeLength = 0;
};
