#pragma once

#include "tests/control/ControlPeer.h"
#include "tests/support/SerialPair.h"

#include "NvxQtSimulator/ListedPorts.h"

#include <QTimer>

/// A serial line with a recorder at its end, which answers enquiries on the test's thread, or is silent.
class SerialLine
{
public:
    explicit SerialLine(const QByteArray& reply) : m_reply(reply)
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { answer(); });
        m_timer.start(2);
    }

    ListedPorts::Port listedAs(const std::string& name) const
    {
        return {name, m_line.portName().toStdString()};
    }
    int enquiries() const { return m_enquiries; }
    /// Of the line as the last enquiry found it.
    speed_t speed() const { return m_speed; }
    void setReply(const QByteArray& reply) { m_reply = reply; }

private:
    void answer()
    {
        static const QByteArray enquiry = frameOf(HydEnquireCmd());
        m_received += m_line.read();
        if (!m_received.startsWith(enquiry))
            return;
        m_received.remove(0, enquiry.size());
        m_speed = m_line.settings().c_ospeed;
        ++m_enquiries;
        if (!m_reply.isEmpty())
            m_line.write(m_reply);
    }

    SerialPair m_line;
    QByteArray m_reply;
    QByteArray m_received;
    int m_enquiries = 0;
    speed_t m_speed = B0;
    QTimer m_timer;
};

inline QByteArray reportOf(HydDeviceType type, uint16_t serial)
{
    HydEnquireCmd::Report report;
    report.devType = type;
    report.serial = serial;
    return frameOf(HydEnquireCmd(report));
}
