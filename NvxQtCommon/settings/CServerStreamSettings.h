#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <string>

class QSettings;
class QString;

/// Which figures the application serves by UDP, and on which port. A plain value. The port belongs to the
/// instance of the application, all else to its setup; so they are stored apart.
class NVXQTCOMMON_EXPORT CServerStreamSettings
{
public:
    uint16_t UDPServerPort() const { return m_port; }
    void setUDPServerPort(uint16_t port) { m_port = port; }
    bool isStreamSgnPower() const { return m_signalPower; }
    void setStreamSgnPower(bool stream) { m_signalPower = stream; }
    bool isStreamSPLrms() const { return m_splRms; }
    void setStreamSPLrms(bool stream) { m_splRms = stream; }
    bool isStreamPeak() const { return m_peak; }
    void setStreamPeak(bool stream) { m_peak = stream; }
    bool isStreamSELcum() const { return m_selCum; }
    void setStreamSELcum(bool stream) { m_selCum = stream; }
    bool isUseDevAlias() const { return m_devAlias; }
    void setUseDevAlias(bool use) { m_devAlias = use; }
    /// UTF-8.
    const std::string& messageID() const { return m_messageId; }
    void setMessageID(const std::string& id) { m_messageId = id; }

    /// True when any figure is served.
    bool isStream() const { return m_signalPower || isStatsStream(); }
    /// True when any figure of the wave statistics is served.
    bool isStatsStream() const { return m_splRms || m_peak || m_selCum; }

    /// All but the port.
    void save(QSettings* store, const QString& group) const;
    /// All but the port. A value that is missing loads as false; a message id that is missing or empty stays.
    void load(QSettings* store, const QString& group);
    /// The port alone: in `group` with `withGroup`, else in the group that the store is in.
    void saveInstance(QSettings* store, const QString& group, bool withGroup) const;
    /// A port that is missing or no number loads as 0; of a larger number than a port the low 16 bits count.
    void loadInstance(QSettings* store, const QString& group, bool withGroup);

    bool operator==(const CServerStreamSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    uint16_t m_port = 54545;
    bool m_signalPower = true;
    bool m_splRms = false;
    bool m_peak = false;
    bool m_selCum = false;
    bool m_devAlias = true;
    std::string m_messageId = "PMVE";
};
